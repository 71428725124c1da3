#include "config/default_preset.h"

#include <filesystem>

#include <gtest/gtest.h>

#include "config/preferences.h"
#include "tests/support/story.h"

namespace vorlatch {
namespace {

using tests::Lines;
using tests::Story;

TEST(DefaultPreset, IsWrittenWithIntegersAndABoolean) {
  Story story;
  story.openLog();
  checkAndGenerateDefaultConfig();
  EXPECT_EQ(loadPreferences(), defaultPreset());
  EXPECT_EQ(tests::modeOf(story.preferencesFile()), 0666U);
  EXPECT_EQ(story.takeLog(), Lines{"[配置] 已生成默认预设参数"});
  // Numbers of different types are equal above.
  const std::string xml = tests::readAll(story.preferencesFile());
  EXPECT_NE(xml.find("<true/>"), xml.npos);
  EXPECT_NE(xml.find("<integer>-19</integer>"), xml.npos);
  EXPECT_EQ(xml.find("<real>"), xml.npos);
}

TEST(DefaultPreset, LeavesAnExistingFileUntouched) {
  Story story;
  story.openLog();
  tests::writeAll(story.preferencesFile(), "no property list");
  std::filesystem::permissions(story.preferencesFile(), std::filesystem::perms(0600));
  checkAndGenerateDefaultConfig();
  EXPECT_EQ(tests::readAll(story.preferencesFile()), "no property list");
  EXPECT_EQ(tests::modeOf(story.preferencesFile()), 0600U);
  EXPECT_EQ(story.takeLog(), Lines{});
}

TEST(DefaultPreset, FailedWriteLeavesTheDaemonSwitchedOff) {
  Story story;
  story.openLog();
  std::filesystem::rename(story.file(""), story.rootPath("/elsewhere"));
  checkAndGenerateDefaultConfig();
  EXPECT_EQ(tests::readAll(story.rootPath("/elsewhere/Vorlatch.log")),
            "[03-04 05:06:07] [配置] 已生成默认预设参数\n");
  EXPECT_FALSE(isEnabled(loadPreferences()));
}

}  // namespace
}  // namespace vorlatch
