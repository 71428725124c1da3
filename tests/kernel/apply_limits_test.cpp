// What the random scenarios do not reach, and one whole application as an example.
#include "kernel/apply_limits.h"

#include <unistd.h>

#include <cerrno>

#include <gtest/gtest.h>

#include "kernel/memory_limits.h"
#include "kernel/self_protection.h"
#include "tests/support/story.h"

namespace vorlatch {
namespace {

using plist::Dictionary;
using tests::Lines;

TEST(ApplyLimits, PidZeroDoesNothing) {
  tests::Story story;
  story.openLog();
  applyLimitsForApp("backboardd", readTargetSettings({{"NiceValue", -5}}), 0);
  EXPECT_EQ(story.takeLog(), Lines{});
  EXPECT_EQ(story.device.takeTrace(), Lines{});
  EXPECT_EQ(tests::modeOf(story.statusFile()), 0U);
}

TEST(ApplyLimits, RunsEveryStageAndRecordsTheOutcome) {
  tests::Story story;
  story.openLog();
  story.device.launch({.name = "backboardd", .pid = 100});
  applyLimitsForApp("backboardd",
                    readTargetSettings({{"MemLimitActive", 300},
                                        {"MemLimitInactive", "200"},
                                        {"NiceValue", -5},
                                        {"JetsamPriority", 100},
                                        {"StripManaged", true}}),
                    100);
  EXPECT_EQ(story.takeLog(),
            (Lines{"[内存限制] 目标 Act:300 Inact:200 | 最终 Act:300 Inact:200 -> [成功]",
                   "[内核] ：成功", "[进程优先级] 当前:0 目标:-5 -> [成功]", "[内核] ：成功",
                   "[系统] 内存优先级:100 -> [内核: 成功]", "[内存优先级] 为:100", "[内核] ：成功",
                   "[状态剥离] 目标: 剥离系统托管并开启强锁 -> [操作: 成功] [内核]: 0)",
                   "[守护] backboardd PID:100 完成"}));
  EXPECT_EQ(
      story.takeCalls(),
      (Lines{"memorystatus_control(7, 100, 0, {2c010000 01000000 c8000000 01000000}, 16) = 0",
             "memorystatus_control(8, 100, 0, {00000000 00000000 00000000 00000000}, 16) = 0"
             " {2c010000 01000000 c8000000 01000000}",
             "getpriority(0, 100) = 0", "setpriority(0, 100, -5) = 0", "getpriority(0, 100) = -5",
             "memorystatus_control(16, 100, 0, {00000000}, 4) = 0",
             "memorystatus_control(2, 100, 1, {64000000 00000000 00000000 00000000}, 16) = 0",
             "memorystatus_control(1, 0, 0, null, 0) = 48",
             "memorystatus_control(1, 0, 0, buffer, 288) = 48",
             "memorystatus_control(16, 100, 0, {00000000}, 4) = 0",
             "memorystatus_control(17, 100, 0, null, 0) = 0",
             "memorystatus_control(18, 100, 0, {00000000}, 4) = 0",
             "memorystatus_control(14, 100, 0, null, 0) = 0",
             "setpriority(6, 100, 1) = -1 errno " + std::to_string(ENOTSUP),
             "getpriority(0, 100) = -5", "memorystatus_control(1, 0, 0, null, 0) = 48",
             "memorystatus_control(1, 0, 0, buffer, 288) = 48"}));
  EXPECT_EQ(story.status(),
            (Dictionary{{"backboardd", Dictionary{{"pid", 100}, {"n", -5}, {"p", 100}}}}));
}

TEST(MemoryLimits, HoldAsWantedOrAtAnyDefault) {
  const auto holds = [](std::int32_t wanted_mb, std::int32_t actual_mb) {
    return memoryLimitsHold({.active_limit_mb = wanted_mb},
                            {.active_mb = actual_mb, .inactive_mb = 0});
  };
  for (const std::int32_t no_limit : {0, -1}) {
    EXPECT_TRUE(holds(no_limit, 1));
    EXPECT_TRUE(holds(no_limit, no_limit));
  }
  EXPECT_FALSE(holds(0, -1));
  EXPECT_FALSE(holds(-1, 0));
  EXPECT_FALSE(holds(300, 299));
}

TEST(SelfProtection, RefusalFailsEvenAtTheWantedValue) {
  tests::Story story;
  story.openLog();
  story.device.find(getpid())->nice_value = -20;
  story.device.script({.function = "setpriority", .result = -1, .error = EACCES});
  protect_daemon_itself();
  const Lines log = story.takeLog();
  EXPECT_EQ(Lines(log.begin() + 1, log.begin() + 3),
            (Lines{"[系统] 设定进程优先级 -> [内核: 失败]", "[内核] ：失败"}));
}

}  // namespace
}  // namespace vorlatch
