// vorlatchctl log: what is shown of the daemon's log, and how.
#include <filesystem>

#include <gtest/gtest.h>

#include "tests/cli/control_run.h"

namespace vorlatch::tests {
namespace {

using plist::Dictionary;

const std::string kStamp = "[03-04 05:06:07] ";

// The lines under one stamp.
std::string stamped(const Lines& lines, const std::string& stamp = kStamp) {
  std::string text;
  for (const std::string& line : lines) text += stamp + line + "\n";
  return text;
}

struct LogStory : ControlStory {
  explicit LogStory(const Lines& lines) { writeAll(logFile(), stamped(lines)); }
};

TEST(Log, AllOfIt) {
  LogStory story({"[守护] PID:7", kChapterRule, "without a category"});
  EXPECT_EQ(story.run({"log"}),
            (Output{0, stamped({"[守护] PID:7", kChapterRule, "without a category"}), ""}));
}

TEST(Log, TheLastLines) {
  LogStory story({"one", "two", "three"});
  EXPECT_EQ(story.run({"log", "-n", "2"}), (Output{0, stamped({"two", "three"}), ""}));
  EXPECT_EQ(story.run({"log", "--lines", "9"}), (Output{0, stamped({"one", "two", "three"}), ""}));
  EXPECT_EQ(story.run({"log", "-n", "0"}), (Output{0, stamped({"one", "two", "three"}), ""}));
}

TEST(Log, OneCategoryWithAndWithoutItsBrackets) {
  LogStory story({"[内核] ：成功", "[内核: 失败] is another", "[守护] [内核] is text", "内核",
                  kTargetRule, "[内核] ：失败"});
  const Output expected{0, stamped({"[内核] ：成功", "[内核] ：失败"}), ""};
  EXPECT_EQ(story.run({"log", "--category", "内核"}), expected);
  EXPECT_EQ(story.run({"log", "--category", "[内核]"}), expected);
  EXPECT_EQ(story.run({"log", "--category", "内核", "-n", "1"}),
            (Output{0, stamped({"[内核] ：失败"}), ""}));
  EXPECT_EQ(story.run({"log", "--category", "全局守护"}), (Output{0, "", ""}));
}

TEST(Log, AnUnknownCategoryIsWrongUsage) {
  LogStory story({"[内核] ：成功"});
  EXPECT_EQ(story.run({"log", "--category", "核"}),
            (Output{2, "",
                    "vorlatchctl: there is no category 核; there are: 守护 内核 配置 进程 "
                    "内存优先级 内存限制 进程优先级 系统 恢复 状态剥离 环境适配 全局守护\n"}));
}

TEST(Log, ControlCharactersAreShownAndNotObeyed) {
  LogStory story({"[守护] \x1b[2Jalpha\x07\tPID:1 \xff\xc2\x9b", "[\x1b]0;x\x07] \x7f"});
  EXPECT_EQ(
      story.run({"log"}),
      (Output{0, stamped({"[守护] ^[[2Jalpha^G^IPID:1 \\xFF\\xC2\\x9B", "[^[] 0;x^G] ^?"}), ""}));
}

TEST(Log, ALineWithoutAStampIsShownAsItIs) {
  ControlStory story;
  writeAll(story.logFile(), "foreign\x1b[m\n\n[short]\n[03-04 05:06:07]\n");
  EXPECT_EQ(story.run({"log"}), (Output{0, "foreign^[[m\n\n[short]\n[03-04 05:06:07]\n", ""}));
}

TEST(Log, ALineThatIsStillBeingWrittenIsLeftOut) {
  ControlStory story;
  writeAll(story.logFile(), kStamp + "one\n" + kStamp + "tw");
  EXPECT_EQ(story.run({"log"}), (Output{0, kStamp + "one\n", ""}));
}

TEST(Log, InColours) {
  LogStory story({kTargetRule, "[守护] PID:7", "[内核] ：成功",
                  "[系统] 内存优先级:9 -> [内核: 失败]", "[内核] ：已被系统覆盖", "[\x1b] x"});
  story.has_colour = true;
  const std::string stamp = "\x1b[2m[03-04 05:06:07]\x1b[0m ";
  const auto category = [](const std::string& name) { return "\x1b[36m[" + name + "]\x1b[0m "; };
  EXPECT_EQ(story.run({"log"}),
            (Output{0,
                    stamp + "\x1b[2m" + kTargetRule + "\x1b[0m\n" +                     //
                        stamp + category("守护") + "PID:7\n" +                          //
                        stamp + category("内核") + "\x1b[32m：成功\x1b[0m\n" +          //
                        stamp + category("系统") +                                      //
                        "\x1b[31m内存优先级:9 -> [内核: 失败]\x1b[0m\n" +               //
                        stamp + category("内核") + "\x1b[33m：已被系统覆盖\x1b[0m\n" +  //
                        stamp + category("^[") + "x\n",
                    ""}));
}

TEST(Log, FindsStampsOfOtherClocksAndDigits) {
  ControlStory story;
  writeAll(story.logFile(),
           "[03-04 下午5:06:07] [守护] twelve hours\n"
           "[٠٣-٠٤ ٠٥:٠٦:٠٧] [内核] other digits\n"
           "[note] [守护] no stamp\n"
           "[a:b:c] [守护] none either\n");
  EXPECT_EQ(story.run({"log", "--json"}),
            (Output{0,
                    R"({"stamp":"03-04 下午5:06:07","category":"守护","text":"twelve hours"}
{"stamp":"٠٣-٠٤ ٠٥:٠٦:٠٧","category":"内核","text":"other digits"}
{"stamp":"","category":"","text":"[note] [守护] no stamp"}
{"stamp":"","category":"","text":"[a:b:c] [守护] none either"}
)",
                    ""}));
}

TEST(Log, AsJsonALineEach) {
  LogStory story({kTargetRule, "[守护] \"PID\":7\x1b", "\xff"});
  EXPECT_EQ(story.run({"log", "--json"}),
            (Output{0,
                    R"({"stamp":"03-04 05:06:07","category":"","text":")" + kTargetRule +
                        R"("}
{"stamp":"03-04 05:06:07","category":"守护","text":"\"PID\":7\u001b"}
{"stamp":"03-04 05:06:07","category":"","text":"�"}
)",
                    ""}));
}

