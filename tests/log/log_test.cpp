// The log file and its lines.
#include <sys/stat.h>

#include <filesystem>

#include <gtest/gtest.h>

#include "config/log_size_cap.h"
#include "log/log_file.h"
#include "log/log_line.h"
#include "tests/support/story.h"

namespace vorlatch {
namespace {

using tests::Lines;
using tests::readAll;
using tests::Story;
using namespace std::chrono_literals;

constexpr std::uint64_t kDefaultLimit = 2'097'152;
const std::string kStamp = "[03-04 05:06:07] ";
const std::string kRuleLine = kStamp + tests::kTargetRule + "\n";

std::string clearedLine(const std::string& limit_mb) {
  return kStamp + "[守护] 日志大小超过设定限制(" + limit_mb + "MB)，已自动清空。\n";
}

TEST(LogSizeCap, ClearsOnlyALogAboveTheLimit) {
  struct Case {
    std::uint64_t size;
    plist::Dictionary preferences;
    std::string cleared_mb;  // empty: the log is kept
  };
  const std::vector<Case> cases{{kDefaultLimit, {}, ""},
                                {kDefaultLimit + 1, {}, "2.0"},
                                {1'048'577, {{"LogSizeLimit", 1'048'576}}, "1.0"},
                                {104'857'601, {{"LogSizeLimit", 104'857'600}}, "100.0"},
                                {kDefaultLimit + 1, {{"LogSizeLimit", 0}}, ""},
                                {kDefaultLimit + 1, {{"LogSizeLimit", -5}}, ""},
                                {kDefaultLimit + 1, {{"LogSizeLimit", std::int64_t{1} << 32}}, ""},
                                {11, {{"LogSizeLimit", "10"}}, "0.0"}};
  Story story;
  story.openLog();
  for (const auto& [size, preferences, cleared_mb] : cases) {
    std::filesystem::resize_file(story.logFile(), size);
    story.writePreferences(preferences);
    checkLogSizeAndClearIfNeeded();
    if (cleared_mb.empty()) {
      EXPECT_EQ(std::filesystem::file_size(story.logFile()), size);
    } else {
      EXPECT_EQ(readAll(story.logFile()), clearedLine(cleared_mb));
    }
  }
}

TEST(LogSizeCap, KeepsTheFileAndTheStreamsOffsets) {
  Story story;
  story.writePreferences({{"LogSizeLimit", 10}});
  tests::writeAll(story.logFile(), std::string(11, 'x'));
  story.openLog();
  struct stat before {};
  ASSERT_EQ(stat(story.logFile().c_str(), &before), 0);
  checkLogSizeAndClearIfNeeded();
  struct stat after {};
  ASSERT_EQ(stat(story.logFile().c_str(), &after), 0);
  EXPECT_EQ(after.st_ino, before.st_ino);
  EXPECT_EQ(after.st_mode & 07777U, 0666U);
  writeTargetSeparator();
  const std::string log = clearedLine("0.0") + kRuleLine;
  EXPECT_EQ(readAll(story.logFile()), log);
  std::fputs("out", stdout);  // stdout was reopened too and is at offset 0
  std::fflush(stdout);
  EXPECT_EQ(readAll(story.logFile()), "out" + log.substr(3));
  tests::writeAll(story.logFile(), "");  // emptied by another program
  writeTargetSeparator();
  EXPECT_EQ(readAll(story.logFile()), std::string(log.size(), '\0') + kRuleLine);
}

TEST(LogSizeCap, ADeletedLogIsNotMadeAgain) {
  Story story;
  story.openLog();
  std::filesystem::remove(story.logFile());
  checkLogSizeAndClearIfNeeded();
  EXPECT_FALSE(std::filesystem::exists(story.logFile()));
}

TEST(LogFile, IsCreatedEmptyForEveryoneDespiteTheUmask) {
  Story story;
  const mode_t umask_before = umask(077);
  story.openLog();
  umask(umask_before);
  EXPECT_TRUE(std::filesystem::exists(story.logFile()));
  EXPECT_EQ(readAll(story.logFile()), "");
  EXPECT_EQ(tests::modeOf(story.logFile()), 0666U);
}

TEST(LogFile, BothStreamsAppendToIt) {
  Story story;
  tests::writeAll(story.logFile(), "old line\n");
  std::filesystem::permissions(story.logFile(), std::filesystem::perms(0600));
  story.openLog();
  EXPECT_EQ(tests::modeOf(story.logFile()), 0666U);
  writeTargetSeparator();
  EXPECT_EQ(readAll(story.logFile()), "old line\n" + kRuleLine);
  tests::writeAll(story.logFile(), "");  // emptied by another program
  std::fputs("out", stdout);
  std::fflush(stdout);
  EXPECT_EQ(readAll(story.logFile()), "out");
}

TEST(LogFile, WritesNothingWithoutItsDirectory) {
  Story story;
  std::filesystem::remove_all(story.rootPath("/var/mobile"));
  story.openLog();
  writeTargetSeparator();
  EXPECT_FALSE(std::filesystem::exists(story.rootPath("/var/mobile")));
  // The stream keeps descriptor 2, so that no file opened later can receive lines of the log.
  EXPECT_EQ(fileno(stderr), 2);
}

TEST(LogLine, CarriesTheLocalTimeOfWriting) {
  Story story;
  story.openLog();
  std::setvbuf(stderr, nullptr, _IOFBF, BUFSIZ);  // the stream keeps back what is not flushed
  writeLogLine("[%s] [守护] PID:%d\n", 12);
  EXPECT_EQ(readAll(story.logFile()), "[03-04 05:06:07] [守护] PID:12\n");
  story.run(61s);
  writeLogLine("[%s] [进程] 目标: %s 已退出\n", "%s %n 100%");
  story.device.stepWallClock(-3600);
  writeChapterSeparator();
  EXPECT_EQ(readAll(story.logFile()),
            "[03-04 05:06:07] [守护] PID:12\n"
            "[03-04 05:07:08] [进程] 目标: %s %n 100% 已退出\n"
            "[03-04 04:07:08] ========================================\n");
}

}  // namespace
}  // namespace vorlatch
