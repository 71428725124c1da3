// vorlatchctl log: what is shown of the daemon's log, and how; with -f, across clearings and
// whatever else becomes of the file.
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "tests/cli/held_story.h"

namespace vorlatch::tests {
namespace {

const std::string kStamp = "[03-04 05:06:07] ";

constexpr const char* kNoLog =
    "err: vorlatchctl: {log}: No such file or directory; is the package installed, and has the "
    "daemon been started?\nexit 3\n";

// The lines under one stamp.
std::string stamped(const Lines& lines, const std::string& stamp = kStamp) {
  std::string text;
  for (const std::string& line : lines) text += stamp + line + "\n";
  return text;
}

struct LogStory : ControlStory {
  explicit LogStory(const Lines& lines) { writeAll(logFile(), stamped(lines)); }
};

TEST(Log, ShowsTheLastLines) {
  const Lines lines{"[守护] PID:7", kChapterRule, "without a category"};
  LogStory story(lines);
  for (const char* all : {"log", "log --lines 9", "log -n 0"}) {
    EXPECT_EQ(story.answer(all), stamped(lines)) << all;
  }
  EXPECT_EQ(story.answer("log -n 2"), stamped({kChapterRule, "without a category"}));
}

TEST(Log, ShowsOneCategory) {
  LogStory story({"[内核] ：成功", "[内核: 失败] is another", "[守护] [内核] is text", "内核",
                  kTargetRule, "[内核] ：失败"});
  const std::string expected = stamped({"[内核] ：成功", "[内核] ：失败"});
  EXPECT_EQ(story.answer("log --category 内核"), expected);
  EXPECT_EQ(story.answer("log --category [内核]"), expected);
  EXPECT_EQ(story.answer("log --category 内核 -n 1"), stamped({"[内核] ：失败"}));
  EXPECT_EQ(story.answer("log --category 全局守护"), "");
  EXPECT_EQ(story.answer("log --category 核"),
            "err: vorlatchctl: there is no category 核; there are: 守护 内核 配置 进程 内存优先级 "
            "内存限制 进程优先级 系统 恢复 状态剥离 环境适配 全局守护\nexit 2\n");
}

// The last line is still being written.
TEST(Log, SpellsControlCharactersOut) {
  ControlStory story;
  writeAll(story.logFile(), "foreign\x1b[m\n\n[short]\n[03-04 05:06:07]\n" + kStamp +
                                "[\x1b]0;x\x07] \x7f\xff\xc2\x9b\n" + kStamp + "tw");
  EXPECT_EQ(story.answer("log"), "foreign^[[m\n\n[short]\n[03-04 05:06:07]\n" + kStamp +
                                     "[^[] 0;x^G] ^?\\xFF\\xC2\\x9B\n");
}

TEST(Log, InColours) {
  LogStory story({kTargetRule, "[守护] PID:7", "[内核] ：成功",
                  "[系统] 内存优先级:9 -> [内核: 失败]", "[内核] ：已被系统覆盖", "[\x1b] x"});
  story.has_colour = true;
  const auto category = [](const std::string& name) { return "\x1b[36m[" + name + "]\x1b[0m "; };
  EXPECT_EQ(story.answer("log"),
            stamped({"\x1b[2m" + kTargetRule + "\x1b[0m", category("守护") + "PID:7",
                     category("内核") + "\x1b[32m：成功\x1b[0m",
                     category("系统") + "\x1b[31m内存优先级:9 -> [内核: 失败]\x1b[0m",
                     category("内核") + "\x1b[33m：已被系统覆盖\x1b[0m", category("^[") + "x"},
                    "\x1b[2m[03-04 05:06:07]\x1b[0m "));
}

// Stamps may be of other clocks and in other digits.
TEST(Log, AsJsonALineEach) {
  ControlStory story;
  writeAll(story.logFile(),
           "[03-04 05:06:07] ----\n"
           "[03-04 05:06:07] [守护] \"PID\":7\x1b\n"
           "[03-04 05:06:07] \xff\n"
           "[03-04 05:06:07] [open\n"
           "[03-04 下午5:06:07] [守护] twelve hours\n"
           "[٠٣-٠٤ ٠٥:٠٦:٠٧] [内核] other digits\n"
           "[note] [守护] no stamp\n"
           "[a:b:c] [守护] none either\n"
           "[03-04 05:06:07\n"
           "\n");
  EXPECT_EQ(story.answer("log --json"),
            R"({"stamp":"03-04 05:06:07","category":"","text":"----"}
{"stamp":"03-04 05:06:07","category":"守护","text":"\"PID\":7\u001b"}
{"stamp":"03-04 05:06:07","category":"","text":"�"}
{"stamp":"03-04 05:06:07","category":"","text":"[open"}
{"stamp":"03-04 下午5:06:07","category":"守护","text":"twelve hours"}
{"stamp":"٠٣-٠٤ ٠٥:٠٦:٠٧","category":"内核","text":"other digits"}
{"stamp":"","category":"","text":"[note] [守护] no stamp"}
{"stamp":"","category":"","text":"[a:b:c] [守护] none either"}
{"stamp":"","category":"","text":"[03-04 05:06:07"}
{"stamp":"","category":"","text":""}
)");
}

TEST(Log, CannotShowWhatIsNoFile) {
  ControlStory story;
  EXPECT_EQ(story.answer("log"), kNoLog);
  std::filesystem::create_directory(story.logFile());
  EXPECT_EQ(story.answer("log"), "err: vorlatchctl: {log} is no regular file\nexit 3\n");
}

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
          applied({kChapterRule, "[守护] 开始执行 1800s "}, "alpha", "100", patrolled) +
          applied({kTargetRule, "[配置] 目标: alpha PID: 100"}, "alpha", "100", patrolled) +
          stamped({kTargetRule, "[恢复] 目标: alpha PID: 100", "[守护] alpha PID:100"}, patrolled));
  EXPECT_EQ(story.answer("log --target beta"),
            applied({kTargetRule, "[进程] 目标: beta 已启动 PID: 101 "}, "beta", "101") +
                applied({kTargetRule, "[守护] 目标: beta | 检测: 600s | PID: 101"}, "beta", "101",
                        ticked) +
                stamped({kTargetRule, "[进程] 目标: beta 已退出"}, "[03-04 05:26:07] "));
  EXPECT_EQ(story.answer("log --target beta --category 守护 -n 1"),
            stamped({"[守护] beta PID:101 完成"}, ticked));
  EXPECT_EQ(story.answer("log --target bet"), "");
}

