#include "kernel/apply_limits.h"

#include <cerrno>
#include <functional>

#include <gtest/gtest.h>

#include "platform/memorystatus.h"
#include "tests/support/story.h"

namespace vorlatch {
namespace {

using plist::Dictionary;
using plist::Value;
using simulated::Device;
using tests::Lines;

constexpr int kSetBand = 2;
constexpr int kSetLimits = 7;
constexpr int kGetLimits = 8;
constexpr int kSetManaged = 16;

using Given = std::function<void(Device&)>;

Given answers(int command, int result, int error = 0) {
  return [=](Device& device) {
    device.script(
        {.function = "memorystatus_control", .command = command, .result = result, .error = error});
  };
}

Given limitsReadBack(std::int32_t active_mb, std::int32_t inactive_mb) {
  return [=](Device& device) {
    const platform::memorystatus_memlimit_properties limits{active_mb, 0, inactive_mb, 0};
    device.script({.function = "memorystatus_control",
                   .command = kGetLimits,
                   .result = 0,
                   .buffer = std::string(reinterpret_cast<const char*>(&limits), sizeof(limits))});
  };
}

// Gives the process this nice value. With `overriding`, the system replaces every value set later.
Given niceIs(std::int32_t value, std::optional<std::int32_t> overriding = {}) {
  return [=](Device& device) {
    device.find(100)->nice_value = value;
    device.find(100)->overriding_nice = overriding;
  };
}

Given niceCallGives(const char* function, int error) {
  return [=](Device& device) {
    device.script({.function = function, .count = 1, .result = -1, .error = error});
  };
}

// The target "backboardd", which runs as pid 100.
struct Target : tests::Story {
  Target() { openLog(); }
  // Applies the settings to a new process. Returns the log without its last line, which is always
  // the same.
  Lines apply(const Dictionary& settings, const Given& given = {}) {
    device.exit(100);
    device.launch({.name = "backboardd", .pid = 100});
    device.clearScripts();
    if (given) given(device);
    device.takeTrace();
    applyLimitsForApp("backboardd", readTargetSettings(settings), 100);
    Lines log = takeLog();
    EXPECT_EQ(log.back(), "[守护] backboardd PID:100 完成");
    log.pop_back();
    return log;
  }
  // Return only the lines of one stage. Settings that are not given make the others log a known
  // number of lines.
  Lines limits(std::int32_t active_mb, std::int32_t inactive_mb, const Given& given) {
    const Lines log = apply(
        {{"MemLimitActive", active_mb}, {"MemLimitInactive", inactive_mb}, {"JetsamPriority", -1}},
        given);
    return {log.begin(), log.end() - 2};
  }
  Lines nice(const Value& value, const Given& given) {
    const Lines log = apply({{"NiceValue", value}, {"JetsamPriority", -1}}, given);
    return {log.begin() + 2, log.end() - 1};
  }
  Lines band(const Value& value, const Given& given = {}) {
    const Lines log = apply({{"JetsamPriority", value}}, given);
    return {log.begin() + 3, log.end()};
  }
  Lines strip(const Value& value, const Given& given = {}) {
    const Lines log = apply({{"StripManaged", value}, {"JetsamPriority", -1}}, given);
    return {log.begin() + 4, log.end()};
  }
  // Returns `count` kernel calls of the last apply(), from number `first` on.
  [[nodiscard]] Lines calls(std::ptrdiff_t first, std::ptrdiff_t count) const {
    const Lines all = takeCalls();
    return {all.begin() + first, all.begin() + first + count};
  }
};

TEST(ApplyLimits, PidZeroDoesNothing) {
  Target target;
  applyLimitsForApp("backboardd", readTargetSettings({{"NiceValue", -5}}), 0);
  EXPECT_EQ(target.takeLog(), Lines{});
  EXPECT_EQ(target.device.takeTrace(), Lines{});
  EXPECT_EQ(tests::modeOf(target.statusFile()), 0U);
}

TEST(ApplyLimits, RunsEveryStageAndRecordsTheOutcome) {
  Target target;
  EXPECT_EQ(target.apply({{"MemLimitActive", 300},
                          {"MemLimitInactive", "200"},
                          {"NiceValue", -5},
                          {"JetsamPriority", 100},
                          {"StripManaged", true}}),
            (Lines{"[内存限制] 目标 Act:300 Inact:200 | 最终 Act:300 Inact:200 -> [成功]",
                   "[内核] ：成功", "[进程优先级] 当前:0 目标:-5 -> [成功]", "[内核] ：成功",
                   "[系统] 内存优先级:100 -> [内核: 成功]", "[内存优先级] 为:100", "[内核] ：成功",
                   "[状态剥离] 目标: 剥离系统托管并开启强锁 -> [操作: 成功] [内核]: 0)"}));
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
  Target target;
  EXPECT_EQ(target.apply({{"MemLimitActive", 300}, {"JetsamPriority", 100}, {"StripManaged", true}},
                         [](Device& device) { device.exit(100); }),
            (Lines{"[内存限制] 目标 Act:300 Inact:0 -> [失败] err:3", "[内核] ：失败",
                   "[进程优先级] 读取状态失败 err:3", "[环境适配] 目标 100 -> 实际 10",
                   "[系统] 内存优先级:10 -> [内核: 失败]",
                   "[内存优先级] 未在内核优先级列表中找到 PID:100", "[内核] ：失败",
                   "[状态剥离] 目标: 剥离系统托管并开启强锁 -> [操作: 失败] [内核]: -1)"}));
  EXPECT_EQ(target.status(),
            (Dictionary{{"backboardd", Dictionary{{"pid", 100}, {"n", -1}, {"p", -999}}}}));
}

TEST(MemoryLimitStage, JudgesWhatIsReadBack) {
  struct Case {
    std::int32_t active_mb;
    std::int32_t inactive_mb;
    Given given;
    const char* read_back;
    bool holds;
  };
  const Case cases[] = {
      {0, 0, {}, "Act:1450 Inact:1450", true},  // the system's default
      {300, 0, limitsReadBack(300, 0), "Act:300 Inact:0", true},
      {300, 0, limitsReadBack(300, -1), "Act:300 Inact:-1", false},
      {-1, 50, limitsReadBack(0, 50), "Act:0 Inact:50", false},
      {-1, -1, limitsReadBack(-1, 1), "Act:-1 Inact:1", true},
      {300, 200, limitsReadBack(299, 200), "Act:299 Inact:200", false},
      {-2, 0, limitsReadBack(1450, 1450), "Act:1450 Inact:1450", false},  // -2 is no default
      // A failed call reads as zeros.
      {0, 0, answers(kGetLimits, -1, EPERM), "Act:0 Inact:0", true},
      {300, 0, answers(kGetLimits, -1, EPERM), "Act:0 Inact:0", false},
  };
  Target target;
  for (const Case& c : cases) {
    const std::string wanted =
        "Act:" + std::to_string(c.active_mb) + " Inact:" + std::to_string(c.inactive_mb);
    EXPECT_EQ(target.limits(c.active_mb, c.inactive_mb, c.given),
              (Lines{"[内存限制] 目标 " + wanted + " | 最终 " + c.read_back + " -> [成功]",
                     c.holds ? "[内核] ：成功" : "[内核] ：已被系统覆盖"}));
  }
}

TEST(MemoryLimitStage, OnlyAPositiveLimitIsFatal) {
  Target target;
  target.limits(1, -1, {});
  EXPECT_EQ(target.takeCalls().front(),
            "memorystatus_control(7, 100, 0, {01000000 01000000 ffffffff 00000000}, 16) = 0");
  target.limits(0, 0, {});
  EXPECT_EQ(target.takeCalls().front(),
            "memorystatus_control(7, 100, 0, {00000000 00000000 00000000 00000000}, 16) = 0");
}

TEST(MemoryLimitStage, RefusalIsLoggedAndNotReadBack) {
  Target target;
  const auto refused = [](int error) {
    return Lines{"[内存限制] 目标 Act:300 Inact:200 -> [失败] err:" + std::to_string(error),
                 "[内核] ：失败"};
  };
  EXPECT_EQ(target.limits(300, 200, answers(kSetLimits, -1, EPERM)), refused(EPERM));
  EXPECT_EQ(target.takeCalls()[1], "getpriority(0, 100) = 0");
  EXPECT_EQ(target.limits(300, 200,
                          [](Device& device) {
                            answers(kSetLimits, 1)(device);
                            errno = ENOENT;  // left by an earlier call
                          }),
            refused(0));
}

TEST(NiceStage, SetsJudgesAndReports) {
  const auto after = [](const std::string& line) { return Lines{"[进程优先级] " + line}; };
  const Lines held{"[内核] ：成功"};
  struct Case {
    Value value;
    Given given;
    Lines log;
  };
  const Case cases[] = {
      {"", niceIs(-5), after("当前:-5 目标:0 -> [成功]") + held},
      {7, niceIs(7), after("目标已是 7")},
      {35, niceIs(0), after("当前:0 目标:20 -> [成功]") + held},
      {-40, niceIs(20), after("当前:20 目标:-20 -> [成功]") + held},
      {"-35", niceIs(-20), after("目标已是 -20")},
      // A nice value of -1 is no error, even if an earlier call set errno.
      {5, niceIs(-1), after("当前:-1 目标:5 -> [成功]") + held},
      {5, niceCallGives("getpriority", ESRCH), after("读取状态失败 err:3")},
      {5, niceCallGives("getpriority", EPERM), after("读取状态失败 err:1")},
      {-5, niceCallGives("setpriority", EACCES),
       after("当前:0 目标:-5 -> [失败] err:13") + Lines{"[内核] ：失败"}},
      {-5, niceIs(0, 3),
       after("当前:0 目标:-5 -> [成功]") + Lines{"[内核] ：已被系统覆盖 (实际: 3)"}},
  };
  Target target;
  for (const Case& c : cases) {
    EXPECT_EQ(target.nice(c.value, c.given), c.log);
    // A log of one line says that the value is right or unreadable; then nothing is set.
    EXPECT_EQ(target.device.takeTrace({"setpriority"}).empty(), c.log.size() == 1);
    EXPECT_EQ(target.nice(c.value,
                          [&](Device& device) {
                            c.given(device);
                            answers(kSetLimits, -1, EPERM)(device);
                          }),
              c.log);
  }
}

TEST(NiceStage, AMissingValueIsHeldAtZero) {
  Target target;
  EXPECT_EQ(target.apply({{"JetsamPriority", -1}}, niceIs(-5))[2],
            "[进程优先级] 当前:-5 目标:0 -> [成功]");
  EXPECT_EQ(target.device.find(100)->nice_value, 0);
}

// The log of a band that the kernel refused.
Lines refused(std::int32_t band) {
  const std::string number = std::to_string(band);
  return {"[系统] 内存优先级:" + number + " -> [内核: 失败]", "[内存优先级] 为:180",
          "[内核] ：已被系统覆盖 (设置:" + number + " 实际:180)"};
}

Lines adapted(std::int32_t band, std::int32_t to) {
  return Lines{"[环境适配] 目标 " + std::to_string(band) + " -> 实际 " + std::to_string(to)};
}

Lines returned(const std::string& actual) {
  return {"[内存优先级] 目标:0 -> [恢复默认, 系统接管]", "[内存优先级] 为:" + actual,
          "[内核] ：系统接管并分配真实优先级为 " + actual};
}

TEST(BandStage, ABandThatReadsAsZeroGoesBackToTheSystem) {
  Target target;
  const Lines log = target.apply({});
  EXPECT_EQ(Lines(log.begin() + 3, log.end()), returned("0"));
  EXPECT_EQ(target.calls(3, 4),
            (Lines{"memorystatus_control(16, 100, 0, {01000000}, 4) = 0",
                   "memorystatus_control(2, 100, 0, {00000000 00000000 00000000 00000000}, 16) = 0",
                   "memorystatus_control(1, 0, 0, null, 0) = 48",
                   "memorystatus_control(1, 0, 0, buffer, 288) = 48"}));
  for (const Value& value : {Value(0), Value(""), Value("foreground")}) {
    EXPECT_EQ(target.band(value), returned("0"));
  }
  EXPECT_EQ(target.band(0, answers(kSetBand, -1, EPERM)), returned("180"));
}

TEST(BandStage, MinusOneIsSkippedAndLaterStagesStillRun) {
  Target target;
  const Lines log = target.apply({{"JetsamPriority", -1}, {"StripManaged", false}});
  EXPECT_EQ(Lines(log.begin() + 3, log.end()),
            (Lines{"[内存优先级] 目标:-1 -> 未设置, 跳过",
                   "[状态剥离] 目标: 恢复系统托管 -> [操作: 成功] [内核]: 1)"}));
  EXPECT_EQ(target.calls(3, 1), Lines{"memorystatus_control(16, 100, 0, {01000000}, 4) = 0"});
}

TEST(BandStage, ARefusedBandIsTriedOnceMoreDividedByTen) {
  Target target;
  struct Case {
    std::int32_t band;
    Lines log;
  };
  const Case cases[] = {{15, adapted(15, 1) + refused(1)},
                        {1, adapted(1, 0) + refused(0)},
                        {998, adapted(998, 99) + refused(99)},
                        {999, refused(999)},  // never divided
                        {1000, adapted(1000, 100) + refused(100)},
                        {9990, adapted(9990, 999) + refused(999)},
                        {-20, refused(-20)},
                        {-999, {refused(-999)[0], returned("180")[1], returned("180")[2]}}};
  for (const Case& c : cases) {
    EXPECT_EQ(target.band(c.band, answers(kSetBand, -1, EINVAL)), c.log);
  }
  // Only after the result -1 is the band divided by ten.
  EXPECT_EQ(target.band(210, answers(kSetBand, 5)), refused(210));
  // The newest kernel refuses to set the band of an unmanaged process.
  target.device.kernel.generation = model::KernelGeneration::Xnu11215To11417;
  EXPECT_EQ(target.band(100), adapted(100, 10) + refused(10));
  target.device.kernel.generation = model::KernelGeneration::Xnu4903To8020;
  EXPECT_EQ(target.band(210), (adapted(210, 21) + Lines{"[系统] 内存优先级:21 -> [内核: 成功]",
                                                        "[内存优先级] 为:21", "[内核] ：成功"}));
  EXPECT_EQ(target.calls(4, 2),
            (Lines{"memorystatus_control(2, 100, 1, {d2000000 00000000 00000000 00000000}, 16)"
                   " = -1 errno 22",
                   "memorystatus_control(2, 100, 1, {15000000 00000000 00000000 00000000}, 16)"
                   " = 0"}));
}

TEST(BandStage, ABandThatTheSystemOverrodeIsReported) {
  Target target;
  EXPECT_EQ(target.band(100, [](Device& device) { device.find(100)->overriding_band = 40; }),
            (Lines{"[系统] 内存优先级:100 -> [内核: 成功]", "[内存优先级] 为:40",
                   "[内核] ：已被系统覆盖 (设置:100 实际:40)"}));
  EXPECT_EQ(target.status(),
            (Dictionary{{"backboardd", Dictionary{{"pid", 100}, {"n", 0}, {"p", 40}}}}));
}

TEST(ManagedStage, AnAbsentKeyMakesNoCallAndNoLine) {
  Target target;
  EXPECT_EQ(target.apply({{"JetsamPriority", -1}}).size(), 4U);
  EXPECT_EQ(target.device.takeTrace({"memorystatus_control"}).size(), 4U);
}

// The calls when stripping are in ApplyLimits.RunsEveryStageAndRecordsTheOutcome.
TEST(ManagedStage, StripsOrGivesBackByTheTruthValue) {
  Target target;
  for (const Value& value : {Value(true), Value(1), Value("yes")}) {
    EXPECT_EQ(target.strip(value,
                           [](Device& device) {
                             device.jetsam_table.records[100] = device.jetsam(100);
                             device.jetsam_table.records[100].managed = true;
                             device.jetsam_table.records[100].freezable = true;
                           }),
              Lines{"[状态剥离] 目标: 剥离系统托管并开启强锁 -> [操作: 成功] [内核]: 0)"});
    const auto state = target.device.jetsam(100);
    EXPECT_FALSE(state.managed || state.freezable);
    EXPECT_TRUE(state.elevated);
  }
  for (const Value& value : {Value(false), Value("0"), Value(plist::Array{1})}) {
    EXPECT_EQ(target.strip(value,
                           [](Device& device) {
                             device.jetsam_table.records[100] = device.jetsam(100);
                             device.jetsam_table.records[100].elevated = true;
                           }),
              Lines{"[状态剥离] 目标: 恢复系统托管 -> [操作: 成功] [内核]: 1)"});
    EXPECT_EQ(target.calls(3, 5),
              (Lines{"memorystatus_control(16, 100, 0, {01000000}, 4) = 0",
                     "memorystatus_control(17, 100, 0, null, 0) = 1",
                     "memorystatus_control(18, 100, 0, {01000000}, 4) = 0",
                     "memorystatus_control(15, 100, 0, null, 0) = 0", "getpriority(0, 100) = 0"}));
    const auto state = target.device.jetsam(100);
    EXPECT_TRUE(state.managed && state.freezable);
    EXPECT_FALSE(state.elevated);
  }
}

TEST(ManagedStage, TheRoleOfAnAppInFrontIsSetWhenStripping) {
  Target target;
  target.device.launch(
      {.name = "WeChat", .executable_path = "/Applications/WeChat.app/WeChat", .pid = 101});
  for (const bool strips : {true, false}) {
    applyLimitsForApp("com.tencent.xin", readTargetSettings({{"StripManaged", strips}}), 101);
    EXPECT_EQ(target.device.jetsam(101).darwin_role, 1);
  }
}

TEST(ManagedStage, ReportsARefusalAndAStateThatTheKernelKept) {
  Target target;
  EXPECT_EQ(target.strip(true, answers(kSetManaged, -1, EPERM)),
            Lines{"[状态剥离] 目标: 剥离系统托管并开启强锁 -> [操作: 失败] [内核]: 0)"});
  EXPECT_TRUE(target.device.jetsam(100).elevated);
  target.device.kernel.state_argument = model::StateArgument::Flags;
  EXPECT_EQ(target.strip(false), Lines{"[状态剥离] 目标: 恢复系统托管 -> [操作: 成功] [内核]: 0)"});
}

}  // namespace
}  // namespace vorlatch
