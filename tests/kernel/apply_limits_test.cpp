#include "kernel/apply_limits.h"

#include <cerrno>

#include <gtest/gtest.h>

#include "platform/memorystatus.h"
#include "tests/support/story.h"

namespace vorlatch {
namespace {

using plist::Dictionary;
using tests::Lines;
using tests::Story;

constexpr int kSetBand = 2;
constexpr int kSetLimits = 7;
constexpr int kGetLimits = 8;
constexpr int kSetManaged = 16;

// A target that runs as pid 100, with settings that leave all stages but one quiet: limits read
// back as the system's 1450, nice value 0 held already, no band set.
struct Target : Story {
  Target() {
    openLog();
    device.launch({.name = "backboardd", .pid = 100});
  }
  // Applies, and gives the log without its last line, which is the same each time.
  Lines apply(const TargetSettings& settings) {
    applyLimitsForApp("backboardd", settings, 100);
    Lines log = takeLog();
    EXPECT_EQ(log.back(), "[守护] backboardd PID:100 完成");
    log.pop_back();
    return log;
  }
  Lines limits(std::int32_t active_mb, std::int32_t inactive_mb) {
    const Lines log = apply(
        {{"MemLimitActive", active_mb}, {"MemLimitInactive", inactive_mb}, {"JetsamPriority", -1}});
    return {log.begin(), log.end() - 2};
  }
  Lines nice(const plist::Value& value) {
    const Lines log = apply({{"NiceValue", value}, {"JetsamPriority", -1}});
    return {log.begin() + 2, log.end() - 1};
  }
  Lines band(const plist::Value& value) {
    const Lines log = apply({{"JetsamPriority", value}});
    return {log.begin() + 3, log.end()};
  }
  Lines strip(const plist::Value& value) {
    const Lines log = apply({{"StripManaged", value}, {"JetsamPriority", -1}});
    return {log.begin() + 4, log.end()};
  }
  void readBackLimits(std::int32_t active_mb, std::int32_t inactive_mb) const {
    const platform::memorystatus_memlimit_properties limits{.memlimit_active = active_mb,
                                                            .memlimit_active_attr = 0,
                                                            .memlimit_inactive = inactive_mb,
                                                            .memlimit_inactive_attr = 0};
    device.script({.function = "memorystatus_control",
                   .command = kGetLimits,
                   .result = 0,
                   .buffer = std::string(reinterpret_cast<const char*>(&limits), sizeof(limits))});
  }
};

const Lines kQuietLimits{"[内存限制] 目标 Act:0 Inact:0 | 最终 Act:1450 Inact:1450 -> [成功]",
                         "[内核] ：成功"};

TEST(ApplyLimits, PidZeroDoesNothing) {
  Target target;
  applyLimitsForApp("backboardd", {{"NiceValue", -5}}, 0);
  EXPECT_EQ(target.takeLog(), Lines{});
  EXPECT_EQ(target.device.takeTrace(), Lines{});
  EXPECT_EQ(tests::modeOf(target.statusFile()), 0U);
}

TEST(ApplyLimits, RunsEveryStageInOrderAndRecordsTheOutcome) {
  Target target;
  target.device.takeTrace();
  applyLimitsForApp("backboardd",
                    {{"MemLimitActive", 300},
                     {"MemLimitInactive", "200"},
                     {"NiceValue", -5},
                     {"JetsamPriority", 100},
                     {"StripManaged", true}},
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

TEST(ApplyLimits, AnExitedProcessFailsInEachStageAndIsRecordedAllTheSame) {
  Target target;
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

TEST(MemoryLimitStage, BothZeroStillAsksTheKernelAndHoldsWithItsPositiveDefaults) {
  Target target;
  target.device.takeTrace();
  EXPECT_EQ(target.limits(0, 0), kQuietLimits);
  EXPECT_EQ(target.takeCalls().front(),
            "memorystatus_control(7, 100, 0, {00000000 00000000 00000000 00000000}, 16) = 0");
}

TEST(MemoryLimitStage, OnlyAPositiveLimitIsFatal) {
  Target target;
  target.device.takeTrace();
  target.limits(1, -1);
  EXPECT_EQ(target.takeCalls().front(),
            "memorystatus_control(7, 100, 0, {01000000 01000000 ffffffff 00000000}, 16) = 0");
}

TEST(MemoryLimitStage, ZeroReadBackAsZeroHolds) {
  Target target;
  target.readBackLimits(300, 0);
  EXPECT_EQ(
      target.limits(300, 0),
      (Lines{"[内存限制] 目标 Act:300 Inact:0 | 最终 Act:300 Inact:0 -> [成功]", "[内核] ：成功"}));
}

TEST(MemoryLimitStage, ZeroReadBackAsMinusOneIsOverridden) {
  Target target;
  target.readBackLimits(300, -1);
  EXPECT_EQ(target.limits(300, 0),
            (Lines{"[内存限制] 目标 Act:300 Inact:0 | 最终 Act:300 Inact:-1 -> [成功]",
                   "[内核] ：已被系统覆盖"}));
}

TEST(MemoryLimitStage, MinusOneReadBackAsZeroIsOverridden) {
  Target target;
  target.readBackLimits(0, 50);
  EXPECT_EQ(target.limits(-1, 50).back(), "[内核] ：已被系统覆盖");
}

TEST(MemoryLimitStage, MinusOneHoldsAsItselfAndAsAPositiveDefault) {
  Target target;
  target.readBackLimits(-1, 1);
  EXPECT_EQ(target.limits(-1, -1).back(), "[内核] ：成功");
}

TEST(MemoryLimitStage, AnotherValueReadBackIsOverridden) {
  Target target;
  target.readBackLimits(299, 200);
  EXPECT_EQ(target.limits(300, 200),
            (Lines{"[内存限制] 目标 Act:300 Inact:200 | 最终 Act:299 Inact:200 -> [成功]",
                   "[内核] ：已被系统覆盖"}));
}

TEST(MemoryLimitStage, ALimitBelowMinusOneIsNoRequestForTheDefault) {
  Target target;
  target.readBackLimits(1450, 1450);
  EXPECT_EQ(target.limits(-2, 0).back(), "[内核] ：已被系统覆盖");
}

TEST(MemoryLimitStage, ARefusalIsLoggedWithItsErrorAndNotReadBack) {
  Target target;
  target.device.takeTrace();
  target.device.script(
      {.function = "memorystatus_control", .command = kSetLimits, .result = -1, .error = EPERM});
  EXPECT_EQ(target.limits(300, 200),
            (Lines{"[内存限制] 目标 Act:300 Inact:200 -> [失败] err:1", "[内核] ：失败"}));
  EXPECT_EQ(target.takeCalls()[1], "getpriority(0, 100) = 0");
}

TEST(MemoryLimitStage, ARefusalWithoutAnErrorShowsNone) {
  Target target;
  errno = ENOENT;  // left by an earlier call
  target.device.script({.function = "memorystatus_control", .command = kSetLimits, .result = 1});
  EXPECT_EQ(target.limits(300, 200).front(), "[内存限制] 目标 Act:300 Inact:200 -> [失败] err:0");
}

TEST(MemoryLimitStage, AFailedReadBackReadsAsZeros) {
  Target target;
  target.device.script(
      {.function = "memorystatus_control", .command = kGetLimits, .result = -1, .error = EPERM});
  EXPECT_EQ(
      target.limits(0, 0),
      (Lines{"[内存限制] 目标 Act:0 Inact:0 | 最终 Act:0 Inact:0 -> [成功]", "[内核] ：成功"}));
  EXPECT_EQ(target.limits(300, 0).back(), "[内核] ：已被系统覆盖");
}

TEST(NiceStage, AMissingValueIsHeldAtZero) {
  Target target;
  target.device.find(100)->nice_value = -5;
  const Lines log = target.apply({{"JetsamPriority", -1}});
  EXPECT_EQ(log[2], "[进程优先级] 当前:-5 目标:0 -> [成功]");
  EXPECT_EQ(target.device.find(100)->nice_value, 0);
}

TEST(NiceStage, AnEmptyStringIsHeldAtZero) {
  Target target;
  target.device.find(100)->nice_value = -5;
  EXPECT_EQ(target.nice(""), (Lines{"[进程优先级] 当前:-5 目标:0 -> [成功]", "[内核] ：成功"}));
}

TEST(NiceStage, AValueAlreadyHeldIsNotSetAgain) {
  Target target;
  target.device.find(100)->nice_value = 7;
  EXPECT_EQ(target.nice(7), Lines{"[进程优先级] 目标已是 7"});
  EXPECT_EQ(target.device.takeTrace({"setpriority"}), Lines{});
}

TEST(NiceStage, ValuesOutOfRangeAreClamped) {
  Target target;
  EXPECT_EQ(target.nice(35).front(), "[进程优先级] 当前:0 目标:20 -> [成功]");
  EXPECT_EQ(target.nice(-40).front(), "[进程优先级] 当前:20 目标:-20 -> [成功]");
  EXPECT_EQ(target.nice("-35"), Lines{"[进程优先级] 目标已是 -20"});
}

TEST(NiceStage, MinusOneIsAValueLikeAnyOther) {
  Target target;
  target.device.find(100)->nice_value = -1;
  errno = ENOENT;  // left by an earlier call
  EXPECT_EQ(target.nice(5), (Lines{"[进程优先级] 当前:-1 目标:5 -> [成功]", "[内核] ：成功"}));
}

TEST(NiceStage, AnUnreadableValueIsNotSet) {
  Target target;
  target.device.script({.function = "getpriority", .count = 1, .result = -1, .error = ESRCH});
  EXPECT_EQ(target.nice(5), Lines{"[进程优先级] 读取状态失败 err:3"});
  EXPECT_EQ(target.device.takeTrace({"setpriority"}), Lines{});
}

TEST(NiceStage, ARefusalIsLoggedWithItsError) {
  Target target;
  target.device.script({.function = "setpriority", .result = -1, .error = EACCES});
  EXPECT_EQ(target.nice(-5),
            (Lines{"[进程优先级] 当前:0 目标:-5 -> [失败] err:13", "[内核] ：失败"}));
}

TEST(NiceStage, AValueThatTheSystemOverrodeIsReportedWithWhatItIs) {
  Target target;
  target.device.find(100)->overriding_nice = 3;
  EXPECT_EQ(target.nice(-5),
            (Lines{"[进程优先级] 当前:0 目标:-5 -> [成功]", "[内核] ：已被系统覆盖 (实际: 3)"}));
}

const Lines kReturned{"[内存优先级] 目标:0 -> [恢复默认, 系统接管]", "[内存优先级] 为:0",
                      "[内核] ：系统接管并分配真实优先级为 0"};

TEST(BandStage, AMissingBandGoesBackToTheSystem) {
  Target target;
  target.device.takeTrace();
  const Lines log = target.apply({});
  EXPECT_EQ(Lines(log.begin() + 3, log.end()), kReturned);
  const Lines calls = target.takeCalls();
  EXPECT_EQ(Lines(calls.begin() + 3, calls.begin() + 7),
            (Lines{"memorystatus_control(16, 100, 0, {01000000}, 4) = 0",
                   "memorystatus_control(2, 100, 0, {00000000 00000000 00000000 00000000}, 16) = 0",
                   "memorystatus_control(1, 0, 0, null, 0) = 48",
                   "memorystatus_control(1, 0, 0, buffer, 288) = 48"}));
}

TEST(BandStage, ZeroAndEverythingThatReadsAsZeroGoBackToTheSystem) {
  Target target;
  EXPECT_EQ(target.band(0), kReturned);
  EXPECT_EQ(target.band(""), kReturned);
  EXPECT_EQ(target.band("foreground"), kReturned);
}

TEST(BandStage, ARefusedReturnIsJudgedByTheReadBackAlone) {
  Target target;
  target.device.script(
      {.function = "memorystatus_control", .command = kSetBand, .result = -1, .error = EPERM});
  EXPECT_EQ(target.band(0),
            (Lines{"[内存优先级] 目标:0 -> [恢复默认, 系统接管]", "[内存优先级] 为:180",
                   "[内核] ：系统接管并分配真实优先级为 180"}));
}

TEST(BandStage, MinusOneIsSkippedAndLaterStagesStillRun) {
  Target target;
  target.device.takeTrace();
  const Lines log = target.apply({{"JetsamPriority", -1}, {"StripManaged", false}});
  EXPECT_EQ(Lines(log.begin() + 3, log.end()),
            (Lines{"[内存优先级] 目标:-1 -> 未设置, 跳过",
                   "[状态剥离] 目标: 恢复系统托管 -> [操作: 成功] [内核]: 1)"}));
  EXPECT_EQ(target.takeCalls()[3], "memorystatus_control(16, 100, 0, {01000000}, 4) = 0");
}

TEST(BandStage, ABandIsSetAsAnAssertionOnAnUnmanagedProcess) {
  Target target;
  target.device.takeTrace();
  EXPECT_EQ(target.band(210), (Lines{"[系统] 内存优先级:210 -> [内核: 成功]", "[内存优先级] 为:210",
                                     "[内核] ：成功"}));
  const Lines calls = target.takeCalls();
  EXPECT_EQ(
      Lines(calls.begin() + 3, calls.begin() + 5),
      (Lines{"memorystatus_control(16, 100, 0, {00000000}, 4) = 0",
             "memorystatus_control(2, 100, 1, {d2000000 00000000 00000000 00000000}, 16) = 0"}));
}

TEST(BandStage, ARefusedBandIsTriedAgainDividedByTen) {
  Target target;
  target.device.kernel.generation = model::KernelGeneration::Xnu4903To8020;
  target.device.takeTrace();
  EXPECT_EQ(target.band(210),
            (Lines{"[环境适配] 目标 210 -> 实际 21", "[系统] 内存优先级:21 -> [内核: 成功]",
                   "[内存优先级] 为:21", "[内核] ：成功"}));
  const Lines calls = target.takeCalls();
  EXPECT_EQ(
      Lines(calls.begin() + 4, calls.begin() + 6),
      (Lines{"memorystatus_control(2, 100, 1, {d2000000 00000000 00000000 00000000}, 16)"
             " = -1 errno 22",
             "memorystatus_control(2, 100, 1, {15000000 00000000 00000000 00000000}, 16) = 0"}));
}

TEST(BandStage, TheDivisionTruncates) {
  Target target;
  target.device.script(
      {.function = "memorystatus_control", .command = kSetBand, .result = -1, .error = EINVAL});
  EXPECT_EQ(target.band(15),
            (Lines{"[环境适配] 目标 15 -> 实际 1", "[系统] 内存优先级:1 -> [内核: 失败]",
                   "[内存优先级] 为:180", "[内核] ：已被系统覆盖 (设置:1 实际:180)"}));
  EXPECT_EQ(target.band(1).front(), "[环境适配] 目标 1 -> 实际 0");
  EXPECT_EQ(target.band(998).front(), "[环境适配] 目标 998 -> 实际 99");
  EXPECT_EQ(target.band(1000).front(), "[环境适配] 目标 1000 -> 实际 100");
}

TEST(BandStage, NineHundredNinetyNineIsNeverDivided) {
  Target target;
  EXPECT_EQ(target.band(999), (Lines{"[系统] 内存优先级:999 -> [内核: 失败]", "[内存优先级] 为:180",
                                     "[内核] ：已被系统覆盖 (设置:999 实际:180)"}));
}

TEST(BandStage, ANegativeBandIsNeverDivided) {
  Target target;
  EXPECT_EQ(target.band(-20).front(), "[系统] 内存优先级:-20 -> [内核: 失败]");
}

TEST(BandStage, AFailureOtherThanMinusOneIsNotTriedAgain) {
  Target target;
  target.device.script({.function = "memorystatus_control", .command = kSetBand, .result = 5});
  EXPECT_EQ(target.band(210).front(), "[系统] 内存优先级:210 -> [内核: 失败]");
}

TEST(BandStage, ABandThatTheSystemOverrodeIsReported) {
  Target target;
  target.device.find(100)->overriding_band = 40;
  EXPECT_EQ(target.band(100), (Lines{"[系统] 内存优先级:100 -> [内核: 成功]", "[内存优先级] 为:40",
                                     "[内核] ：已被系统覆盖 (设置:100 实际:40)"}));
  EXPECT_EQ(target.status(),
            (Dictionary{{"backboardd", Dictionary{{"pid", 100}, {"n", 0}, {"p", 40}}}}));
}

TEST(BandStage, OnTheNewestKernelAnAssertionOnAnUnmanagedProcessIsRefused) {
  Target target;
  target.device.kernel.generation = model::KernelGeneration::Xnu11215To11417;
  EXPECT_EQ(target.band(100),
            (Lines{"[环境适配] 目标 100 -> 实际 10", "[系统] 内存优先级:10 -> [内核: 失败]",
                   "[内存优先级] 为:180", "[内核] ：已被系统覆盖 (设置:10 实际:180)"}));
}

TEST(ManagedStage, AnAbsentKeyMakesNoCallAndNoLine) {
  Target target;
  target.device.takeTrace();
  EXPECT_EQ(target.apply({{"JetsamPriority", -1}}).size(), 4U);
  EXPECT_EQ(target.device.takeTrace({"memorystatus_control"}).size(), 4U);
}

TEST(ManagedStage, StrippingTakesTheProcessOutAndLocksIt) {
  Target target;
  EXPECT_EQ(target.strip(true),
            Lines{"[状态剥离] 目标: 剥离系统托管并开启强锁 -> [操作: 成功] [内核]: 0)"});
  const auto state = target.device.jetsam(100);
  EXPECT_FALSE(state.managed);
  EXPECT_FALSE(state.freezable);
  EXPECT_TRUE(state.elevated);
}

TEST(ManagedStage, NotStrippingGivesItBack) {
  Target target;
  target.strip(true);
  target.device.takeTrace();
  EXPECT_EQ(target.strip(false), Lines{"[状态剥离] 目标: 恢复系统托管 -> [操作: 成功] [内核]: 1)"});
  const Lines calls = target.takeCalls();
  EXPECT_EQ(Lines(calls.begin() + 3, calls.begin() + 8),
            (Lines{"memorystatus_control(16, 100, 0, {01000000}, 4) = 0",
                   "memorystatus_control(17, 100, 0, null, 0) = 1",
                   "memorystatus_control(18, 100, 0, {01000000}, 4) = 0",
                   "memorystatus_control(15, 100, 0, null, 0) = 0", "getpriority(0, 100) = 0"}));
  const auto state = target.device.jetsam(100);
  EXPECT_TRUE(state.managed);
  EXPECT_TRUE(state.freezable);
  EXPECT_FALSE(state.elevated);
}

TEST(ManagedStage, TheRoleOfAnAppInFrontIsSetWhenStripping) {
  Target target;
  target.device.launch(
      {.name = "WeChat", .executable_path = "/Applications/WeChat.app/WeChat", .pid = 101});
  applyLimitsForApp("com.tencent.xin", {{"StripManaged", true}}, 101);
  EXPECT_EQ(target.device.jetsam(101).darwin_role, 1);
  applyLimitsForApp("com.tencent.xin", {{"StripManaged", false}}, 101);
  EXPECT_EQ(target.device.jetsam(101).darwin_role, 1);
}

TEST(ManagedStage, WhereTheKernelReadsTheFlagsTheStateStaysAndIsReportedAsItIs) {
  Target target;
  target.device.kernel.state_argument = model::StateArgument::Flags;
  EXPECT_EQ(target.strip(false), Lines{"[状态剥离] 目标: 恢复系统托管 -> [操作: 成功] [内核]: 0)"});
}

TEST(ManagedStage, ARefusalIsReportedAndTheLockIsTriedAllTheSame) {
  Target target;
  target.device.script(
      {.function = "memorystatus_control", .command = kSetManaged, .result = -1, .error = EPERM});
  EXPECT_EQ(target.strip(true),
            Lines{"[状态剥离] 目标: 剥离系统托管并开启强锁 -> [操作: 失败] [内核]: 0)"});
  EXPECT_TRUE(target.device.jetsam(100).elevated);
}

}  // namespace
}  // namespace vorlatch
