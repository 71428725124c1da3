#include <cerrno>

#include <gtest/gtest.h>

#include "kernel/apply_limits.h"
#include "tests/kernel/running_target.h"

namespace vorlatch {
namespace {

using plist::Dictionary;
using tests::Lines;

constexpr int kSetBand = 2;
constexpr int kSetManaged = 16;

const Lines kReturned{"[内存优先级] 目标:0 -> [恢复默认, 系统接管]", "[内存优先级] 为:0",
                      "[内核] ：系统接管并分配真实优先级为 0"};

TEST(BandStage, AMissingBandGoesBackToTheSystem) {
  tests::RunningTarget target;
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

TEST(BandStage, ValuesReadAsZeroGoBackToTheSystem) {
  tests::RunningTarget target;
  EXPECT_EQ(target.band(0), kReturned);
  EXPECT_EQ(target.band(""), kReturned);
  EXPECT_EQ(target.band("foreground"), kReturned);
}

TEST(BandStage, ARefusedReturnIsJudgedByTheReadBackAlone) {
  tests::RunningTarget target;
  target.device.script(
      {.function = "memorystatus_control", .command = kSetBand, .result = -1, .error = EPERM});
  EXPECT_EQ(target.band(0),
            (Lines{"[内存优先级] 目标:0 -> [恢复默认, 系统接管]", "[内存优先级] 为:180",
                   "[内核] ：系统接管并分配真实优先级为 180"}));
}

TEST(BandStage, MinusOneIsSkippedAndLaterStagesStillRun) {
  tests::RunningTarget target;
  target.device.takeTrace();
  const Lines log = target.apply({{"JetsamPriority", -1}, {"StripManaged", false}});
  EXPECT_EQ(Lines(log.begin() + 3, log.end()),
            (Lines{"[内存优先级] 目标:-1 -> 未设置, 跳过",
                   "[状态剥离] 目标: 恢复系统托管 -> [操作: 成功] [内核]: 1)"}));
  EXPECT_EQ(target.takeCalls()[3], "memorystatus_control(16, 100, 0, {01000000}, 4) = 0");
}

TEST(BandStage, SetsAnAssertionOnAnUnmanagedProcess) {
  tests::RunningTarget target;
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
  tests::RunningTarget target;
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
  tests::RunningTarget target;
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
  tests::RunningTarget target;
  EXPECT_EQ(target.band(999), (Lines{"[系统] 内存优先级:999 -> [内核: 失败]", "[内存优先级] 为:180",
                                     "[内核] ：已被系统覆盖 (设置:999 实际:180)"}));
}

TEST(BandStage, DividesOnlyOnce) {
  tests::RunningTarget target;
  EXPECT_EQ(target.band(9990),
            (Lines{"[环境适配] 目标 9990 -> 实际 999", "[系统] 内存优先级:999 -> [内核: 失败]",
                   "[内存优先级] 为:180", "[内核] ：已被系统覆盖 (设置:999 实际:180)"}));
}

TEST(BandStage, MarkerOfNoBandIsRequestedButJudgedAsNone) {
  tests::RunningTarget target;
  EXPECT_EQ(target.band(-999),
            (Lines{"[系统] 内存优先级:-999 -> [内核: 失败]", "[内存优先级] 为:180",
                   "[内核] ：系统接管并分配真实优先级为 180"}));
}

TEST(BandStage, ANegativeBandIsNeverDivided) {
  tests::RunningTarget target;
  EXPECT_EQ(target.band(-20).front(), "[系统] 内存优先级:-20 -> [内核: 失败]");
}

TEST(BandStage, AFailureOtherThanMinusOneIsNotTriedAgain) {
  tests::RunningTarget target;
  target.device.script({.function = "memorystatus_control", .command = kSetBand, .result = 5});
  EXPECT_EQ(target.band(210).front(), "[系统] 内存优先级:210 -> [内核: 失败]");
}

TEST(BandStage, ABandThatTheSystemOverrodeIsReported) {
  tests::RunningTarget target;
  target.device.find(100)->overriding_band = 40;
  EXPECT_EQ(target.band(100), (Lines{"[系统] 内存优先级:100 -> [内核: 成功]", "[内存优先级] 为:40",
                                     "[内核] ：已被系统覆盖 (设置:100 实际:40)"}));
  EXPECT_EQ(target.status(),
            (Dictionary{{"backboardd", Dictionary{{"pid", 100}, {"n", 0}, {"p", 40}}}}));
}

TEST(BandStage, NewestKernelRefusesUnmanagedAssertion) {
  tests::RunningTarget target;
  target.device.kernel.generation = model::KernelGeneration::Xnu11215To11417;
  EXPECT_EQ(target.band(100),
            (Lines{"[环境适配] 目标 100 -> 实际 10", "[系统] 内存优先级:10 -> [内核: 失败]",
                   "[内存优先级] 为:180", "[内核] ：已被系统覆盖 (设置:10 实际:180)"}));
}

TEST(ManagedStage, AnAbsentKeyMakesNoCallAndNoLine) {
  tests::RunningTarget target;
  target.device.takeTrace();
  EXPECT_EQ(target.apply({{"JetsamPriority", -1}}).size(), 4U);
  EXPECT_EQ(target.device.takeTrace({"memorystatus_control"}).size(), 4U);
}

TEST(ManagedStage, StrippingTakesTheProcessOutAndLocksIt) {
  tests::RunningTarget target;
  EXPECT_EQ(target.strip(true),
            Lines{"[状态剥离] 目标: 剥离系统托管并开启强锁 -> [操作: 成功] [内核]: 0)"});
  const auto state = target.device.jetsam(100);
  EXPECT_FALSE(state.managed);
  EXPECT_FALSE(state.freezable);
  EXPECT_TRUE(state.elevated);
}

TEST(ManagedStage, NotStrippingGivesItBack) {
  tests::RunningTarget target;
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

// The calls of the stage without the three before it (limits and nice value) and the three after
// it, which read the result.
Lines managedCalls(const tests::RunningTarget& target) {
  const Lines calls = target.takeCalls();
  return {calls.begin() + 3, calls.end() - 3};
}

TEST(ManagedStage, AValueThatReadsAsTrueStrips) {
  tests::RunningTarget target;
  for (const plist::Value& value : {plist::Value(1), plist::Value("yes")}) {
    target.strip(false);
    target.device.takeTrace();
    EXPECT_EQ(target.strip(value),
              Lines{"[状态剥离] 目标: 剥离系统托管并开启强锁 -> [操作: 成功] [内核]: 0)"});
    EXPECT_EQ(managedCalls(target),
              (Lines{"memorystatus_control(16, 100, 0, {00000000}, 4) = 0",
                     "memorystatus_control(17, 100, 0, null, 0) = 0",
                     "memorystatus_control(18, 100, 0, {00000000}, 4) = 0",
                     "memorystatus_control(14, 100, 0, null, 0) = 0",
                     "setpriority(6, 100, 1) = -1 errno " + std::to_string(ENOTSUP)}));
  }
}

TEST(ManagedStage, AValueThatReadsAsFalseGivesBack) {
  tests::RunningTarget target;
  for (const plist::Value& value : {plist::Value("0"), plist::Value(plist::Array{1})}) {
    target.strip(true);
    target.device.takeTrace();
    EXPECT_EQ(target.strip(value),
              Lines{"[状态剥离] 目标: 恢复系统托管 -> [操作: 成功] [内核]: 1)"});
    EXPECT_EQ(managedCalls(target), (Lines{"memorystatus_control(16, 100, 0, {01000000}, 4) = 0",
                                           "memorystatus_control(17, 100, 0, null, 0) = 1",
                                           "memorystatus_control(18, 100, 0, {01000000}, 4) = 0",
                                           "memorystatus_control(15, 100, 0, null, 0) = 0"}));
  }
}

TEST(ManagedStage, TheRoleOfAnAppInFrontIsSetWhenStripping) {
  tests::RunningTarget target;
  target.device.launch(
      {.name = "WeChat", .executable_path = "/Applications/WeChat.app/WeChat", .pid = 101});
  applyLimitsForApp("com.tencent.xin", readTargetSettings({{"StripManaged", true}}), 101);
  EXPECT_EQ(target.device.jetsam(101).darwin_role, 1);
  applyLimitsForApp("com.tencent.xin", readTargetSettings({{"StripManaged", false}}), 101);
  EXPECT_EQ(target.device.jetsam(101).darwin_role, 1);
}

TEST(ManagedStage, ReportsAStateThatTheKernelKept) {
  tests::RunningTarget target;
  target.device.kernel.state_argument = model::StateArgument::Flags;
  EXPECT_EQ(target.strip(false), Lines{"[状态剥离] 目标: 恢复系统托管 -> [操作: 成功] [内核]: 0)"});
}

TEST(ManagedStage, StillLocksAfterARefusal) {
  tests::RunningTarget target;
  target.device.script(
      {.function = "memorystatus_control", .command = kSetManaged, .result = -1, .error = EPERM});
  EXPECT_EQ(target.strip(true),
            Lines{"[状态剥离] 目标: 剥离系统托管并开启强锁 -> [操作: 失败] [内核]: 0)"});
  EXPECT_TRUE(target.device.jetsam(100).elevated);
}

}  // namespace
}  // namespace vorlatch
