#include "daemon/patrol.h"

#include <gtest/gtest.h>

#include "daemon/apply_scheduling.h"
#include "reconcile/work_queues.h"
#include "tests/support/story.h"

namespace vorlatch {
namespace {

using namespace std::chrono_literals;
using plist::Dictionary;
using tests::Lines;
using tests::Story;

TEST(Patrol, HoldsWhatTheSystemChangedMeanwhile) {
  Story story;
  const auto pid = story.device.launch({.name = "alpha"});
  story.writeTargets({{"alpha", Dictionary{{"NiceValue", -7}, {"JetsamPriority", 100}}}});
  story.startAndSettle();
  story.device.find(pid)->nice_value = 3;
  story.device.jetsam_table.records[pid].effective_band = 30;
  story.run(1800s);
  EXPECT_EQ(story.device.find(pid)->nice_value, -7);
  EXPECT_EQ(story.device.jetsam(pid).effective_band, 100);
}

const Lines kBothQueues{"makeSerialQueue(\"com.zel.vorlatch.debounce\")",
                        "makeSerialQueue(\"com.zel.vorlatch.worker\")"};

TEST(Patrol, MakesBothQueuesAndIsMadeOnce) {
  const Story story;
  kMainThread.assertHeld();
  setupGlobal1800sTimer();
  setupGlobal1800sTimer();
  EXPECT_EQ(story.device.takeTrace(),
            (kBothQueues + Lines{"startTimer(com.zel.vorlatch.debounce, 1800000000000, "
                                 "1800000000000, 5000000000) = timer 1"}));
}

TEST(Debounce, MakesBothQueues) {
  const Story story;
  kMainThread.assertHeld();
  applyMemoryLimits();
  EXPECT_EQ(story.device.takeTrace(), kBothQueues);
}

}  // namespace
}  // namespace vorlatch