TEST(Log, AMissingFile) {
  ControlStory story;
  EXPECT_EQ(story.run({"log"}),
            (Output{3, "",
                    "vorlatchctl: " + story.logFile() +
                        ": No such file or directory; is the package installed, and has the daemon "
                        "been started?\n"}));
}

TEST(Log, ADirectoryInItsPlace) {
  ControlStory story;
  std::filesystem::create_directory(story.logFile());
  EXPECT_EQ(story.run({"log"}),
            (Output{3, "", "vorlatchctl: " + story.logFile() + " is no regular file\n"}));
}

// What an apply with these settings logs.
const Dictionary kLeftAlone{{"JetsamPriority", -1}};

Lines applied(const std::string& key, const std::string& pid) {
  return {"[内存限制] 目标 Act:0 Inact:0 | 最终 Act:1450 Inact:1450 -> [成功]", "[内核] ：成功",
          "[进程优先级] 目标已是 0", "[内存优先级] 目标:-1 -> 未设置, 跳过",
          "[守护] " + key + " PID:" + pid + " 完成"};
}

Lines joined(const std::vector<Lines>& parts) {
  Lines lines;
  for (const Lines& part : parts) lines.insert(lines.end(), part.begin(), part.end());
  return lines;
}

TEST(Log, OfATargetThePassAndThePatrol) {
  ControlStory story;
  story.device.launch({.name = "alpha"});
  story.device.launch({.name = "beta"});
  story.writeTargets({{"alpha", kLeftAlone}, {"beta", kLeftAlone}});
  story.startAndSettle();
  story.Story::run(1800s);
  const std::string patrolled = "[03-04 05:36:07] ";
  EXPECT_EQ(
      story.run({"log", "--target", "alpha"}),
      (Output{
          0,
          stamped(joined(
              {{kTargetRule, "[进程] 目标: alpha 已启动 PID: 100 "}, applied("alpha", "100")})) +
              stamped(joined({{kChapterRule, "[守护] 开始执行 1800s "}, applied("alpha", "100")}),
                      patrolled),
          ""}));
  EXPECT_EQ(story.run({"log", "--target", "beta"}),
            (Output{0,
                    stamped(joined({{kTargetRule, "[进程] 目标: beta 已启动 PID: 101 "},
                                    applied("beta", "101")})) +
                        stamped(applied("beta", "101"), patrolled),
                    ""}));
  EXPECT_EQ(story.run({"log", "--target", "bet"}), (Output{0, "", ""}));
}

