#include "log/log_line.h"

#include <cstdio>

#include <gtest/gtest.h>

#include "tests/support/story.h"

namespace vorlatch {
namespace {

using tests::Lines;
using tests::Story;
using namespace std::chrono_literals;

TEST(LogLine, CarriesTheLocalTimeOfWriting) {
  Story story;
  story.openLog();
  writeLogLine("[%s] [守护] PID:%d\n", 12);
  story.run(61s);
  writeLogLine("[%s] [守护] PID:%d\n", 13);
  EXPECT_EQ(tests::readAll(story.logFile()),
            "[03-04 05:06:07] [守护] PID:12\n"
            "[03-04 05:07:08] [守护] PID:13\n");
}

TEST(LogLine, IsInTheFileAsSoonAsItIsWritten) {
  Story story;
  story.openLog();
  writeChapterSeparator();
  EXPECT_EQ(tests::readAll(story.logFile()),
            "[03-04 05:06:07] ========================================\n");
  writeTargetSeparator();
  EXPECT_EQ(story.takeLog(), (Lines{tests::kChapterRule, tests::kTargetRule}));
}

TEST(LogLine, IsFlushedWhereTheStreamKeepsLinesBack) {
  Story story;
  story.openLog();
  std::setvbuf(stderr, nullptr, _IOFBF, BUFSIZ);
  writeTargetSeparator();
  EXPECT_EQ(story.takeLog(), Lines{tests::kTargetRule});
}

TEST(LogLine, FollowsAStepOfTheWallClock) {
  Story story;
  story.openLog();
  story.device.stepWallClock(-3600);
  writeTargetSeparator();
  EXPECT_EQ(tests::readAll(story.logFile()),
            "[03-04 04:06:07] ----------------------------------------\n");
}

TEST(LogLine, WritesAnArgumentAsItIs) {
  Story story;
  story.openLog();
  writeLogLine("[%s] [进程] 目标: %s 已退出\n", "%s %n 100%");
  EXPECT_EQ(story.takeLog(), (Lines{"[进程] 目标: %s %n 100% 已退出"}));
}

}  // namespace
}  // namespace vorlatch
