// The commands that change the preferences: what is written, what is said, and who is told.
#include <filesystem>

#include <gtest/gtest.h>

#include "config/default_preset.h"
#include "config/preferences.h"
#include "control/failure.h"
#include "control/preferences_edit.h"
#include "platform/property_list.h"
#include "tests/cli/edit_story.h"

namespace vorlatch::tests {
namespace {

using plist::Array;
using plist::Dictionary;

std::string xml(const Dictionary& preferences) {
  return platform::writeXmlPropertyList(preferences);
}

Dictionary enabledWith(const Dictionary& targets) {
  return {{"Enabled", true}, {"AppConfigs", targets}};
}

struct EditCase {
  Arguments arguments;
  std::string out;
  Dictionary after;
};

const Dictionary& before() {
  static const Dictionary preferences =
      enabledWith({{"alpha", Dictionary{{"NiceValue", 5}, {"Remark", "x"}, {"Own", Array{1, 2}}}},
                   {"beta", Dictionary{{"CheckInterval", 30}}},
                   {"empty", Dictionary{}},
                   {"odd", 7}});
  return preferences;
}

// Those preferences with one target's settings changed, or without it.
Dictionary beforeWith(const std::string& target, const Dictionary& settings) {
  Dictionary preferences = before();
  preferences.at("AppConfigs").as<Dictionary>()->insert_or_assign(target, settings);
  return preferences;
}
Dictionary beforeWithout(const std::vector<std::string>& targets) {
  Dictionary preferences = before();
  for (const std::string& target : targets) {
    preferences.at("AppConfigs").as<Dictionary>()->erase(target);
  }
  return preferences;
}

std::vector<EditCase> settingCases() {
  return {
      {{"set", "alpha", "NiceValue=-20"},
       "AppConfigs / alpha / NiceValue: 5 -> -20\n",
       beforeWith("alpha", {{"NiceValue", -20}, {"Remark", "x"}, {"Own", Array{1, 2}}})},
      {{"set", "empty", "JetsamPriority=highest", "MemLimitActive=2147483647",
        "MemLimitInactive=-1", "StripManaged=yes", "CheckInterval=0"},
       "AppConfigs / empty / CheckInterval: (none) -> 0\n"
       "AppConfigs / empty / JetsamPriority: (none) -> 210\n"
       "AppConfigs / empty / MemLimitActive: (none) -> 2147483647\n"
       "AppConfigs / empty / MemLimitInactive: (none) -> -1\n"
       "AppConfigs / empty / StripManaged: (none) -> true\n",
       beforeWith("empty", {{"JetsamPriority", 210},
                            {"MemLimitActive", INT32_MAX},
                            {"MemLimitInactive", -1},
                            {"StripManaged", true},
                            {"CheckInterval", 0}})},
      {{"set", "com.tencent.xin", "Remark=微信=x", "JetsamPriority=999", "StripManaged=off"},
       "AppConfigs / com.tencent.xin / JetsamPriority: (none) -> 999\n"
       "AppConfigs / com.tencent.xin / Remark: (none) -> 微信=x\n"
       "AppConfigs / com.tencent.xin / StripManaged: (none) -> false\n",
       beforeWith("com.tencent.xin",
                  {{"Remark", "微信=x"}, {"JetsamPriority", 999}, {"StripManaged", false}})},
      // The last of two counts.
      {{"set", "beta", "CheckInterval=1", "Remark=", "CheckInterval=60"},
       "AppConfigs / beta / CheckInterval: 30 -> 60\n"
       "AppConfigs / beta / Remark: (none) -> \n",
       beforeWith("beta", {{"CheckInterval", 60}, {"Remark", ""}})},
  };
}

std::vector<EditCase> removingCases() {
  return {
      {{"unset", "alpha", "Remark"},
       "AppConfigs / alpha / Remark: x -> (none)\n",
       beforeWith("alpha", {{"NiceValue", 5}, {"Own", Array{1, 2}}})},
      // A key that only this file knows goes as well; what was never set does not matter.
      {{"unset", "alpha", "Own", "NiceValue", "StripManaged"},
       "AppConfigs / alpha / NiceValue: 5 -> (none)\n"
       "AppConfigs / alpha / Own: 2 items -> (none)\n",
       beforeWith("alpha", {{"Remark", "x"}})},
      {{"unset", "beta", "CheckInterval"},
       "AppConfigs / beta / CheckInterval: 30 -> (none)\n",
       beforeWith("beta", {})},
      {{"remove", "alpha", "beta"},
       "AppConfigs / alpha / NiceValue: 5 -> (none)\n"
       "AppConfigs / alpha / Own: 2 items -> (none)\n"
       "AppConfigs / alpha / Remark: x -> (none)\n"
       "AppConfigs / beta / CheckInterval: 30 -> (none)\n",
       beforeWithout({"alpha", "beta"})},
      {{"remove", "odd", "empty", "odd"},
       "AppConfigs / empty: 0 entries -> (none)\nAppConfigs / odd: 7 -> (none)\n",
       beforeWithout({"empty", "odd"})},
  };
}

std::vector<EditCase> switchingCases() {
  Dictionary off = before();
  off.insert_or_assign("Enabled", false);
  return {{{"disable"}, "Enabled: true -> false\n", off}};
}

void expectEdits(const std::vector<EditCase>& cases) {
  EditStory story;
  for (const EditCase& each : cases) {
    SCOPED_TRACE(each.arguments.at(0) + " " + each.out);
    story.writePreferences(before());
    const FileVersion untouched = story.version();
    EXPECT_EQ(story.edit(with(each.arguments, {"--dry-run"})),
              (EditResult{{0, each.out + "nothing was written\n", ""}, xml(before()), 0}));
    EXPECT_EQ(story.version(), untouched);
    EXPECT_EQ(story.edit(with(each.arguments, {"--no-apply"})),
              (EditResult{{0, each.out, ""}, xml(each.after), 0}));
    story.writePreferences(before());
    EXPECT_EQ(story.edit(each.arguments), (EditResult{{0, each.out, ""}, xml(each.after), 1}));
    EXPECT_EQ(modeOf(story.preferencesFile()), 0666U);
    EXPECT_EQ(story.filesBeside(), Lines{"com.zel.vorlatch.plist"});
  }
}

TEST(Edit, SetAddsATargetAndTellsTheDaemon) {
  ControlStory story;
  story.writeTargets({});
  story.device.launch({.name = "backboardd"});
  story.startAndSettle();
  EXPECT_EQ(story.run({"set", "backboardd", "NiceValue=-5", "JetsamPriority=foreground"}),
            (Output{0,
                    "AppConfigs / backboardd / JetsamPriority: (none) -> 100\n"
                    "AppConfigs / backboardd / NiceValue: (none) -> -5\n",
                    ""}));
  EXPECT_EQ(
      readAll(story.preferencesFile()),
      platform::writeXmlPropertyList(Dictionary{
          {"Enabled", true},
          {"AppConfigs",
           Dictionary{{"backboardd", Dictionary{{"JetsamPriority", 100}, {"NiceValue", -5}}}}}}));
  EXPECT_EQ(modeOf(story.preferencesFile()), 0666U);
  story.Story::run(150ms);
  EXPECT_EQ(story.takeLog().at(1), "[进程] 目标: backboardd 已启动 PID: 100 ");
}

TEST(Edit, SetChangesWhatIsNamedAndNothingElse) {
  expectEdits(settingCases());
}

TEST(Edit, UnsetAndRemoveTakeOutWhatIsNamedAndNothingElse) {
  expectEdits(removingCases());
}

TEST(Edit, DisableSwitchesOff) {
  expectEdits(switchingCases());
}

TEST(Edit, EnableSwitchesOnWhateverStoodThere) {
  EditStory story;
  const std::string on = xml({{"Enabled", true}});
  story.writePreferences({});
  EXPECT_EQ(story.edit({"enable"}), (EditResult{{0, "Enabled: (none) -> true\n", ""}, on, 1}));
  story.writePreferences({{"Enabled", false}});
  EXPECT_EQ(story.edit({"enable"}), (EditResult{{0, "Enabled: false -> true\n", ""}, on, 1}));
  // A number that reads as true becomes a truth value.
  story.writePreferences({{"Enabled", 1}});
  EXPECT_EQ(story.edit({"enable"}), (EditResult{{0, "Enabled: 1 -> true\n", ""}, on, 1}));
}

TEST(Edit, EveryBandsNameIsTakenAndWrittenAsItsNumber) {
  EditStory story;
  story.writeTargets({});
  const std::vector<std::pair<std::string, int>> bands{{"idle", 0},
                                                       {"background", 30},
                                                       {"mail", 40},
                                                       {"phone", 50},
                                                       {"freezer", 75},
                                                       {"ui-support", 80},
                                                       {"foreground", 100},
                                                       {"foreground-support", 90},
                                                       {"audio-and-accessory", 120},
                                                       {"conductor", 130},
                                                       {"driver", 150},
                                                       {"home", 160},
                                                       {"executive", 170},
                                                       {"important", 180},
                                                       {"telephony", 190},
                                                       {"default", 180},
                                                       {"critical", 190},
                                                       {"highest", 210}};
  for (const auto& [name, number] : bands) {
    EXPECT_EQ(story.run({"set", "a", "JetsamPriority=" + name}).status, 0) << name;
    EXPECT_EQ(story.bytes(), xml(enabledWith({{"a", Dictionary{{"JetsamPriority", number}}}})))
        << name;
  }
}

TEST(Edit, WhatIsAlreadySoIsNotWrittenAndNobodyIsTold) {
  EditStory story;
  Dictionary preferences = defaultPreset();
  preferences.at("AppConfigs").as<Dictionary>()->insert_or_assign("odd", 7);
  story.writePreferences(preferences);
  const FileVersion untouched = story.version();
  for (const Arguments& arguments :
       std::vector<Arguments>{{"set", "kbd", "NiceValue=-18", "Remark=键盘", "JetsamPriority=-1"},
                              {"unset", "kbd", "StripManaged"},
                              {"enable"},
                              {"preset"},
                              {"preset", "--replace"}}) {
    EXPECT_EQ(story.edit(arguments),
              (EditResult{{0, "nothing to change\n", ""}, untouched.bytes, 0}))
        << arguments[0];
    EXPECT_EQ(story.edit(with(arguments, {"--dry-run"})),
              (EditResult{{0, "nothing to change\nnothing was written\n", ""}, untouched.bytes, 0}))
        << arguments[0];
    EXPECT_EQ(story.version(), untouched) << arguments[0];
  }
}

TEST(Edit, AMissingFileIsMade) {
  EditStory story;
  EXPECT_EQ(story.edit({"set", "alpha", "NiceValue=1", "--dry-run"}),
            (EditResult{{0,
                         "AppConfigs / alpha / NiceValue: (none) -> 1\nnothing was written\n"
                         "the daemon is switched off; vorlatchctl enable switches it on\n",
                         ""},
                        "",
                        0}));
  EXPECT_EQ(story.filesBeside(), Lines{});
  EXPECT_EQ(story.edit({"set", "alpha", "NiceValue=1"}),
            (EditResult{{0,
                         "AppConfigs / alpha / NiceValue: (none) -> 1\n"
                         "the daemon is switched off; vorlatchctl enable switches it on\n",
                         ""},
                        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                        "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                        "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                        "<plist version=\"1.0\">\n<dict>\n"
                        "\t<key>AppConfigs</key>\n\t<dict>\n"
                        "\t\t<key>alpha</key>\n\t\t<dict>\n"
                        "\t\t\t<key>NiceValue</key>\n\t\t\t<integer>1</integer>\n"
                        "\t\t</dict>\n\t</dict>\n</dict>\n</plist>\n",
                        1}));
  EXPECT_EQ(modeOf(story.preferencesFile()), 0666U);
}

// What another editor writes between the reading and the writing is not lost, lock or no lock.
TEST(EditPreferences, BeginsAgainWhenTheFileChangesMeanwhile) {
  EditStory story;
  story.writePreferences({{"Mine", 1}});
  int calls = 0;
  const control::Edit edit = control::editPreferences(
      [&](Dictionary& preferences) {
        if (++calls == 1) story.writePreferences({{"Mine", 1}, {"Theirs", 2}});
        preferences.insert_or_assign("Added", true);
      },
      true);
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(xml(edit.before), xml({{"Mine", 1}, {"Theirs", 2}}));
  EXPECT_EQ(story.bytes(), xml({{"Added", true}, {"Mine", 1}, {"Theirs", 2}}));
}

TEST(EditPreferences, GivesUpOnAFileThatNeverStandsStill) {
  EditStory story;
  story.writePreferences({});
  int calls = 0;
  try {
    control::editPreferences(
        [&](Dictionary& preferences) {
          story.writePreferences({{"Theirs", ++calls}});
          preferences.insert_or_assign("Added", true);
        },
        true);
    ADD_FAILURE() << "it was written";
  } catch (const control::Failure& failure) {
    EXPECT_EQ(failure.status, 3);
    EXPECT_EQ(failure.message, story.preferencesFile() +
                                   " is changed by another program all the time; nothing is "
                                   "written");
  }
  EXPECT_EQ(story.bytes(), xml({{"Theirs", calls}}));
}

TEST(Edit, SquareBracketsAreCharactersLikeAnyOther) {
  EditStory story;
  story.writeTargets({{"[a,b]", Dictionary{}}, {"a", Dictionary{}}});
  EXPECT_EQ(story.edit({"set", "[a,b]", "Remark=[x]"}).output,
            (Output{0, "AppConfigs / [a,b] / Remark: (none) -> [x]\n", ""}));
  EXPECT_EQ(story.edit({"set", "a", "[Remark=1]"}).output,
            (Output{2, "", "vorlatchctl: there is no key [Remark; did you mean Remark?\n"}));
  EXPECT_EQ(story.edit({"remove", "[a,b]"}).output,
            (Output{0, "AppConfigs / [a,b] / Remark: [x] -> (none)\n", ""}));
}

}  // namespace
}  // namespace vorlatch::tests
