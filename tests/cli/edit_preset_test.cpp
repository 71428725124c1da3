// The preset put in beside what is configured, over it, and in place of the whole file; and what an
// edit says in JSON.
#include <filesystem>

#include <gtest/gtest.h>

#include "config/default_preset.h"
#include "platform/property_list.h"
#include "tests/cli/edit_story.h"

namespace vorlatch::tests {
namespace {

using plist::Dictionary;

std::string xml(const Dictionary& preferences) {
  return platform::writeXmlPropertyList(preferences);
}

Dictionary& targetsIn(Dictionary& preferences) {
  return *preferences.at("AppConfigs").as<Dictionary>();
}

// The preset switched off, without one target, with one changed and one more.
Dictionary edited() {
  Dictionary preferences = defaultPreset();
  preferences.insert_or_assign("Enabled", false);
  preferences.insert_or_assign("LogSizeLimit", 1000);
  targetsIn(preferences).erase("kbd");
  targetsIn(preferences).insert_or_assign("dasd", Dictionary{{"NiceValue", 3}});
  targetsIn(preferences).insert_or_assign("alpha", Dictionary{{"NiceValue", 1}});
  return preferences;
}

constexpr const char* kKeyboardAdded =
    "AppConfigs / kbd / CheckInterval: (none) -> 0\n"
    "AppConfigs / kbd / JetsamPriority: (none) -> -1\n"
    "AppConfigs / kbd / MemLimitActive: (none) -> 0\n"
    "AppConfigs / kbd / MemLimitInactive: (none) -> 0\n"
    "AppConfigs / kbd / NiceValue: (none) -> -18\n"
    "AppConfigs / kbd / Remark: (none) -> 键盘\n";
constexpr const char* kDasdReplaced =
    "AppConfigs / dasd / NiceValue: 3 -> 1\n"
    "AppConfigs / dasd / CheckInterval: (none) -> 0\n"
    "AppConfigs / dasd / JetsamPriority: (none) -> -1\n"
    "AppConfigs / dasd / MemLimitActive: (none) -> 0\n"
    "AppConfigs / dasd / MemLimitInactive: (none) -> 0\n"
    "AppConfigs / dasd / Remark: (none) -> 后台刷新\n";

void expectPreset(const Arguments& arguments, const std::string& out, const Dictionary& after) {
  const std::string hint = after.contains("LogSizeLimit")
                               ? "the daemon is switched off; vorlatchctl enable switches it on\n"
                               : "";  // the preset alone is switched on
  EditStory story;
  story.writePreferences(edited());
  EXPECT_EQ(story.edit(with(arguments, {"--dry-run"})),
            (EditResult{{0, out + "nothing was written\n" + hint, ""}, xml(edited()), 0}));
  EXPECT_EQ(story.edit(with(arguments, {"--no-apply"})),
            (EditResult{{0, out + hint, ""}, xml(after), 0}));
  story.writePreferences(edited());
  EXPECT_EQ(story.edit(arguments), (EditResult{{0, out + hint, ""}, xml(after), 1}));
  EXPECT_EQ(modeOf(story.preferencesFile()), 0666U);
  const FileVersion untouched = story.version();
  EXPECT_EQ(story.edit(arguments),
            (EditResult{{0, "nothing to change\n" + hint, ""}, xml(after), 0}));
  EXPECT_EQ(story.version(), untouched);
}

TEST(EditPreset, AddsTheTargetsThatAreMissing) {
  Dictionary after = edited();
  Dictionary preset = defaultPreset();
  targetsIn(after).insert_or_assign("kbd", targetsIn(preset).at("kbd"));
  expectPreset({"preset"}, kKeyboardAdded, after);
}

TEST(EditPreset, ReplacesTheTargetsThatItHas) {
  Dictionary after = edited();
  Dictionary preset = defaultPreset();
  targetsIn(after).insert_or_assign("kbd", targetsIn(preset).at("kbd"));
  targetsIn(after).insert_or_assign("dasd", targetsIn(preset).at("dasd"));
  expectPreset({"preset", "--replace"}, std::string(kDasdReplaced) + kKeyboardAdded, after);
}

TEST(EditPreset, ReplacesTheWholeFile) {
  expectPreset({"preset", "--replace-file"},
               std::string("AppConfigs / alpha / NiceValue: 1 -> (none)\n") + kDasdReplaced +
                   kKeyboardAdded +
                   "Enabled: false -> true\n"
                   "LogSizeLimit: 1000 -> (none)\n",
               defaultPreset());
}

TEST(EditPreset, ReplacesAFileThatCannotBeRead) {
  EditStory story;
  for (const std::string bytes : {"", "no property list", "bplist00", "<plist><array/></plist>"}) {
    writeAll(story.preferencesFile(), bytes);
    EXPECT_EQ(story.edit({"preset", "--replace-file", "--dry-run"}).bytes, bytes);
    const EditResult result = story.edit({"preset", "--replace-file"});
    EXPECT_EQ(result.output.status, 0);
    EXPECT_EQ(result.output.err, "");
    EXPECT_EQ(result.bytes, xml(defaultPreset()));
    EXPECT_EQ(result.posts, 1);
  }
}

TEST(EditPreset, MakesAMissingFile) {
  EditStory story;
  const EditResult result = story.edit({"preset", "--replace-file"});
  EXPECT_EQ(result.output.status, 0);
  EXPECT_EQ(result.bytes, xml(defaultPreset()));
  EXPECT_EQ(result.posts, 1);
}

std::string jsonOfChange(const std::string& written, const std::string& applied) {
  return "{\n"
         "  \"changes\": [\n"
         "    {\n"
         "      \"path\": [\n"
         "        \"AppConfigs\",\n"
         "        \"alpha\",\n"
         "        \"NiceValue\"\n"
         "      ],\n"
         "      \"before\": 1,\n"
         "      \"after\": -5\n"
         "    },\n"
         "    {\n"
         "      \"path\": [\n"
         "        \"AppConfigs\",\n"
         "        \"alpha\",\n"
         "        \"StripManaged\"\n"
         "      ],\n"
         "      \"before\": null,\n"
         "      \"after\": true\n"
         "    }\n"
         "  ],\n"
         "  \"written\": " +
         written + ",\n  \"applied\": " + applied + "\n}\n";
}

TEST(EditJson, SaysWhatChangedWhetherItWasWrittenAndWhetherTheDaemonWasTold) {
  EditStory story;
  const Arguments arguments{"set", "alpha", "NiceValue=-5", "StripManaged=1", "--json"};
  const Dictionary before{{"AppConfigs", Dictionary{{"alpha", Dictionary{{"NiceValue", 1}}}}}};
  const std::string after = xml({{"AppConfigs", Dictionary{{"alpha", Dictionary{
                                                                         {"NiceValue", -5},
                                                                         {"StripManaged", true},
                                                                     }}}}});
  story.writePreferences(before);
  EXPECT_EQ(story.edit(with(arguments, {"--dry-run"})),
            (EditResult{{0, jsonOfChange("false", "false"), ""}, xml(before), 0}));
  EXPECT_EQ(story.edit(with(arguments, {"--no-apply"})),
            (EditResult{{0, jsonOfChange("true", "false"), ""}, after, 0}));
  EXPECT_EQ(story.edit(arguments),
            (EditResult{
                {0, "{\n  \"changes\": [],\n  \"written\": false,\n  \"applied\": false\n}\n", ""},
                after,
                0}));
  story.writePreferences(before);
  EXPECT_EQ(story.edit(arguments), (EditResult{{0, jsonOfChange("true", "true"), ""}, after, 1}));
}

TEST(EditJson, GivesWhatATakenOutTargetHeld) {
  EditStory story;
  story.writePreferences({{"AppConfigs", Dictionary{{"odd", 7}, {"空", Dictionary{}}}}});
  EXPECT_EQ(story.edit({"--json", "remove", "odd", "空"}),
            (EditResult{{0,
                         "{\n"
                         "  \"changes\": [\n"
                         "    {\n"
                         "      \"path\": [\n"
                         "        \"AppConfigs\",\n"
                         "        \"odd\"\n"
                         "      ],\n"
                         "      \"before\": 7,\n"
                         "      \"after\": null\n"
                         "    },\n"
                         "    {\n"
                         "      \"path\": [\n"
                         "        \"AppConfigs\",\n"
                         "        \"空\"\n"
                         "      ],\n"
                         "      \"before\": {},\n"
                         "      \"after\": null\n"
                         "    }\n"
                         "  ],\n"
                         "  \"written\": true,\n"
                         "  \"applied\": true\n"
                         "}\n",
                         ""},
                        xml({{"AppConfigs", Dictionary{}}}),
                        1}));
}

}  // namespace
}  // namespace vorlatch::tests
