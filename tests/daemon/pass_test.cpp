// Rules of the pass that the random scenarios do not reach.
#include <gtest/gtest.h>

#include "tests/support/story.h"

namespace vorlatch {
namespace {

using namespace std::chrono_literals;
using plist::Dictionary;
using tests::kTargetRule;
using tests::Lines;
using tests::Story;

// The timers that watch targets, beside those of the debounce and of the patrol.
std::size_t watchTimers(const Story& story) {
  return story.device.scheduler.timerCount() - 2;
}

TEST(Pass, StoppedTargetGetsItsTimerEachTimeItIsListed) {
  Story story;
  const Dictionary targets{{"alpha", Dictionary{{"CheckInterval", 5}}}};
  story.writeTargets({});
  story.startAndSettle();
  for (int time = 0; time < 2; ++time) {
    story.writeTargets(targets);
    story.postAndRun();
    EXPECT_EQ(story.takeLog(), Lines{});
    EXPECT_EQ(watchTimers(story), 1U);
    story.writeTargets({});
    story.postAndRun();
    EXPECT_EQ(story.takeLog(), (Lines{kTargetRule, "[配置] 已有进程从列表移除，已恢复默认"}));
    EXPECT_EQ(watchTimers(story), 0U);
  }
}

TEST(Pass, SwitchingOffForgetsWhatOnlyThePatrolSaw) {
  Story story;
  story.writeTargets({});
  story.startAndSettle();
  const auto pid = story.device.launch({.name = "alpha"});
  const Dictionary targets{{"alpha", Dictionary{}}};
  story.writeTargets(targets);
  story.run(1800s);
  story.writePreferences({{"Enabled", false}});
  story.postAndRun();
  story.takeLog();
  story.writeTargets(targets);
  story.postAndRun();
  EXPECT_EQ(story.takeLog()[1], "[进程] 目标: alpha 已启动 PID: " + std::to_string(pid) + " ");
}

}  // namespace
}  // namespace vorlatch
