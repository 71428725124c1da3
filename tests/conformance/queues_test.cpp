#include "platform/queues.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/conformance/driver.h"

namespace vorlatch::conformance {
namespace {

using platform::async;
using platform::kNever;
using platform::makeSerialQueue;
using platform::SerialQueue;
using platform::startTimer;
using platform::Timer;
using platform::Work;
using Events = std::vector<std::string>;

constexpr std::uint64_t kMillisecond = 1'000'000;
constexpr std::uint64_t kLong = 60'000 * kMillisecond;  // until a test gives up

// What ran, in order. Handlers may outlive the test, and hold it as long.
struct Seen {
  Events what;
  std::vector<std::uint64_t> when_ns;

  void add(const std::string& event) {
    changed([&] {
      what.push_back(event);
      when_ns.push_back(nowNs());
    });
  }
};

class Queues : public testing::Test {
 protected:
  [[nodiscard]] Work adding(const std::string& event) const {
    return [seen = seen_, event] { seen->add(event); };
  }
  [[nodiscard]] Timer once(std::uint64_t after_ms, const std::string& event) const {
    return startTimer(queue_, {after_ms * kMillisecond, kNever, 0}, adding(event));
  }
  // Waits until there are so many events, and gives all of them.
  [[nodiscard]] Seen waitFor(std::size_t count) const {
    EXPECT_TRUE(runUntil([&] { return seen_->what.size() >= count; }, kLong));
    Seen seen;
    changed([&] { seen = *seen_; });
    return seen;
  }
  void expect(const Events& events) const { EXPECT_EQ(waitFor(events.size()).what, events); }

