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

const Dictionary kPreset{
    {"Enabled", true},
    {"AppConfigs",
     Dictionary{
         {"SpringBoard", Dictionary{{"Remark", "视图"},
                                    {"JetsamPriority", 210},
                                    {"NiceValue", -19},
                                    {"MemLimitActive", 0},
                                    {"MemLimitInactive", 0},
                                    {"CheckInterval", 0}}},
         {"backboardd", Dictionary{{"Remark", "触控"},
                                   {"JetsamPriority", 210},
                                   {"NiceValue", -20},
                                   {"MemLimitActive", 0},
                                   {"MemLimitInactive", 0},
                                   {"CheckInterval", 0}}},
         {"com.tencent.xin", Dictionary{{"Remark", "微信.xin"},
                                        {"JetsamPriority", 160},
                                        {"NiceValue", 0},
                                        {"MemLimitActive", 0},
                                        {"MemLimitInactive", 0},
                                        {"CheckInterval", 0}}},
         {"dasd", Dictionary{{"Remark", "后台刷新"},
                             {"JetsamPriority", -1},
                             {"NiceValue", 1},
                             {"MemLimitActive", 0},
                             {"MemLimitInactive", 0},
                             {"CheckInterval", 0}}},
         {"kbd", Dictionary{{"Remark", "键盘"},
                            {"JetsamPriority", -1},
                            {"NiceValue", -18},
                            {"MemLimitActive", 0},
                            {"MemLimitInactive", 0},
                            {"CheckInterval", 0}}},
         {"runningboardd", Dictionary{{"Remark", "任务调度"},
                                      {"JetsamPriority", -1},
                                      {"NiceValue", -17},
                                      {"MemLimitActive", 0},
                                      {"MemLimitInactive", 0},
                                      {"CheckInterval", 0}}},
         {"sharingd", Dictionary{{"Remark", "分享"},
                                 {"JetsamPriority", -1},
                                 {"NiceValue", -16},
                                 {"MemLimitActive", 0},
                                 {"MemLimitInactive", 0},
                                 {"CheckInterval", 0}}},
     }},
};

TEST(DefaultPreset, IsWrittenWhenThereIsNoPreferencesFile) {
  Story story;
  story.openLog();
  checkAndGenerateDefaultConfig();
  EXPECT_EQ(loadPreferences(), kPreset);
  EXPECT_EQ(tests::modeOf(story.preferencesFile()), 0666U);
  EXPECT_EQ(story.takeLog(), Lines{"[配置] 已生成默认预设参数"});
}

TEST(DefaultPreset, HoldsIntegersAndOneBoolean) {
  Story story;
  story.openLog();
  checkAndGenerateDefaultConfig();
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
