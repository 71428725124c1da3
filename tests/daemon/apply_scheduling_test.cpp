#include "daemon/apply_scheduling.h"

#include <algorithm>

#include <gtest/gtest.h>

#include "tests/support/story.h"

namespace vorlatch {
namespace {

using plist::Dictionary;
using tests::Lines;
using tests::Story;
using namespace std::chrono_literals;

// A daemon whose passes can be counted, because each scans the processes once.
struct Daemon : Story {
  Daemon() {
    writeTargets({{"absent", Dictionary{}}});
    startAndSettle();
  }
  [[nodiscard]] std::size_t passesWithin(std::chrono::nanoseconds duration) const {
    run(duration);
    return device.takeTrace({"proc_listpids"}).size() / 2;
  }
};

TEST(Debounce, TheFirstTriggerMakesBothQueues) {
  Story story;
  kMainThread.assertHeld();
  applyMemoryLimits();
  EXPECT_EQ(story.device.takeTrace(), (Lines{"makeSerialQueue(\"com.zel.vorlatch.debounce\")",
                                             "makeSerialQueue(\"com.zel.vorlatch.worker\")"}));
}

TEST(Debounce, OnePassComes150MillisecondsAfterAPost) {
  Daemon daemon;
  daemon.post();
  EXPECT_EQ(daemon.passesWithin(150ms - 1ns), 0U);
  EXPECT_EQ(daemon.passesWithin(1ns), 1U);
  EXPECT_EQ(daemon.passesWithin(1h), 0U + 2U);  // the patrol's two sweeps
}

TEST(Debounce, TwoPosts100MillisecondsApartGiveOnePass) {
  Daemon daemon;
  daemon.post();
  daemon.run(100ms);
  daemon.post();
  EXPECT_EQ(daemon.passesWithin(150ms - 1ns), 0U);
  EXPECT_EQ(daemon.passesWithin(1ns), 1U);  // 250 ms after the first post
  EXPECT_EQ(daemon.passesWithin(1s), 0U);
}

TEST(Debounce, TwoPosts200MsApartGiveTwoPasses) {
  Daemon daemon;
  daemon.post();
  EXPECT_EQ(daemon.passesWithin(200ms), 1U);
  daemon.post();
  EXPECT_EQ(daemon.passesWithin(150ms), 1U);
}

TEST(Debounce, FivePostsWithin100MsGiveOnePass) {
  Daemon daemon;
  for (int i = 0; i < 5; ++i) {
    daemon.post();
    if (i < 4) daemon.run(25ms);
  }
  EXPECT_EQ(daemon.passesWithin(150ms - 1ns), 0U);
  EXPECT_EQ(daemon.passesWithin(1ns), 1U);
  EXPECT_EQ(daemon.passesWithin(1s), 0U);
}

TEST(Debounce, APostDuringAPassGivesAnotherAfterItsEnd) {
  Daemon daemon;
  // A pass that takes 400 ms, with a notification posted at its beginning.
  daemon.device.script(
      {.function = "proc_listpids", .count = 1, .takes_ns = 400'000'000, .meanwhile = [&] {
         daemon.post();
       }});
  daemon.post();
  EXPECT_EQ(daemon.passesWithin(150ms), 1U);  // ends at 550 ms
  EXPECT_EQ(daemon.passesWithin(150ms - 1ns), 0U);
  EXPECT_EQ(daemon.passesWithin(1ns), 1U);  // 150 ms after the end of the pass
}

TEST(Debounce, APostBeforeTheFirstPassHoldsItOff) {
  Story story;
  story.writeTargets({{"absent", Dictionary{}}});
  story.start();
  story.run(100ms);
  story.post();
  story.run(149ms);
  EXPECT_EQ(story.device.takeTrace({"proc_listpids"}), Lines{});
  story.run(1ms);
  EXPECT_EQ(story.device.takeTrace({"proc_listpids"}).size(), 2U);
}

TEST(Debounce, EachTriggerRestartsTheTimer) {
  Daemon daemon;
  daemon.post();
  daemon.run(0ms);
  daemon.post();
  daemon.run(0ms);
  EXPECT_EQ(daemon.device.takeTrace({"startTimer", "cancelTimer"}),
            (Lines{"cancelTimer(timer 2)",  // it has fired, but exists until now
                   "startTimer(com.zel.vorlatch.debounce, 150000000, never, 0) = timer 3",
                   "cancelTimer(timer 3)",
                   "startTimer(com.zel.vorlatch.debounce, 150000000, never, 0) = timer 4"}));
}

TEST(Debounce, APostOfAnotherNameIsNotHeard) {
  Daemon daemon;
  daemon.device.post("com.zel.vorlatch/applylimits");
  EXPECT_EQ(daemon.passesWithin(1s), 0U);
}

}  // namespace
}  // namespace vorlatch
