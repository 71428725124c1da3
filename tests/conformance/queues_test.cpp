#include "platform/queues.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/conformance/driver.h"

namespace {

using vorlatch::conformance::changed;
using vorlatch::conformance::nowNs;
using vorlatch::conformance::runUntil;
using vorlatch::conformance::spendInside;
using vorlatch::platform::async;
using vorlatch::platform::kNever;
using vorlatch::platform::makeSerialQueue;
using vorlatch::platform::SerialQueue;
using vorlatch::platform::startTimer;
using vorlatch::platform::Timer;

constexpr std::uint64_t kMillisecond = 1'000'000;
constexpr std::uint64_t kLong = 60'000 * kMillisecond;  // until a test gives up

// What ran, in order. Read under the driver's lock, or when nothing writes to it any more.
struct Seen {
  std::vector<std::string> what;
  std::vector<std::uint64_t> when_ns;

  void add(const std::string& event) {
    changed([&] {
      what.push_back(event);
      when_ns.push_back(nowNs());
    });
  }
  [[nodiscard]] std::size_t count() const { return what.size(); }
  [[nodiscard]] Seen copy() const {
    Seen seen;
    changed([&] { seen = *this; });
    return seen;
  }
};

// A timer that work on a queue makes and lets go of.
struct HeldTimer {
  Timer timer;
};

using Events = std::vector<std::string>;

TEST(Queues, WorkRunsInTheOrderInWhichItWasSent) {
  auto seen = std::make_shared<Seen>();
  SerialQueue& queue = makeSerialQueue("conformance.order");
  Events expected;
  for (int i = 0; i < 100; ++i) {
    expected.push_back(std::to_string(i));
    async(queue, [seen, i] { seen->add(std::to_string(i)); });
  }
  EXPECT_TRUE(runUntil([&] { return seen->count() == 100; }, kLong));
  EXPECT_EQ(seen->what, expected);
}

TEST(Queues, WorkSentFromWithinWorkRunsAfterIt) {
  auto seen = std::make_shared<Seen>();
  SerialQueue& queue = makeSerialQueue("conformance.within");
  async(queue, [seen, &queue] {
    async(queue, [seen] { seen->add("inner"); });
    seen->add("outer");
  });
  EXPECT_TRUE(runUntil([&] { return seen->count() == 2; }, kLong));
  EXPECT_EQ(seen->what, (Events{"outer", "inner"}));
}

TEST(Queues, EachSourceKeepsItsOrderAndNoTwoPiecesOverlap) {
  struct State {
    Seen here;
    Seen there;
    bool inside = false;
    bool overlapped = false;
  };
  auto state = std::make_shared<State>();
  SerialQueue& target = makeSerialQueue("conformance.target");
  SerialQueue& other = makeSerialQueue("conformance.other");
  const auto piece = [state](Seen State::*source, int i) {
    changed([&] {
      state->overlapped = state->overlapped || state->inside;
      state->inside = true;
    });
    changed([&] { state->inside = false; });
    ((*state).*source).add(std::to_string(i));
  };
  Events expected;
  for (int i = 0; i < 200; ++i) {
    expected.push_back(std::to_string(i));
    async(target, [piece, i] { piece(&State::here, i); });
    async(other, [piece, &target, i] { async(target, [piece, i] { piece(&State::there, i); }); });
  }
  const auto done = [&] { return state->here.count() + state->there.count() == 400; };
  EXPECT_TRUE(runUntil(done, kLong));
  EXPECT_EQ(state->here.what, expected);
  EXPECT_EQ(state->there.what, expected);
  EXPECT_FALSE(state->overlapped);
}

TEST(Queues, SlowWorkOnOneQueueDoesNotHoldUpAnother) {
  auto seen = std::make_shared<Seen>();
  SerialQueue& slow = makeSerialQueue("conformance.slow");
  SerialQueue& quick = makeSerialQueue("conformance.quick");
  async(slow, [seen, &quick] {
    async(quick, [seen] { seen->add("quick"); });
    spendInside(20 * kMillisecond);
    async(quick, [seen] { seen->add("after"); });
  });
  EXPECT_TRUE(runUntil([&] { return seen->count() == 2; }, kLong));
  EXPECT_EQ(seen->what, (Events{"quick", "after"}));
}

TEST(Timers, AOneShotFiresOnceNotBeforeItIsDue) {
  auto seen = std::make_shared<Seen>();
  SerialQueue& queue = makeSerialQueue("conformance.once");
  const std::uint64_t start_ns = nowNs();
  const Timer once =
      startTimer(queue, {20 * kMillisecond, kNever, 0}, [seen] { seen->add("once"); });
  const Timer marker =
      startTimer(queue, {60 * kMillisecond, kNever, 0}, [seen] { seen->add("marker"); });
  EXPECT_TRUE(runUntil([&] { return seen->count() == 2; }, kLong));
  EXPECT_EQ(seen->what, (Events{"once", "marker"}));
  EXPECT_GE(seen->when_ns[0], start_ns + 20 * kMillisecond);
  EXPECT_GE(seen->when_ns[1], start_ns + 60 * kMillisecond);
}

TEST(Timers, TheEarlierOneFiresFirstWhateverTheOrderOfTheirStarts) {
  auto seen = std::make_shared<Seen>();
  SerialQueue& queue = makeSerialQueue("conformance.earlier");
  const Timer late =
      startTimer(queue, {150 * kMillisecond, kNever, 0}, [seen] { seen->add("late"); });
  const Timer early =
      startTimer(queue, {20 * kMillisecond, kNever, 0}, [seen] { seen->add("early"); });
  EXPECT_TRUE(runUntil([&] { return seen->count() == 2; }, kLong));
  EXPECT_EQ(seen->what, (Events{"early", "late"}));
}

// A timer that waited for its handler would take 1.6 intervals from fire to fire.
TEST(Timers, ARepeatingOneStaysOnItsGridThoughItsHandlerTakesTime) {
  auto seen = std::make_shared<Seen>();
  SerialQueue& queue = makeSerialQueue("conformance.grid");
  constexpr std::uint64_t kInterval = 100 * kMillisecond;
  const std::uint64_t start_ns = nowNs();
  const Timer timer = startTimer(queue, {kInterval / 2, kInterval, 0}, [seen] {
    seen->add("fire");
    spendInside(kInterval * 6 / 10);
  });
  EXPECT_TRUE(runUntil([&] { return seen->count() == 6; }, kLong));
  const Seen fires = seen->copy();
  for (std::size_t n = 0; n < 6; ++n) {
    EXPECT_GE(fires.when_ns[n], start_ns + kInterval / 2 + n * kInterval) << n;
  }
  EXPECT_LT(fires.when_ns[5], start_ns + kInterval * 7);
}

TEST(Timers, MissedFiresComeAsOneAndTheNextIsBackOnTheGrid) {
  auto seen = std::make_shared<Seen>();
  SerialQueue& queue = makeSerialQueue("conformance.missed");
  constexpr std::uint64_t kInterval = 40 * kMillisecond;
  const std::uint64_t start_ns = nowNs();
  const Timer timer = startTimer(queue, {kInterval, kInterval, 0}, [seen] {
    const bool first = seen->what.empty();
    seen->add("fire");
    if (first) spendInside(kInterval * 7 / 2);
  });
  EXPECT_TRUE(runUntil([&] { return seen->count() >= 3; }, kLong));
  // Due at 1, 2, 3 and 4 intervals, the last three behind the slow handler: they come as one, and
  // what comes then was due at 5.
  const Seen fires = seen->copy();
  EXPECT_GE(fires.when_ns[0], start_ns + kInterval);
  EXPECT_GE(fires.when_ns[1], start_ns + kInterval * 9 / 2);
  EXPECT_GE(fires.when_ns[2], start_ns + kInterval * 5);
}

TEST(Timers, OneThatWasLetGoOfDoesNotFire) {
  auto seen = std::make_shared<Seen>();
  SerialQueue& queue = makeSerialQueue("conformance.letgo");
  Timer timer = startTimer(queue, {20 * kMillisecond, 20 * kMillisecond, 0},
                           [seen] { seen->add("cancelled"); });
  timer.reset();
  const Timer marker =
      startTimer(queue, {60 * kMillisecond, kNever, 0}, [seen] { seen->add("marker"); });
  EXPECT_TRUE(runUntil([&] { return seen->count() == 1; }, kLong));
  EXPECT_EQ(seen->what, (Events{"marker"}));
}

TEST(Timers, OneThatIsDueDoesNotFireOnceItsOwnQueueLetGoOfIt) {
  auto seen = std::make_shared<Seen>();
  SerialQueue& queue = makeSerialQueue("conformance.due");
  async(queue, [seen, &queue] {
    const auto cancelled = [seen] { seen->add("cancelled"); };
    Timer once = startTimer(queue, {0, kNever, 0}, cancelled);
    Timer repeating = startTimer(queue, {kMillisecond, kMillisecond, 0}, cancelled);
    spendInside(10 * kMillisecond);
    once.reset();
    repeating.reset();
    async(queue, [seen] { seen->add("marker"); });
  });
  EXPECT_TRUE(runUntil([&] { return seen->count() == 1; }, kLong));
  EXPECT_EQ(seen->what, (Events{"marker"}));
}

TEST(Timers, AHandlerMayLetGoOfItsOwnTimerAndRunsToItsEnd) {
  auto seen = std::make_shared<Seen>();
  auto held = std::make_shared<HeldTimer>();
  SerialQueue& queue = makeSerialQueue("conformance.own");
  const std::string text = "a capture too long to stand inside the string object itself";
  async(queue, [seen, held, &queue, text] {
    held->timer = startTimer(queue, {kMillisecond, kMillisecond, 0}, [seen, held, text] {
      held->timer.reset();
      spendInside(5 * kMillisecond);
      seen->add(text);
    });
  });
  const Timer marker =
      startTimer(queue, {60 * kMillisecond, kNever, 0}, [seen] { seen->add("marker"); });
  EXPECT_TRUE(runUntil([&] { return seen->count() == 2; }, kLong));
  EXPECT_EQ(seen->what, (Events{text, "marker"}));
}

TEST(Timers, LettingGoOfOneLetsGoOfWhatItsHandlerHolds) {
  struct ToldWhenGone {
    std::shared_ptr<Seen> seen;
    ~ToldWhenGone() { seen->add("gone"); }
  };
  auto seen = std::make_shared<Seen>();
  std::shared_ptr<ToldWhenGone> held(new ToldWhenGone{seen});
  SerialQueue& queue = makeSerialQueue("conformance.captures");
  Timer timer =
      startTimer(queue, {kLong, kNever, 0}, [held = std::move(held)] { held->seen->add("fired"); });
  EXPECT_EQ(seen->count(), 0U);
  timer.reset();
  // At once or later on the queue.
  EXPECT_TRUE(runUntil([&] { return seen->count() == 1; }, kLong));
}

TEST(Timers, OneStartedAnewByEachOfABurstFiresOnceAfterTheLast) {
  auto seen = std::make_shared<Seen>();
  auto held = std::make_shared<HeldTimer>();
  SerialQueue& queue = makeSerialQueue("conformance.debounce");
  for (int i = 0; i < 10; ++i) {
    async(queue, [seen, held, &queue, i] {
      held->timer.reset();
      held->timer = startTimer(queue, {100 * kMillisecond, kNever, 0},
                               [seen, i] { seen->add("pass " + std::to_string(i)); });
    });
  }
  const Timer marker =
      startTimer(queue, {400 * kMillisecond, kNever, 0}, [seen] { seen->add("marker"); });
  EXPECT_TRUE(runUntil([&] { return seen->count() == 2; }, kLong));
  EXPECT_EQ(seen->what, (Events{"pass 9", "marker"}));
}

TEST(Timers, TheLongestTimesNeitherFireNowNorHoldUpOthers) {
  auto seen = std::make_shared<Seen>();
  SerialQueue& queue = makeSerialQueue("conformance.longest");
  constexpr std::uint64_t kLongestCheckIntervalNs = std::uint64_t{2147483647} * 1'000'000'000;
  const auto too_early = [seen] { seen->add("too early"); };
  std::vector<Timer> timers;
  for (const std::uint64_t ns :
       {kLongestCheckIntervalNs, kNever, kNever - 1, std::uint64_t{1} << 63U}) {
    timers.push_back(startTimer(queue, {ns, ns, kNever}, too_early));
    timers.push_back(startTimer(queue, {ns, kNever, 0}, too_early));
    timers.push_back(startTimer(queue, {ns, kMillisecond, 0}, too_early));
  }
  timers.push_back(startTimer(queue, {kMillisecond, kLongestCheckIntervalNs, 0},
                              [seen] { seen->add("first of a long interval"); }));
  timers.push_back(
      startTimer(queue, {60 * kMillisecond, kNever, 0}, [seen] { seen->add("marker"); }));
  EXPECT_TRUE(runUntil([&] { return seen->count() == 2; }, kLong));
  EXPECT_EQ(seen->what, (Events{"first of a long interval", "marker"}));
}

TEST(Timers, NeitherTimersNorWorkStarveTheOther) {
  auto seen = std::make_shared<Seen>();
  SerialQueue& queue = makeSerialQueue("conformance.starve");
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
  auto chain = std::make_shared<Chain>(Chain{queue, seen});
  const Timer timer = startTimer(queue, {0, 1, 0}, [seen, chain] {
    spendInside(kMillisecond);
    if (++chain->fires == 10) seen->add("timer");
  });
  async(queue, [chain] { Chain::next(chain); });
  EXPECT_TRUE(runUntil([&] { return seen->count() == 2; }, kLong));
}

}  // namespace
