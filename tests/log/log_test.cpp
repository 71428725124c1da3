// The log file and its lines.
#include <sys/stat.h>

#include <cstdio>
#include <filesystem>

#include <gtest/gtest.h>

#include "config/log_size_cap.h"
#include "log/log_line.h"
#include "tests/support/story.h"

namespace vorlatch {
namespace {

using tests::readAll;
using tests::Story;

const std::string kStamp = "[03-04 05:06:07] ";
const std::string kRuleLine = kStamp + tests::kTargetRule + "\n";

// What the streams leave in the log between two looks.
TEST(LogFile, IsAppendedToUntilItIsCleared) {
  Story story;
  const std::string path = story.logFile();
  const auto print_out = [] {
    std::fputs("out", stdout);
    std::fflush(stdout);
  };
  tests::writeAll(path, "old line\n");
  std::filesystem::permissions(path, std::filesystem::perms(0600));
  story.openLog();
  EXPECT_EQ(tests::modeOf(path), 0666U);
  writeTargetSeparator();
  EXPECT_EQ(readAll(path), "old line\n" + kRuleLine);
  tests::writeAll(path, "");  // emptied by another program
  print_out();
  EXPECT_EQ(readAll(path), "out");

  story.writePreferences({{"LogSizeLimit", 1'572'864}});
  std::filesystem::resize_file(path, 1'572'865);
  struct stat before {};
  struct stat after {};
  EXPECT_EQ(::stat(path.c_str(), &before), 0);
  checkLogSizeAndClearIfNeeded();
  EXPECT_EQ(::stat(path.c_str(), &after), 0);
  EXPECT_EQ(after.st_ino, before.st_ino);  // others may follow the file
  EXPECT_EQ(tests::modeOf(path), 0666U);
  writeTargetSeparator();
  const std::string log = kStamp + "[守护] 日志大小超过设定限制(1.5MB)，已自动清空。\n" + kRuleLine;
  EXPECT_EQ(readAll(path), log);
  print_out();  // at its own offset, the beginning
  EXPECT_EQ(readAll(path), "out" + log.substr(3));
  tests::writeAll(path, "");  // the streams no longer append
  writeTargetSeparator();
  EXPECT_EQ(readAll(path), std::string(log.size(), '\0') + kRuleLine);
}

}  // namespace
}  // namespace vorlatch