TEST(LogOfTarget, NotOfALongerName) {
  LogStory story({kTargetRule, "[进程] 目标: alpha two 已退出", kTargetRule,
                  "[守护] alpha two PID:9 完成", kTargetRule,
                  "[状态剥离] 目标: alpha -> [操作: 成功] [内核]: 1)"});
  EXPECT_EQ(story.answer("log --target alpha"), "");
  EXPECT_EQ(story.answer(Arguments{"log", "--target", "alpha two"}),
            stamped({kTargetRule, "[进程] 目标: alpha two 已退出", kTargetRule,
                     "[守护] alpha two PID:9 完成"}));
}

// A log with these bytes that `log --follow` shows. The n-th event happens before the n-th wait;
// one wait after the last event comes Ctrl-C. The first character of an event says what happens
// with the text behind it:
//   +  appended to the log             >  written to a new file, which replaces the log
//   =  replaces the log's contents     -  the log is removed
//   _  appended behind a hole, after clearing the log; ~ appended at offset 8
struct Followed {
  std::string bytes;
  Lines events;
  std::string shown;
  std::string options{};
};

struct FollowStory : ControlStory {
  void happen(char what, const std::string& text) const {
    const std::string path = logFile();
    if (what == '-') {
      std::filesystem::remove(path);
    } else if (what == '>') {
      writeAll(path + ".new", text);
      std::filesystem::rename(path + ".new", path);
    } else {
      if (what == '=' || what == '_') std::filesystem::resize_file(path, 0);
      if (what == '~') std::filesystem::resize_file(path, 8);
      if (what == '_') std::filesystem::resize_file(path, 200'000);
      std::ofstream file(path, std::ios::binary | std::ios::app);
      file << text;
      file.close();
      ASSERT_TRUE(file.good()) << path;
    }
  }
  void expectShown(const Followed& followed) {
    SCOPED_TRACE(testing::PrintToString(followed.events) + followed.options);
    if (!followed.bytes.empty()) writeAll(logFile(), followed.bytes);
    is_interrupted = [this, &events = followed.events](int waits) {
      const auto next = static_cast<std::size_t>(waits);
      if (next == events.size()) return true;
      happen(events[next].at(0), events[next].substr(1));
      return false;
    };
    EXPECT_EQ(answer("log -f" + followed.options), followed.shown);
  }
};

// A stream that goes on at its place after a clearing leaves a hole.
TEST(LogFollow, OverWhatBecomesOfTheFile) {
  FollowStory story;
  const std::string old = "one\ntwo\n";
  for (const Followed& each : std::vector<Followed>{
           {old, {"+three\nfo", "+ur\n", "+"}, "two\nthree\nfour\n", " -n 1"},
           {old, {"=three\nfour\nfive\n"}, old + "three\nfour\nfive\n"},
           {old, {"=six\nten\n"}, old + "six\nten\n"},
           {"one\nunfin", {"=ished\n"}, "one\nished\n"},
           {old, {"=", "~three\n"}, old + "three\n"},
           {old, {"_three\n", "+four\n"}, old + "three\nfour\n"},
           {old, {">three\nfour\nfive\n", "+six\n"}, old + "three\nfour\nfive\nsix\n"},
           {"one\n", {"-", "+"}, std::string("one\n") + kNoLog}}) {
    story.expectShown(each);
  }
  story.happen('+', "1\n");
  story.happen('_', "2\n");
  EXPECT_EQ(story.answer("log"), "2\n");
}

TEST(LogFollow, ShowsATargetsWholeBlocks) {
  FollowStory story;
  const std::string rule = kStamp + kTargetRule + "\n";
  const std::string exited = rule + kStamp + "[进程] 目标: alpha 已退出\n";
  const std::string begun = rule + kStamp + "[进程] 目标: alpha 已启动 PID: 9 \n";
  const std::string completed = kStamp + "[守护] alpha PID:9 完成\n";
  const std::string other = rule + kStamp + "[进程] 目标: beta 已退出\n";
  story.expectShown({other + begun,
                     {"+", "+" + completed, "+" + other + exited, "+"},
                     begun + completed + exited,
                     " --target alpha"});
}

// A line is cut behind 64 kB. Without a target, no line waits for the end of its block.
TEST(LogFollow, ShowsLinesAtOnce) {
  FollowStory story;
  const std::string first = kStamp + "[守护] PID:7\n";
  const std::string second(65'536, 'x');
  story.expectShown({first + second + second + "\n", {"+", "+"}, first + second + "\n"});
  story.expectShown({first + kStamp + "[内核] two\n", {}, first, " --category 守护"});
}

}  // namespace
}  // namespace vorlatch::tests
