// vorlatchctl log -f: what comes, across clearings and whatever else becomes of the file.
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "control/log_reader.h"
#include "tests/cli/control_run.h"

namespace vorlatch::tests {
namespace {

using control::LogFilter;
using control::LogLine;
using control::LogReader;
using plist::Dictionary;

const std::string kStamp = "[03-04 05:06:07] ";

void append(const std::string& path, std::string_view bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::app);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  ASSERT_TRUE(file.good()) << path;
}

// A log that is followed; the n-th happening takes place before the n-th wait, and a look later
// comes Ctrl-C.
struct Followed : ControlStory {
  Output follow(const std::vector<std::function<void()>>& happenings,
                std::vector<std::string> arguments = {}) {
    is_interrupted = [&happenings](int waits) {
      const auto next = static_cast<std::size_t>(waits);
      if (next == happenings.size()) return true;
      happenings[next]();
      return false;
    };
    arguments.insert(arguments.begin(), {"log", "-f"});
    return run(arguments);
  }
  [[nodiscard]] std::function<void()> appends(const std::string& bytes) const {
    return [path = logFile(), bytes] { append(path, bytes); };
  }
};

TEST(LogFollow, BeginsWithWhatIsThereAndGoesOn) {
  Followed story;
  writeAll(story.logFile(), "one\ntwo\n");
  EXPECT_EQ(story.follow({story.appends("three\nfo"), story.appends("ur\n"), [] {}}, {"-n", "1"}),
            (Output{0, "two\nthree\nfour\n", ""}));
}

TEST(LogFollow, TheDaemonsOwnClearing) {
  Followed story;
  story.writePreferences({{"Enabled", true}, {"LogSizeLimit", 1}, {"AppConfigs", Dictionary{}}});
  story.start();
  const Output before = story.run({"log"});
  const std::string cleared = kStamp + "[守护] 日志大小超过设定限制(0.0MB)，已自动清空。\n";
  EXPECT_EQ(story.follow({[] {}, [] {}}), (Output{0, before.out + cleared, ""}));
}

TEST(LogFollow, AClearingFollowedByGrowthBeyondTheOldSize) {
  Followed story;
  writeAll(story.logFile(), "one\ntwo\n");
  const auto clear_and_grow = [path = story.logFile()] {
    std::filesystem::resize_file(path, 0);
    append(path, "three\nfour\nfive\n");
  };
  EXPECT_EQ(story.follow({clear_and_grow}), (Output{0, "one\ntwo\nthree\nfour\nfive\n", ""}));
}

TEST(LogFollow, AClearingFollowedByGrowthToTheOldSize) {
  Followed story;
  writeAll(story.logFile(), "one\ntwo\n");
  EXPECT_EQ(story.follow({[path = story.logFile()] { writeAll(path, "six\nten\n"); }}),
            (Output{0, "one\ntwo\nsix\nten\n", ""}));
}

TEST(LogFollow, AnUnfinishedLineIsForgottenByAClearing) {
  Followed story;
  writeAll(story.logFile(), "one\nunfin");
  EXPECT_EQ(story.follow({[path = story.logFile()] { writeAll(path, "ished\n"); }}),
            (Output{0, "one\nished\n", ""}));
}

TEST(LogFollow, AForeignTruncationLeavesAHoleThatIsPassedOver) {
  Followed story;
  writeAll(story.logFile(), "one\ntwo\n");
  const auto truncate_and_write_behind = [path = story.logFile()] {
    std::filesystem::resize_file(path, 0);
    std::filesystem::resize_file(path, 200'000);  // as a stream does that goes on at its place
    append(path, "three\n");
  };
  EXPECT_EQ(story.follow({truncate_and_write_behind, story.appends("four\n")}),
            (Output{0, "one\ntwo\nthree\nfour\n", ""}));
  EXPECT_EQ(story.run({"log"}), (Output{0, "three\nfour\n", ""}));
}

TEST(LogFollow, ATruncationThatIsSeenBeforeTheHoleIs) {
  Followed story;
  writeAll(story.logFile(), "one\ntwo\n");
  const auto truncate = [path = story.logFile()] { std::filesystem::resize_file(path, 0); };
  const auto write_behind = [path = story.logFile()] {
    std::filesystem::resize_file(path, 8);
    append(path, "three\n");
  };
  EXPECT_EQ(story.follow({truncate, write_behind}), (Output{0, "one\ntwo\nthree\n", ""}));
}

TEST(LogFollow, AReplacedFile) {
  Followed story;
  writeAll(story.logFile(), "one\ntwo\n");
  const auto replace = [path = story.logFile()] {
    writeAll(path + ".new", "three\nfour\nfive\n");
    std::filesystem::rename(path + ".new", path);
  };
  EXPECT_EQ(story.follow({replace, story.appends("six\n")}),
            (Output{0, "one\ntwo\nthree\nfour\nfive\nsix\n", ""}));
}

TEST(LogFollow, ARemovedFileEndsIt) {
  Followed story;
  writeAll(story.logFile(), "one\n");
  const Output output =
      story.follow({[path = story.logFile()] { std::filesystem::remove(path); }, [] {}});
  EXPECT_EQ(output, (Output{3, "one\n",
                            "vorlatchctl: " + story.logFile() +
                                ": No such file or directory; is the package installed, and has "
                                "the daemon been started?\n"}));
}

TEST(LogFollow, OfATargetABlockComesWhenItIsWhole) {
  Followed story;
  writeAll(story.logFile(), "");
  const std::string rule = kStamp + kTargetRule + "\n";
  const std::string exited = kStamp + "[进程] 目标: alpha 已退出\n";
  const std::string begun = rule + kStamp + "[进程] 目标: alpha 已启动 PID: 9 \n";
  const std::string completed = kStamp + "[守护] alpha PID:9 完成\n";
  std::string other = rule + kStamp + "[进程] 目标: beta 已退出\n";
  EXPECT_EQ(story.follow({story.appends(other + begun), story.appends(completed),
                          story.appends(other + rule + exited), [] {}},
                         {"--target", "alpha"}),
            (Output{0, begun + completed + rule + exited, ""}));
}

TEST(LogReader, GivesEachLineOnce) {
  const Story story;
  const std::string path = story.file("some.log");
  writeAll(path, kStamp + "[守护] PID:7\n" + std::string(200'000, 'x') + "\n");
  LogReader reader(path);
  std::vector<LogLine> lines;
  const auto add = [&lines](LogLine line) { lines.push_back(std::move(line)); };
  EXPECT_TRUE(reader.readNew(add));
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0].stamp, "03-04 05:06:07");
  EXPECT_EQ(lines[0].category, "守护");
  EXPECT_EQ(lines[0].text, "PID:7");
  EXPECT_EQ(lines[1].text, std::string(65'536, 'x'));
  EXPECT_FALSE(reader.readNew(add));
}

struct Parts {
  std::string stamp;
  std::string category;
  std::string text;
  friend bool operator==(const Parts&, const Parts&) = default;
};

Parts partsOf(const std::string& line) {
  const LogLine parts = control::logLineOf(line);
  return {parts.stamp, parts.category, parts.text};
}

TEST(LogLine, IsTakenApart) {
  EXPECT_EQ(partsOf(kStamp + "[进程] 目标: a 已退出"),
            (Parts{"03-04 05:06:07", "进程", "目标: a 已退出"}));
  EXPECT_EQ(partsOf(kStamp + kTargetRule), (Parts{"03-04 05:06:07", "", kTargetRule}));
  EXPECT_EQ(partsOf(kStamp + "[open"), (Parts{"03-04 05:06:07", "", "[open"}));
  EXPECT_EQ(partsOf("[守护] no stamp"), (Parts{"", "", "[守护] no stamp"}));
  EXPECT_EQ(partsOf("[03-04 05:06:07"), (Parts{"", "", "[03-04 05:06:07"}));
  EXPECT_EQ(partsOf(""), (Parts{"", "", ""}));
}

TEST(LogFilter, WithoutATargetNothingIsHeldBack) {
  LogFilter filter("", "守护");
  Lines passed;
  const auto pass_on = [&passed](const LogLine& line) { passed.push_back(line.text); };
  filter.take(control::logLineOf(kStamp + "[守护] one"), pass_on);
  filter.take(control::logLineOf(kStamp + "[内核] two"), pass_on);
  EXPECT_EQ(passed, Lines{"one"});
  filter.finish(pass_on);
  EXPECT_EQ(passed, Lines{"one"});
}

}  // namespace
}  // namespace vorlatch::tests
