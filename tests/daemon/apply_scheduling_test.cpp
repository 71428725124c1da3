#include "daemon/apply_scheduling.h"

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
  // Expects one pass, and that it comes exactly then.
  void expectOnePassAfter(std::chrono::nanoseconds duration) const {
    EXPECT_EQ(passesWithin(duration - 1ns), 0U);
    EXPECT_EQ(passesWithin(1ns), 1U);
    EXPECT_EQ(passesWithin(1s), 0U);
  }
};

TEST(Debounce, TheFirstTriggerMakesBothQueues) {
  Story story;
  kMainThread.assertHeld();
  applyMemoryLimits();
  EXPECT_EQ(story.device.takeTrace(), (Lines{"makeSerialQueue(\"com.zel.vorlatch.debounce\")",
                                             "makeSerialQueue(\"com.zel.vorlatch.worker\")"}));
}

TEST(Debounce, OnePassComes150MsAfterTheLastPost) {
  Daemon daemon;
  daemon.post();
  daemon.expectOnePassAfter(150ms);
  daemon.post();
  daemon.run(100ms);
  daemon.post();
  daemon.expectOnePassAfter(150ms);
  for (int i = 0; i < 5; ++i) {
    daemon.run(25ms);
    daemon.post();
  }
  daemon.expectOnePassAfter(150ms);
  daemon.device.post("com.zel.vorlatch/applylimits");  // another name
  EXPECT_EQ(daemon.passesWithin(1s), 0U);
  EXPECT_EQ(daemon.passesWithin(1h), 2U);  // the patrol's two sweeps
}

TEST(Debounce, TwoPosts200MsApartGiveTwoPasses) {
  Daemon daemon;
  daemon.post();
  EXPECT_EQ(daemon.passesWithin(200ms), 1U);
  daemon.post();
  EXPECT_EQ(daemon.passesWithin(150ms), 1U);
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
  daemon.expectOnePassAfter(150ms);           // after the end of the pass
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
  for (int i = 0; i < 2; ++i) {
    daemon.post();
    daemon.run(0ms);
  }
  EXPECT_EQ(daemon.device.takeTrace({"startTimer", "cancelTimer"}),
            (Lines{"cancelTimer(timer 2)",  // it has fired, but exists until now
                   "startTimer(com.zel.vorlatch.debounce, 150000000, never, 0) = timer 3",
                   "cancelTimer(timer 3)",
                   "startTimer(com.zel.vorlatch.debounce, 150000000, never, 0) = timer 4"}));
}

}  // namespace
}  // namespace vorlatch