TEST(Log, OfATargetTheWatchTimerAndTheExit) {
  ControlStory story;
  story.device.launch({.name = "alpha"});
  story.device.launch({.name = "alphabet"});
  story.writeTargets({{"alpha", Dictionary{{"JetsamPriority", -1}, {"CheckInterval", 60}}},
                      {"alphabet", kLeftAlone}});
  story.startAndSettle();
  story.Story::run(60s);
  story.device.exit(100);
  story.Story::run(60s);
  EXPECT_EQ(story.run({"log", "--target", "alpha"}),
            (Output{0,
                    stamped(joined({{kTargetRule, "[进程] 目标: alpha 已启动 PID: 100 "},
                                    applied("alpha", "100")})) +
                        stamped(joined({{kTargetRule, "[守护] 目标: alpha | 检测: 60s | PID: 100"},
                                        applied("alpha", "100")}),
                                "[03-04 05:07:07] ") +
                        stamped({kTargetRule, "[进程] 目标: alpha 已退出"}, "[03-04 05:08:07] "),
                    ""}));
}

TEST(Log, OfATargetTheEditAndTheRestore) {
  ControlStory story;
  story.device.launch({.name = "alpha"});
  story.device.launch({.name = "beta"});
  story.writeTargets({{"alpha", kLeftAlone}, {"beta", kLeftAlone}});
  story.startAndSettle();
  const std::size_t before = story.run({"log", "--target", "alpha"}).out.size();
  story.writeTargets({{"alpha", Dictionary{{"JetsamPriority", -1}, {"Remark", "x"}}}});
  story.postAndRun();
  story.writeTargets({});
  story.postAndRun();
  EXPECT_EQ(
      story.run({"log", "--target", "alpha"}).out.substr(before),
      stamped(joined({{kTargetRule, "[配置] 目标: alpha PID: 100"}, applied("alpha", "100")})) +
          stamped({kTargetRule, "[恢复] 目标: alpha PID: 100", "[守护] alpha PID:100"}));
}

TEST(Log, OfATargetOneCategory) {
  ControlStory story;
  story.device.launch({.name = "alpha"});
  story.device.launch({.name = "beta"});
  story.writeTargets({{"alpha", kLeftAlone}, {"beta", kLeftAlone}});
  story.startAndSettle();
  EXPECT_EQ(story.run({"log", "--target", "beta", "--category", "守护"}),
            (Output{0, stamped({"[守护] beta PID:101 完成"}), ""}));
}

TEST(Log, ATargetWhoseNameBeginsLikeAnothersIsNotTakenForIt) {
  LogStory story({kTargetRule, "[进程] 目标: alpha two 已退出", kTargetRule,
                  "[守护] alpha two PID:9 完成", kTargetRule,
                  "[状态剥离] 目标: alpha -> [操作: 成功] [内核]: 1)"});
  EXPECT_EQ(story.run({"log", "--target", "alpha"}), (Output{0, "", ""}));
  EXPECT_EQ(story.run({"log", "--target", "alpha two"}),
            (Output{0,
                    stamped({kTargetRule, "[进程] 目标: alpha two 已退出", kTargetRule,
                             "[守护] alpha two PID:9 完成"}),
                    ""}));
}

}  // namespace
}  // namespace vorlatch::tests
