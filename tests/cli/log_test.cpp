// vorlatchctl log: what is shown of the daemon's log, and how; with -f, across clearings and
// whatever else becomes of the file.
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "control/moment.h"
#include "tests/cli/log_story.h"

namespace vorlatch::tests {
namespace {

constexpr const char* kNoLog =
    "err: vorlatchctl: {log}: No such file or directory; is the package installed, and has the "
    "daemon been started?\nexit 3\n";

TEST(Log, ShowsTheLastLines) {
  Lines lines{kChapterRule, "without a category"};
  while (lines.size() < 45) lines.push_back("[守护] PID:" + std::to_string(lines.size()));
  LogStory story(lines);
  const auto last = [&](std::ptrdiff_t count) {
    return stamped({lines.end() - count, lines.end()});
  };
  EXPECT_EQ(story.answer("log"), last(40));
  EXPECT_EQ(story.answer("log --lines 44"), last(44));
  EXPECT_EQ(story.answer("log --all"), stamped(lines));
  EXPECT_EQ(story.answer("log -n 0"), "");
  EXPECT_EQ(story.answer("log --all -n 0"),
            "err: vorlatchctl: --all and --lines exclude each other\nexit 2\n");
  story.is_interrupted = [](int) { return true; };
  EXPECT_EQ(story.answer("log -f"), last(10));
  EXPECT_EQ(story.answer("log -f -n 11"), last(11));
  EXPECT_EQ(story.answer("log -f -n 0"), "");
}

TEST(Log, ShowsOneCategory) {
  LogStory story({"[内核] ：成功", "[内核: 失败] is another", "[守护] [内核] is text", "内核",
                  kTargetRule, "[内核] ：失败"});
  const std::string expected = stamped({"[内核] ：成功", "[内核] ：失败"});
  EXPECT_EQ(story.answer("log --category 内核"), expected);
  EXPECT_EQ(story.answer("log --category [内核]"), expected);
  EXPECT_EQ(story.answer("log --category 内核 -n 1"), stamped({"[内核] ：失败"}));
  EXPECT_EQ(story.answer("log --category kernel"), expected);
  EXPECT_EQ(story.answer("log --category 全局守护"), "");
  for (const std::string unknown : {"核", ""}) {
    EXPECT_EQ(story.answer(Arguments{"log", "--category", unknown}),
              "err: vorlatchctl: there is no category " + unknown +
                  "; there are: 守护 daemon, 内核 kernel, 配置 preferences, 进程 process, "
                  "内存优先级 band, 内存限制 limits, 进程优先级 nice, 系统 system, 恢复 restore, "
                  "状态剥离 managed, 环境适配 adapted, 全局守护 patrol\nexit 2\n");
  }
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
  ::setenv("TZ", "CST-8", 1);
  ControlStory story;
  writeAll(story.logFile(),
           "[03-04 05:06:07] ----\n"
           "[03-04 05:06:07] [守护] \"PID\":7\x1b\n"
           "[03-04 05:06:07] \xff\n"
           "[03-04 05:06:07] [open\n"
           "[03-04 下午5:06:07] [守护] PID:12\n"
           "[٠٣-٠٤ ٠٥:٠٦:٠٧] [内核] other digits\n"
           "[note] [守护] no stamp\n"
           "[a:b:c] [守护] none either\n"
           "[03-04 05:06:07\n" +
               kTargetRule + "\n\n");
  EXPECT_EQ(
      story.answer("log --json"),
      R"({"schema":1,"time":"2026-03-04T05:06:07+08:00","stamp":"03-04 05:06:07","category":"","text":"----","code":null}
{"schema":1,"time":"2026-03-04T05:06:07+08:00","stamp":"03-04 05:06:07","category":"守护","text":"\"PID\":7\u001b","code":null}
{"schema":1,"time":"2026-03-04T05:06:07+08:00","stamp":"03-04 05:06:07","category":"","text":"�","code":null}
{"schema":1,"time":"2026-03-04T05:06:07+08:00","stamp":"03-04 05:06:07","category":"","text":"[open","code":null}
{"schema":1,"time":null,"stamp":"03-04 下午5:06:07","category":"守护","text":"PID:12","code":"daemon-started"}
{"schema":1,"time":null,"stamp":"٠٣-٠٤ ٠٥:٠٦:٠٧","category":"内核","text":"other digits","code":null}
{"schema":1,"time":null,"stamp":"","category":"","text":"[note] [守护] no stamp","code":null}
{"schema":1,"time":null,"stamp":"","category":"","text":"[a:b:c] [守护] none either","code":null}
{"schema":1,"time":null,"stamp":"","category":"","text":"[03-04 05:06:07","code":null}
{"schema":1,"time":null,"stamp":"","category":"","text":"----------------------------------------","code":null}
{"schema":1,"time":null,"stamp":"","category":"","text":"","code":null}
)");
}

TEST(Log, GivesStampsTheirYearAndZone) {
  constexpr std::int64_t kMarch = 1772600767;        // 2026-03-04 05:06:07 UTC
  constexpr std::int64_t kNewYearsEve = 1767222000;  // 2025-12-31 23:00:00 UTC
  constexpr std::int64_t kLeapGap = 4197052800;      // 2103-01-01 00:00:00 UTC
  constexpr const char* kNewYork = "EST5EDT,M3.2.0,M11.1.0";
  struct Row {
    const char* zone;
    std::int64_t now;
    const char* stamp;
    const char* time;
  };
  for (const Row& row :
       std::vector<Row>{{"UTC0", kMarch, "03-05 05:06:07", "2026-03-05T05:06:07+00:00"},
                        {"UTC0", kMarch, "03-05 05:06:08", "2025-03-05T05:06:08+00:00"},
                        {"CST-8", kMarch, "03-05 13:06:08", "2025-03-05T13:06:08+08:00"},
                        {"UTC0", kNewYearsEve, "01-01 00:30:00", "2026-01-01T00:30:00+00:00"},
                        {"UTC0", kMarch, "02-29 12:00:00", "2024-02-29T12:00:00+00:00"},
                        {"UTC0", kLeapGap, "02-29 12:00:00", "2096-02-29T12:00:00+00:00"},
                        {kNewYork, kMarch, "07-04 12:00:00", "2025-07-04T12:00:00-04:00"},
                        {kNewYork, kMarch, "12-04 12:00:00", "2025-12-04T12:00:00-05:00"},
                        {"UTC0", kMarch, "02-30 12:00:00", "none"},
                        {"UTC0", kMarch, "13-01 12:00:00", "none"},
                        {"UTC0", kMarch, "00-01 12:00:00", "none"},
                        {"UTC0", kMarch, "01-01 24:00:00", "none"},
                        {"UTC0", kMarch, "01-01 12:60:00", "none"},
                        {"UTC0", kMarch, "01-01 12.30:00", "none"},
                        {"UTC0", kMarch, "01-01 12:30:0x", "none"},
                        {"UTC0", kMarch, "01-01 12:30:000", "none"}}) {
    ::setenv("TZ", row.zone, 1);
    ::tzset();
    const auto seconds = control::secondsOfStamp(row.stamp, row.now);
    EXPECT_EQ(seconds ? control::isoTextOf(control::localMoment(*seconds)) : "none", row.time)
        << row.stamp;
  }
}

TEST(Log, CannotShowWhatIsNoFile) {
  ControlStory story;
  EXPECT_EQ(story.answer("log"), kNoLog);
  std::filesystem::create_directory(story.logFile());
  EXPECT_EQ(story.answer("log"), "err: vorlatchctl: {log} is no regular file\nexit 3\n");
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