  const std::shared_ptr<Seen> seen_ = std::make_shared<Seen>();
  SerialQueue& queue_ = makeSerialQueue("conformance.queue");
};

using Timers = Queues;

TEST_F(Queues, KeepEachSourcesOrderWithoutOverlap) {
  SerialQueue& other = makeSerialQueue("conformance.other");
  bool inside = false;
  bool overlapped = false;
  const auto piece = [&](const std::string& event) {
    changed([&] {
      overlapped = overlapped || inside;
      inside = true;
    });
    changed([&] { inside = false; });
    seen_->add(event);
  };
  Events here;
  Events there;
  for (int i = 0; i < 200; ++i) {
    here.push_back("here " + std::to_string(i));
    there.push_back("there " + std::to_string(i));
    async(queue_, [piece, event = here.back()] { piece(event); });
    async(other,
          [this, piece, event = there.back()] { async(queue_, [piece, event] { piece(event); }); });
  }
  Events seen_here;
  Events seen_there;
  for (const std::string& event : waitFor(400).what) {
    (event.starts_with("here") ? seen_here : seen_there).push_back(event);
  }
  EXPECT_EQ(seen_here, here);
  EXPECT_EQ(seen_there, there);
  EXPECT_FALSE(overlapped);
}

TEST_F(Queues, AreNotHeldUpByEachOther) {
  SerialQueue& quick = makeSerialQueue("conformance.quick");
  async(queue_, [this, &quick] {
    async(quick, adding("quick"));
    spendInside(20 * kMillisecond);
    async(quick, adding("after"));
  });
  expect({"quick", "after"});
}

TEST_F(Timers, FireOnceInOrderOfDueTime) {
  const std::uint64_t start_ns = nowNs();
  const Timer late = once(150, "late");
  const Timer early = once(20, "early");
  const Seen fires = waitFor(2);
  EXPECT_EQ(fires.what, (Events{"early", "late"}));
  EXPECT_GE(fires.when_ns[0], start_ns + 20 * kMillisecond);
  EXPECT_GE(fires.when_ns[1], start_ns + 150 * kMillisecond);
}

// A timer that waited for its handler would take 1.6 intervals from fire to fire.
TEST_F(Timers, StayOnTheirGridBehindSlowHandlers) {
  constexpr std::uint64_t kInterval = 100 * kMillisecond;
  const std::uint64_t start_ns = nowNs();
  const Timer timer = startTimer(queue_, {kInterval / 2, kInterval, 0}, [seen = seen_] {
    seen->add("fire");
    spendInside(kInterval * 6 / 10);
  });
  const Seen fires = waitFor(6);
  for (std::size_t n = 0; n < 6; ++n) {
    EXPECT_GE(fires.when_ns[n], start_ns + kInterval / 2 + n * kInterval) << n;
  }
  EXPECT_LT(fires.when_ns[5], start_ns + kInterval * 7);
}

TEST_F(Timers, MergeMissedFiresAndGoBackToTheGrid) {
  constexpr std::uint64_t kInterval = 40 * kMillisecond;
  const std::uint64_t start_ns = nowNs();
  const Timer timer = startTimer(queue_, {kInterval, kInterval, 0}, [seen = seen_] {
    const bool first = seen->what.empty();
    seen->add("fire");
    if (first) spendInside(kInterval * 7 / 2);
  });
  // Due at 1, 2, 3 and 4 intervals, the last three behind the slow handler: they come as one, and
  // what comes then was due at 5.
  const Seen fires = waitFor(3);
  EXPECT_GE(fires.when_ns[0], start_ns + kInterval);
  EXPECT_GE(fires.when_ns[1], start_ns + kInterval * 9 / 2);
  EXPECT_GE(fires.when_ns[2], start_ns + kInterval * 5);
}

TEST_F(Timers, DoNotFireOnceLetGoOf) {
  Timer timer = startTimer(queue_, {20 * kMillisecond, 20 * kMillisecond, 0}, adding("cancelled"));
  timer.reset();
  async(queue_, [this] {
    Timer due = once(0, "cancelled");
    Timer repeating = startTimer(queue_, {kMillisecond, kMillisecond, 0}, adding("cancelled"));
    spendInside(10 * kMillisecond);
    due.reset();
    repeating.reset();
    async(queue_, adding("let go"));
  });
  expect({"let go"});
  const Timer marker = once(60, "marker");
  expect({"let go", "marker"});
}

TEST_F(Timers, MayBeLetGoOfByTheirHandlers) {
  const auto held = std::make_shared<Timer>();
  const std::string text = "a capture too long to stand inside the string object itself";
  async(queue_, [this, held, text] {
    *held = startTimer(queue_, {kMillisecond, kMillisecond, 0}, [seen = seen_, held, text] {
      held->reset();
      spendInside(5 * kMillisecond);
      seen->add(text);
    });
  });
  const Timer marker = once(60, "marker");
  expect({text, "marker"});
}

TEST_F(Timers, LetGoOfWhatTheirHandlersHold) {
  struct ToldWhenGone {
    std::shared_ptr<Seen> seen;
    ~ToldWhenGone() { seen->add("gone"); }
  };
  std::shared_ptr<ToldWhenGone> held(new ToldWhenGone{seen_});
  Timer timer = startTimer(queue_, {kLong, kNever, 0},
                           [held = std::move(held)] { held->seen->add("fired"); });
  EXPECT_EQ(waitFor(0).what, Events{});
  timer.reset();
  // At once or later on the queue.
  expect({"gone"});
}

TEST_F(Timers, OfTheLongestTimesHoldUpNobody) {
  constexpr std::uint64_t kLongestCheckIntervalNs = std::uint64_t{2147483647} * 1'000'000'000;
  std::vector<Timer> timers;
  for (const std::uint64_t ns :
       {kLongestCheckIntervalNs, kNever, kNever - 1, std::uint64_t{1} << 63U}) {
    timers.push_back(startTimer(queue_, {ns, ns, kNever}, adding("too early")));
    timers.push_back(startTimer(queue_, {ns, kNever, 0}, adding("too early")));
    timers.push_back(startTimer(queue_, {ns, kMillisecond, 0}, adding("too early")));
  }
  timers.push_back(
      startTimer(queue_, {kMillisecond, kLongestCheckIntervalNs, 0}, adding("long interval")));
  timers.push_back(once(60, "marker"));
  expect({"long interval", "marker"});
}

TEST_F(Timers, AndWorkDoNotStarveEachOther) {
  struct Chain {
    SerialQueue& queue;
    std::shared_ptr<Seen> seen;
    int length = 0;
    int fires = 0;
    static void next(const std::shared_ptr<Chain>& chain) {
      spendInside(kMillisecond);
      if (++chain->length >= 50 && chain->fires >= 10) return chain->seen->add("work");
      async(chain->queue, [chain] { next(chain); });
    }
  };
  auto chain = std::make_shared<Chain>(Chain{queue_, seen_});
  const Timer timer = startTimer(queue_, {0, 1, 0}, [seen = seen_, chain] {
    spendInside(kMillisecond);
    if (++chain->fires == 10) seen->add("timer");
  });
  async(queue_, [chain] { Chain::next(chain); });
  EXPECT_EQ(waitFor(2).what.size(), 2U);
}

}  // namespace
}  // namespace vorlatch::conformance
