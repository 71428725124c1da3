#include "config/default_preset.h"

#include <filesystem>

#include <gtest/gtest.h>

#include "config/preferences.h"
#include "tests/support/story.h"

namespace vorlatch {
namespace {

using plist::Dictionary;
using tests::Lines;
using tests::Story;

Dictionary target(const char* remark, int band, int nice_value) {
  return {{"Remark", remark},    {"JetsamPriority", band}, {"NiceValue", nice_value},
          {"MemLimitActive", 0}, {"MemLimitInactive", 0},  {"CheckInterval", 0}};
}

TEST(DefaultPreset, IsWrittenWhenThereIsNoPreferencesFile) {
  Story story;
  story.openLog();
  checkAndGenerateDefaultConfig();
  EXPECT_EQ(loadPreferences(),
            (Dictionary{{"Enabled", true},
                        {"AppConfigs", Dictionary{{"SpringBoard", target("视图", 210, -19)},
                                                  {"backboardd", target("触控", 210, -20)},
                                                  {"com.tencent.xin", target("微信.xin", 160, 0)},
                                                  {"dasd", target("后台刷新", -1, 1)},
                                                  {"kbd", target("键盘", -1, -18)},
                                                  {"runningboardd", target("任务调度", -1, -17)},
                                                  {"sharingd", target("分享", -1, -16)}}}}));
  EXPECT_EQ(tests::modeOf(story.preferencesFile()), 0666U);
  EXPECT_EQ(story.takeLog(), Lines{"[配置] 已生成默认预设参数"});
  // Numbers of different types are equal above: the file has integers and one boolean.
  const std::string xml = tests::readAll(story.preferencesFile());
  EXPECT_NE(xml.find("<true/>"), xml.npos);
  EXPECT_NE(xml.find("<integer>-19</integer>"), xml.npos);
  EXPECT_EQ(xml.find("<real>"), xml.npos);
}

TEST(DefaultPreset, LeavesAnExistingFileUntouched) {
  Story story;
  story.openLog();
  for (const char* contents : {"", "no property list", "<plist><dict/></plist>"}) {
    tests::writeAll(story.preferencesFile(), contents);
    std::filesystem::permissions(story.preferencesFile(), std::filesystem::perms(0600));
    checkAndGenerateDefaultConfig();
    EXPECT_EQ(tests::readAll(story.preferencesFile()), contents);
    EXPECT_EQ(tests::modeOf(story.preferencesFile()), 0600U);
    EXPECT_EQ(story.takeLog(), Lines{});
    EXPECT_FALSE(isEnabled(loadPreferences()));
  }
}

TEST(DefaultPreset, FailedWriteLeavesTheDaemonSwitchedOff) {
  Story story;
  story.openLog();
  const std::string log = story.logFile();
  std::filesystem::rename(story.file(""), story.rootPath("/elsewhere"));
  checkAndGenerateDefaultConfig();
  EXPECT_EQ(tests::readAll(story.rootPath("/elsewhere/Vorlatch.log")),
            "[03-04 05:06:07] [配置] 已生成默认预设参数\n");
  EXPECT_FALSE(isEnabled(loadPreferences()));
}

}  // namespace
}  // namespace vorlatch
