#include "kernel/apply_limits.h"

#include <cerrno>

#include <gtest/gtest.h>

#include "tests/kernel/running_target.h"

namespace vorlatch {
namespace {

using plist::Dictionary;
using tests::Lines;

constexpr int kSetLimits = 7;
constexpr int kGetLimits = 8;

const Lines kQuietLimits{"[内存限制] 目标 Act:0 Inact:0 | 最终 Act:1450 Inact:1450 -> [成功]",
                         "[内核] ：成功"};

TEST(ApplyLimits, PidZeroDoesNothing) {
  tests::RunningTarget target;
  applyLimitsForApp("backboardd", readTargetSettings({{"NiceValue", -5}}), 0);
  EXPECT_EQ(target.takeLog(), Lines{});
  EXPECT_EQ(target.device.takeTrace(), Lines{});
  EXPECT_EQ(tests::modeOf(target.statusFile()), 0U);
}

TEST(ApplyLimits, RunsEveryStageAndRecordsTheOutcome) {
  tests::RunningTarget target;
  target.device.takeTrace();
  applyLimitsForApp("backboardd",
                    readTargetSettings({{"MemLimitActive", 300},
                                        {"MemLimitInactive", "200"},
                                        {"NiceValue", -5},
                                        {"JetsamPriority", 100},
                                        {"StripManaged", true}}),
                    100);
  EXPECT_EQ(target.takeLog(),
            (Lines{"[内存限制] 目标 Act:300 Inact:200 | 最终 Act:300 Inact:200 -> [成功]",
                   "[内核] ：成功", "[进程优先级] 当前:0 目标:-5 -> [成功]", "[内核] ：成功",
                   "[系统] 内存优先级:100 -> [内核: 成功]", "[内存优先级] 为:100", "[内核] ：成功",
                   "[状态剥离] 目标: 剥离系统托管并开启强锁 -> [操作: 成功] [内核]: 0)",
                   "[守护] backboardd PID:100 完成"}));
  EXPECT_EQ(
      target.takeCalls(),
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
  EXPECT_EQ(target.status(),
            (Dictionary{{"backboardd", Dictionary{{"pid", 100}, {"n", -5}, {"p", 100}}}}));
}

TEST(ApplyLimits, ExitedProcessFailsButIsRecorded) {
  tests::RunningTarget target;
  target.device.exit(100);
  EXPECT_EQ(
      target.apply({{"MemLimitActive", 300}, {"JetsamPriority", 100}, {"StripManaged", true}}),
      (Lines{"[内存限制] 目标 Act:300 Inact:0 -> [失败] err:3", "[内核] ：失败",
             "[进程优先级] 读取状态失败 err:3", "[环境适配] 目标 100 -> 实际 10",
             "[系统] 内存优先级:10 -> [内核: 失败]",
             "[内存优先级] 未在内核优先级列表中找到 PID:100", "[内核] ：失败",
             "[状态剥离] 目标: 剥离系统托管并开启强锁 -> [操作: 失败] [内核]: -1)"}));
  EXPECT_EQ(target.status(),
            (Dictionary{{"backboardd", Dictionary{{"pid", 100}, {"n", -1}, {"p", -999}}}}));
}

TEST(MemoryLimitStage, ZeroIsRequestedAndReadBackAsTheDefault) {
  tests::RunningTarget target;
  target.device.takeTrace();
  EXPECT_EQ(target.limits(0, 0), kQuietLimits);
  EXPECT_EQ(target.takeCalls().front(),
            "memorystatus_control(7, 100, 0, {00000000 00000000 00000000 00000000}, 16) = 0");
}

TEST(MemoryLimitStage, OnlyAPositiveLimitIsFatal) {
  tests::RunningTarget target;
  target.device.takeTrace();
  target.limits(1, -1);
  EXPECT_EQ(target.takeCalls().front(),
            "memorystatus_control(7, 100, 0, {01000000 01000000 ffffffff 00000000}, 16) = 0");
}

TEST(MemoryLimitStage, ZeroReadBackAsZeroHolds) {
  tests::RunningTarget target;
  target.readBackLimits(300, 0);
  EXPECT_EQ(
      target.limits(300, 0),
      (Lines{"[内存限制] 目标 Act:300 Inact:0 | 最终 Act:300 Inact:0 -> [成功]", "[内核] ：成功"}));
}

TEST(MemoryLimitStage, ZeroReadBackAsMinusOneIsOverridden) {
  tests::RunningTarget target;
  target.readBackLimits(300, -1);
  EXPECT_EQ(target.limits(300, 0),
            (Lines{"[内存限制] 目标 Act:300 Inact:0 | 最终 Act:300 Inact:-1 -> [成功]",
                   "[内核] ：已被系统覆盖"}));
}

TEST(MemoryLimitStage, MinusOneReadBackAsZeroIsOverridden) {
  tests::RunningTarget target;
  target.readBackLimits(0, 50);
  EXPECT_EQ(target.limits(-1, 50).back(), "[内核] ：已被系统覆盖");
}

TEST(MemoryLimitStage, MinusOneHoldsAsItselfOrAsADefault) {
  tests::RunningTarget target;
  target.readBackLimits(-1, 1);
  EXPECT_EQ(target.limits(-1, -1).back(), "[内核] ：成功");
}

TEST(MemoryLimitStage, AnotherValueReadBackIsOverridden) {
  tests::RunningTarget target;
  target.readBackLimits(299, 200);
  EXPECT_EQ(target.limits(300, 200),
            (Lines{"[内存限制] 目标 Act:300 Inact:200 | 最终 Act:299 Inact:200 -> [成功]",
                   "[内核] ：已被系统覆盖"}));
}

TEST(MemoryLimitStage, BelowMinusOneDoesNotRequestTheDefault) {
  tests::RunningTarget target;
  target.readBackLimits(1450, 1450);
  EXPECT_EQ(target.limits(-2, 0).back(), "[内核] ：已被系统覆盖");
}

TEST(MemoryLimitStage, RefusalIsLoggedAndNotReadBack) {
  tests::RunningTarget target;
  target.device.takeTrace();
  target.device.script(
      {.function = "memorystatus_control", .command = kSetLimits, .result = -1, .error = EPERM});
  EXPECT_EQ(target.limits(300, 200),
            (Lines{"[内存限制] 目标 Act:300 Inact:200 -> [失败] err:1", "[内核] ：失败"}));
  EXPECT_EQ(target.takeCalls()[1], "getpriority(0, 100) = 0");
}

TEST(MemoryLimitStage, ARefusalWithoutAnErrorShowsNone) {
  tests::RunningTarget target;
  errno = ENOENT;  // left by an earlier call
  target.device.script({.function = "memorystatus_control", .command = kSetLimits, .result = 1});
  EXPECT_EQ(target.limits(300, 200).front(), "[内存限制] 目标 Act:300 Inact:200 -> [失败] err:0");
}

TEST(MemoryLimitStage, AFailedReadBackReadsAsZeros) {
  tests::RunningTarget target;
  target.device.script(
      {.function = "memorystatus_control", .command = kGetLimits, .result = -1, .error = EPERM});
  EXPECT_EQ(
      target.limits(0, 0),
      (Lines{"[内存限制] 目标 Act:0 Inact:0 | 最终 Act:0 Inact:0 -> [成功]", "[内核] ：成功"}));
  EXPECT_EQ(target.limits(300, 0).back(), "[内核] ：已被系统覆盖");
}

TEST(NiceStage, AMissingValueIsHeldAtZero) {
  tests::RunningTarget target;
  target.device.find(100)->nice_value = -5;
  const Lines log = target.apply({{"JetsamPriority", -1}});
  EXPECT_EQ(log[2], "[进程优先级] 当前:-5 目标:0 -> [成功]");
  EXPECT_EQ(target.device.find(100)->nice_value, 0);
}

TEST(NiceStage, AnEmptyStringIsHeldAtZero) {
  tests::RunningTarget target;
  target.device.find(100)->nice_value = -5;
  EXPECT_EQ(target.nice(""), (Lines{"[进程优先级] 当前:-5 目标:0 -> [成功]", "[内核] ：成功"}));
}

TEST(NiceStage, AValueAlreadyHeldIsNotSetAgain) {
  tests::RunningTarget target;
  target.device.find(100)->nice_value = 7;
  EXPECT_EQ(target.nice(7), Lines{"[进程优先级] 目标已是 7"});
  EXPECT_EQ(target.device.takeTrace({"setpriority"}), Lines{});
}

TEST(NiceStage, ValuesOutOfRangeAreClamped) {
  tests::RunningTarget target;
  EXPECT_EQ(target.nice(35).front(), "[进程优先级] 当前:0 目标:20 -> [成功]");
  EXPECT_EQ(target.nice(-40).front(), "[进程优先级] 当前:20 目标:-20 -> [成功]");
  EXPECT_EQ(target.nice("-35"), Lines{"[进程优先级] 目标已是 -20"});
}

TEST(NiceStage, MinusOneIsAValueLikeAnyOther) {
  tests::RunningTarget target;
  target.device.find(100)->nice_value = -1;
  errno = ENOENT;  // left by an earlier call
  EXPECT_EQ(target.nice(5), (Lines{"[进程优先级] 当前:-1 目标:5 -> [成功]", "[内核] ：成功"}));
}

TEST(NiceStage, MinusOneIsAValueDespiteStaleErrno) {
  tests::RunningTarget target;
  target.device.find(100)->nice_value = -1;
  target.device.script(
      {.function = "memorystatus_control", .command = kSetLimits, .result = -1, .error = EPERM});
  EXPECT_EQ(target.nice(5), (Lines{"[进程优先级] 当前:-1 目标:5 -> [成功]", "[内核] ：成功"}));
}

TEST(NiceStage, AnUnreadableValueIsNotSet) {
  tests::RunningTarget target;
  target.device.script({.function = "getpriority", .count = 1, .result = -1, .error = ESRCH});
  EXPECT_EQ(target.nice(5), Lines{"[进程优先级] 读取状态失败 err:3"});
  EXPECT_EQ(target.device.takeTrace({"setpriority"}), Lines{});
}

TEST(NiceStage, AValueThatMayNotBeReadIsNotSet) {
  tests::RunningTarget target;
  target.device.script({.function = "getpriority", .count = 1, .result = -1, .error = EPERM});
  EXPECT_EQ(target.nice(5), Lines{"[进程优先级] 读取状态失败 err:1"});
}

TEST(NiceStage, ARefusalIsLoggedWithItsError) {
  tests::RunningTarget target;
  target.device.script({.function = "setpriority", .result = -1, .error = EACCES});
  EXPECT_EQ(target.nice(-5),
            (Lines{"[进程优先级] 当前:0 目标:-5 -> [失败] err:13", "[内核] ：失败"}));
}

TEST(NiceStage, ReportsAnOverriddenValue) {
  tests::RunningTarget target;
  target.device.find(100)->overriding_nice = 3;
  EXPECT_EQ(target.nice(-5),
            (Lines{"[进程优先级] 当前:0 目标:-5 -> [成功]", "[内核] ：已被系统覆盖 (实际: 3)"}));
}

}  // namespace
}  // namespace vorlatch
