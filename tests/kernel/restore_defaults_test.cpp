#include "kernel/restore_defaults.h"

#include <cerrno>

#include <gtest/gtest.h>

#include "config/status_file.h"
#include "kernel/apply_limits.h"
#include "tests/support/story.h"

namespace vorlatch {
namespace {

using plist::Dictionary;
using tests::Lines;

struct Held : tests::Story {
  Held() {
    openLog();
    device.launch({.name = "backboardd", .pid = 100});
    applyLimitsForApp(
        "backboardd",
        readTargetSettings({{"NiceValue", -5}, {"JetsamPriority", 100}, {"MemLimitActive", 300}}),
        100);
    takeLog();
    device.takeTrace();
  }
  // Every restore logs the same, and makes as many calls.
  Lines restore() {
    restoreDefaultsForProcess("backboardd", 100);
    EXPECT_EQ(takeLog(), (Lines{tests::kTargetRule, "[恢复] 目标: backboardd PID: 100",
                                "[守护] backboardd PID:100"}));
    EXPECT_EQ(status(), Dictionary{});
    Lines calls = takeCalls();
    EXPECT_EQ(calls.size(), 4U);
    return calls;
  }
};

TEST(RestoreDefaults, HandsTheProcessBackEachTime) {
  Held held;
  Dictionary status_at_first_call{{"not", "called"}};
  held.device.script(
      {.function = "setpriority", .meanwhile = [&] { status_at_first_call = held.status(); }});
  for (int time = 0; time < 2; ++time) {
    EXPECT_EQ(
        held.restore(),
        (Lines{"setpriority(0, 100, 0) = 0",
               "memorystatus_control(7, 100, 0, {00000000 00000000 00000000 00000000}, 16) = 0",
               "memorystatus_control(16, 100, 0, {01000000}, 4) = 0",
               "memorystatus_control(2, 100, 0, {00000000 00000000 00000000 00000000}, 16) = 0"}));
  }
  EXPECT_EQ(status_at_first_call, Dictionary{});
  EXPECT_EQ(held.device.find(100)->nice_value, 0);
  const auto state = held.device.jetsam(100);
  EXPECT_EQ(state.effective_band, 0);
  EXPECT_TRUE(state.managed);
  EXPECT_EQ(state.active, model::MemoryLimit{});
}

TEST(RestoreDefaults, PidZeroClearsTheEntryAndNothingElse) {
  Held held;
  ASSERT_EQ(held.status(),
            (Dictionary{{"backboardd", Dictionary{{"pid", 100}, {"n", -5}, {"p", 100}}}}));
  restoreDefaultsForProcess("backboardd", 0);
  EXPECT_EQ(held.takeLog(), Lines{});
  EXPECT_EQ(held.takeCalls(), Lines{});
  EXPECT_EQ(held.status(), Dictionary{});
}

TEST(RestoreDefaults, RefusalsAndAnExitChangeNothing) {
  Held held;
  held.device.script({.function = "setpriority", .result = -1, .error = EPERM});
  held.device.script({.function = "memorystatus_control", .result = -1, .error = EPERM});
  held.restore();
  held.device.clearScripts();
  held.device.exit(100);
  held.restore();
}

}  // namespace
}  // namespace vorlatch
