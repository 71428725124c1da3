// vorlatchctl log --target: the lines of one target, also where the daemon's queues write at once.
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tests/cli/held_story.h"
#include "tests/cli/log_story.h"

namespace vorlatch::tests {
namespace {

// What is logged of a target's apply, the first lines given.
std::string applied(const Lines& lines, const std::string& name, const std::string& pid,
                    const std::string& stamp = kStamp) {
  return stamped(lines + Lines{"[内存限制] 目标 Act:0 Inact:0 | 最终 Act:1450 Inact:1450 -> [成功]",
                               "[内核] ：成功", "[进程优先级] 目标已是 0",
                               "[内存优先级] 目标:-1 -> 未设置, 跳过",
                               "[守护] " + name + " PID:" + pid + " 完成"},
                 stamp);
}

// alpha is patrolled, edited and removed; beta has a watch timer and exits.
TEST(LogOfTarget, FromStartToRestoreOrExit) {
  ControlStory story;
  story.device.launch({.name = "alpha"});
  story.device.launch({.name = "beta"});
  const Dictionary beta{{"JetsamPriority", -1}, {"CheckInterval", 600}};
  story.writeTargets({{"alpha", kLeftAlone}, {"beta", beta}});
  story.startAndSettle();
  story.Story::run(600s);
  story.device.exit(101);
  story.Story::run(1200s);
  const Dictionary edited{{"JetsamPriority", -1}, {"Remark", "x"}};
  for (const Dictionary& targets : {Dictionary{{"alpha", edited}, {"beta", beta}}, Dictionary{}}) {
    story.writeTargets(targets);
    story.postAndRun();
  }
  const std::string ticked = "[03-04 05:16:07] ";
  const std::string patrolled = "[03-04 05:36:07] ";
  EXPECT_EQ(
      story.answer("log --target alpha"),
      applied({kTargetRule, "[进程] 目标: alpha 已启动 PID: 100 "}, "alpha", "100") +
          applied({}, "alpha", "100", patrolled) +
          applied({kTargetRule, "[配置] 目标: alpha PID: 100"}, "alpha", "100", patrolled) +
          stamped({kTargetRule, "[恢复] 目标: alpha PID: 100", "[守护] alpha PID:100"}, patrolled));
  EXPECT_EQ(story.answer("log --target beta"),
            applied({kTargetRule, "[进程] 目标: beta 已启动 PID: 101 "}, "beta", "101") +
                applied({kTargetRule, "[守护] 目标: beta | 检测: 600s | PID: 101"}, "beta", "101",
                        ticked) +
                stamped({kTargetRule, "[进程] 目标: beta 已退出"}, "[03-04 05:26:07] "));
  EXPECT_EQ(story.answer("log --target beta --category 守护 -n 1"),
            stamped({"[守护] beta PID:101 完成"}, ticked));
}

TEST(LogOfTarget, NotOfALongerName) {
  LogStory story({kTargetRule, "[进程] 目标: alpha two 已退出", kTargetRule,
                  "[守护] alpha two PID:9 完成", kTargetRule,
                  "[状态剥离] 目标: alpha -> [操作: 成功] [内核]: 1)"});
  story.writeTargets({{"alpha", kLeftAlone}});
  EXPECT_EQ(story.answer("log --target alpha"), "");
  EXPECT_EQ(story.answer(Arguments{"log", "--target", "alpha two"}),
            stamped({kTargetRule, "[进程] 目标: alpha two 已退出", "[守护] alpha two PID:9 完成"}));
}

TEST(LogOfTarget, RefusesUnknownNames) {
  LogStory story({"[进程] 目标: beta 已退出"});
  EXPECT_EQ(story.answer("log --target beta"), stamped({"[进程] 目标: beta 已退出"}));
  writeAll(story.preferencesFile(), "no property list");
  EXPECT_EQ(story.answer("log --target bet"), kNoPreferences);
  story.writeTargets({{"alpha", kLeftAlone}});
  const auto refused = [](const std::string& name, const std::string& advice) {
    return "err: vorlatchctl: no target " + name + " is configured, and the log does not name it" +
           advice + "\nexit 2\n";
  };
  EXPECT_EQ(story.answer("log --target bet"), refused("bet", "; did you mean beta?"));
  EXPECT_EQ(story.answer("log -f --target alpa"), refused("alpa", "; did you mean alpha?"));
  EXPECT_EQ(story.answer(Arguments{"log", "--target", ""}), refused("", ""));
  EXPECT_EQ(story.answer("log --target alpha"), "");
}

// A log, and what is shown of each target in it.
struct Told {
  Lines log;
  std::vector<std::pair<std::string, Lines>> shown;
};

void expectShownOfTargets(const Told& told) {
  LogStory story(told.log);
  for (const auto& [target, lines] : told.shown) {
    EXPECT_EQ(story.answer("log --target " + target), stamped(lines)) << target;
  }
}

const std::string kSuccess = "[内核] ：成功";
const std::string kNiceAsWanted = "[进程优先级] 目标已是 3";
const std::string kPatrolBegins = "[守护] 开始执行 1800s ";
const std::string kAlphaTicks = "[守护] 目标: alpha | 检测: 600s | PID: 9";
const std::string kAlphaDone = "[守护] alpha PID:9 完成";
const std::string kBetaDone = "[守护] beta PID:8 完成";
const std::string kGammaDone = "[守护] gamma PID:7 完成";
const Lines kPatrolDone{"[全局守护] 1800s 周期巡检完成。", kChapterRule};

// A pass's own lines belong to no target, wherever they stand.
TEST(LogOfTarget, NothingOfThePass) {
  const std::string removed = "[配置] 已有进程从列表移除，已恢复默认";
  const std::string emptied = "[守护] 日志大小超过设定限制(5.0MB)，已自动清空。";
  const Lines exit{kTargetRule, "[进程] 目标: alpha 已退出"};
  const Lines hand_back{kTargetRule, "[恢复] 目标: beta PID: 8", "[守护] beta PID:8"};
  const Lines begun{kTargetRule, "[进程] 目标: gamma 已启动 PID: 7 "};
  expectShownOfTargets(
      {exit + Lines{kTargetRule, removed, emptied, "a foreign line"} + hand_back +
           Lines{kNiceAsWanted} + begun +
           Lines{emptied, "a foreign line", kSuccess, kGammaDone, kNiceAsWanted},
       {{"alpha", exit}, {"beta", hand_back}, {"gamma", begun + Lines{kSuccess, kGammaDone}}}});
}

// The patrol's sweep and a watch timer write at the same time.
TEST(LogOfTarget, OnlyWhatIsCertainlyOfIt) {
  const Lines of_alpha{kTargetRule, kAlphaTicks, kAlphaDone};
  expectShownOfTargets(
      {Lines{kSuccess, kPatrolBegins, kSuccess, kNiceAsWanted, kTargetRule, kAlphaTicks,
             "[内核] ：失败", kSuccess, kAlphaDone, kSuccess, kBetaDone, kNiceAsWanted,
             kGammaDone} +
           kPatrolDone + Lines{kSuccess, kTargetRule, kAlphaTicks, kNiceAsWanted, kAlphaDone},
       {{"alpha", of_alpha + Lines{kTargetRule, kAlphaTicks, kNiceAsWanted, kAlphaDone}},
        {"beta", {kBetaDone}},
        {"gamma", {kNiceAsWanted, kGammaDone}}}});
}

TEST(LogOfTarget, NothingWrittenDuringAnotherBlock) {
  expectShownOfTargets({Lines{kPatrolBegins, kNiceAsWanted, kTargetRule, kAlphaTicks, kSuccess,
                              kBetaDone, kSuccess, kGammaDone, kAlphaDone} +
                            kPatrolDone,
                        {{"alpha", {kTargetRule, kAlphaTicks, kAlphaDone}},
                         {"beta", {kNiceAsWanted, kBetaDone}},
                         {"gamma", {kGammaDone}}}});
}

// Its beginning was emptied with the log.
TEST(LogOfTarget, OfASweepWithoutBeginning) {
  expectShownOfTargets(
      {Lines{kSuccess, kBetaDone, kNiceAsWanted, kGammaDone} + kPatrolDone +
           Lines{kSuccess, kBetaDone},
       {{"beta", {kBetaDone, kBetaDone}}, {"gamma", {kNiceAsWanted, kGammaDone}}}});
}

// The daemon was killed during a block and during a sweep.
TEST(LogOfTarget, StartsAnewWithTheDaemon) {
  const Lines start{"[守护] PID:5", "[系统] 设定进程优先级 -> [内核: 成功]", kSuccess};
  expectShownOfTargets({Lines{kPatrolBegins, kNiceAsWanted} + start +
                            Lines{kTargetRule, kAlphaTicks} + start + Lines{kBetaDone},
                        {{"alpha", {kTargetRule, kAlphaTicks}}, {"beta", {kBetaDone}}}});
}

}  // namespace
}  // namespace vorlatch::tests
