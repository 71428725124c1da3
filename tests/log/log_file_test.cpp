#include "log/log_file.h"

#include <sys/stat.h>

#include <filesystem>

#include <gtest/gtest.h>

#include "config/log_size_cap.h"
#include "log/log_line.h"
#include "tests/support/story.h"

namespace vorlatch {
namespace {

using tests::Lines;
using tests::Story;

constexpr std::size_t kDefaultLimit = 2097152;

std::string cleared(const std::string& limit_mb) {
  return "[守护] 日志大小超过设定限制(" + limit_mb + "MB)，已自动清空。";
}

// A daemon whose log has grown to `size` bytes, with these preferences.
struct GrownLog : Story {
  GrownLog(std::size_t size, const plist::Dictionary& preferences) {
    tests::writeAll(logFile(), std::string(size, 'x'));
    writePreferences(preferences);
    openLog();
    checkLogSizeAndClearIfNeeded();
  }
  [[nodiscard]] std::size_t size() const { return tests::readAll(logFile()).size(); }
};

TEST(LogSizeCap, OneByteOverTheDefaultClearsTheLog) {
  GrownLog story(kDefaultLimit + 1, {});
  EXPECT_EQ(tests::readAll(story.logFile()), "[03-04 05:06:07] " + cleared("2.0") + "\n");
}

TEST(LogSizeCap, ALogOfExactlyTheLimitIsKept) {
  GrownLog story(kDefaultLimit, {});
  EXPECT_EQ(story.size(), kDefaultLimit);
}

TEST(LogSizeCap, ALimitOfOneMebibyteIsPrintedSo) {
  GrownLog story(1048577, {{"LogSizeLimit", 1048576}});
  EXPECT_EQ(story.takeLog(), Lines{cleared("1.0")});
}

TEST(LogSizeCap, AMebibyteIsAlways1048576Bytes) {
  Story story;
  story.writePreferences({{"LogSizeLimit", 104857600}});
  story.openLog();
  std::filesystem::resize_file(story.logFile(), 104857601);
  checkLogSizeAndClearIfNeeded();
  EXPECT_EQ(story.takeLog(), Lines{cleared("100.0")});
}

TEST(LogSizeCap, ALimitOfZeroNeverClears) {
  GrownLog story(kDefaultLimit + 1, {{"LogSizeLimit", 0}});
  EXPECT_EQ(story.size(), kDefaultLimit + 1);
}

TEST(LogSizeCap, ANegativeLimitNeverClears) {
  GrownLog story(kDefaultLimit + 1, {{"LogSizeLimit", -5}});
  EXPECT_EQ(story.size(), kDefaultLimit + 1);
}

TEST(LogSizeCap, ALimitBeyondThirtyTwoBitsIsNotCutShort) {
  GrownLog story(kDefaultLimit + 1, {{"LogSizeLimit", std::int64_t{1} << 32}});
  EXPECT_EQ(story.size(), kDefaultLimit + 1);
}

TEST(LogSizeCap, ALimitThatIsANumericStringCounts) {
  GrownLog story(11, {{"LogSizeLimit", "10"}});
  EXPECT_EQ(story.takeLog(), Lines{cleared("0.0")});
}

TEST(LogSizeCap, ClearingKeepsTheFileAndItsMode) {
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
}

TEST(LogSizeCap, LaterLinesFollowTheClearingLine) {
  GrownLog story(11, {{"LogSizeLimit", 10}});
  writeTargetSeparator();
  EXPECT_EQ(story.takeLog(), (Lines{cleared("0.0"), tests::kTargetRule}));
}

TEST(LogSizeCap, StreamsKeepTheirOffsetsAfterClearing) {
  GrownLog story(11, {{"LogSizeLimit", 10}});
  const std::string line = "[03-04 05:06:07] " + cleared("0.0") + "\n";
  std::fputs("out", stdout);  // stdout was reopened too and is at offset 0
  std::fflush(stdout);
  EXPECT_EQ(tests::readAll(story.logFile()), "out" + line.substr(3));
  tests::writeAll(story.logFile(), "");  // emptied by another program
  writeTargetSeparator();
  EXPECT_EQ(tests::readAll(story.logFile()),
            std::string(line.size(), '\0') + "[03-04 05:06:07] " + tests::kTargetRule + "\n");
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
  EXPECT_EQ(tests::readAll(story.logFile()), "");
  EXPECT_EQ(tests::modeOf(story.logFile()), 0666U);
}

TEST(LogFile, AnExistingOneIsKeptAndAppendedTo) {
  Story story;
  tests::writeAll(story.logFile(), "old line\n");
  std::filesystem::permissions(story.logFile(), std::filesystem::perms(0600));
  story.openLog();
  writeTargetSeparator();
  EXPECT_EQ(tests::readAll(story.logFile()),
            "old line\n[03-04 05:06:07] ----------------------------------------\n");
  EXPECT_EQ(tests::modeOf(story.logFile()), 0666U);
}

TEST(LogFile, BothStreamsAppendToIt) {
  Story story;
  story.openLog();
  std::fputs("out ", stdout);
  std::fflush(stdout);
  std::fputs("err ", stderr);
  tests::writeAll(story.logFile(), "");  // emptied by another program
  std::fputs("out again", stdout);
  std::fflush(stdout);
  EXPECT_EQ(tests::readAll(story.logFile()), "out again");
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

}  // namespace
}  // namespace vorlatch
