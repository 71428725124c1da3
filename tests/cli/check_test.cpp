// What check finds in preferences that can be read: every kind of finding, in both forms, in the
// exact words.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "config/default_preset.h"
#include "config/property_list_guard.h"
#include "platform/property_list.h"
#include "tests/cli/control_run.h"

namespace vorlatch::tests {
namespace {

using plist::Array;
using plist::Data;
using plist::Date;
using plist::Dictionary;
using plist::Value;

struct Finding {
  Lines path;
  std::string kind;
  std::string message;
};

constexpr const char* kBoundJson =
    R"("bound": {
    "file_bytes": 524288,
    "memory_bytes": 2150000,
    "levels": 128
  })";

PropertyListSize sizeOf(const std::string& file) {
  return measurePropertyList(readAll(file)).value();
}

// The last line of the text. Of files as small as these, each share is above 0.
std::string sizeText(const std::string& file) {
  const PropertyListSize size = sizeOf(file);
  return file + ": takes " + std::to_string(size.memory_bytes / 21'500 + 1) +
         " % of the memory that the daemon gives it, 1 % of the bytes, " +
         std::to_string(size.levels) + " of 128 levels\n";
}

std::string sizeJson(const std::string& file) {
  const PropertyListSize size = sizeOf(file);
  return "\"size\": {\n    \"file_bytes\": " + std::to_string(size.file_bytes) +
         ",\n    \"memory_bytes\": " + std::to_string(size.memory_bytes) +
         ",\n    \"levels\": " + std::to_string(size.levels) + "\n  },\n  " + kBoundJson;
}

std::string textOf(const std::string& file, const std::vector<Finding>& findings) {
  std::string text = findings.empty() ? file + ": all in order\n" : "";
  for (const Finding& each : findings) {
    std::string where;
    for (const std::string& key : each.path) where += (where.empty() ? "" : " / ") + key;
    text += where + ": " + each.message + "\n";
  }
  return text + sizeText(file);
}

std::string jsonOf(const std::string& file, const std::vector<Finding>& findings) {
  std::string items;
  for (const Finding& each : findings) {
    std::string keys;
    for (const std::string& key : each.path) {
      keys += (keys.empty() ? "\n" : ",\n") + std::string(8, ' ') + "\"" + key + "\"";
    }
    items += (items.empty() ? "\n" : ",\n");
    items += "    {\n      \"path\": [" + keys + "\n      ],\n";
    items += "      \"kind\": \"" + each.kind + "\",\n";
    items += "      \"message\": \"" + each.message + "\"\n    }";
  }
  return "{\n  \"file\": \"" + file + "\",\n  \"findings\": [" +
         (items.empty() ? "" : items + "\n  ") + "],\n  " + sizeJson(file) + "\n}\n";
}

// Both forms of the answer.
void expectFindings(ControlStory& story, const std::vector<std::string>& options,
                    const std::vector<Finding>& findings) {
  const int status = findings.empty() ? 0 : 1;
  std::vector<std::string> arguments{"check"};
  arguments.insert(arguments.end(), options.begin(), options.end());
  EXPECT_EQ(story.run(arguments), (Output{status, textOf(story.preferencesFile(), findings), ""}));
  arguments.emplace_back("--json");
  EXPECT_EQ(story.run(arguments), (Output{status, jsonOf(story.preferencesFile(), findings), ""}));
}

// One finding or none in preferences that are otherwise in order.
void expectOfPreferences(const Dictionary& preferences, const std::vector<Finding>& findings) {
  ControlStory story;
  story.writePreferences(preferences);
  expectFindings(story, {"--no-processes"}, findings);
}

// The one finding about a value of a target's key; an empty message is none.
struct SettingCase {
  std::string key;
  Value value;
  std::string kind;
  std::string message;
};

void expectOfSettings(const std::vector<SettingCase>& cases) {
  ControlStory story;
  for (const SettingCase& each : cases) {
    SCOPED_TRACE(each.key + ": " + each.message);
    story.writeTargets({{"alpha", Dictionary{{each.key, each.value}}}});
    const std::vector<Finding> one{{{"AppConfigs", "alpha", each.key}, each.kind, each.message}};
    expectFindings(story, {"--no-processes"}, each.message.empty() ? std::vector<Finding>{} : one);
  }
}

TEST(Check, FindsNothingInThePreset) {
  ControlStory story;
  story.writePreferences(defaultPreset());
  expectFindings(story, {"--no-processes"}, {});
  for (const char* name : {"SpringBoard", "backboardd", "com.tencent.xin", "dasd", "kbd",
                           "runningboardd", "sharingd"}) {
    story.device.launch({.name = name});
  }
  expectFindings(story, {}, {});
}

TEST(Check, FindsNothingInValuesAtTheEndsOfTheirRanges) {
  expectOfSettings({{"NiceValue", -20, "", ""},
                    {"NiceValue", 20, "", ""},
                    {"JetsamPriority", -1, "", ""},
                    {"JetsamPriority", 210, "", ""},
                    {"JetsamPriority", 999, "", ""},
                    {"MemLimitActive", -1, "", ""},
                    {"MemLimitInactive", INT32_MAX, "", ""},
                    {"CheckInterval", 0, "", ""},
                    {"CheckInterval", INT32_MAX, "", ""},
                    {"StripManaged", false, "", ""},
                    {"Remark", "", "", ""}});
}

TEST(Check, FindsNumbersOutOfRange) {
  const std::string kind = "out-of-range";
  expectOfSettings({
      {"NiceValue", 21, kind, "is 21, outside -20 to 20; the daemon makes it 20"},
      {"NiceValue", INT64_MIN, kind,
       "is -9223372036854775808, outside -20 to 20; the daemon makes it -20"},
      {"CheckInterval", -1, kind, "is -1, outside 0 to 2147483647; it counts as none"},
      {"CheckInterval", std::int64_t{1} << 40, kind,
       "is 1099511627776, outside 0 to 2147483647; the daemon makes it 2147483647"},
      {"MemLimitActive", -2, kind,
       "is -2, outside -1 to 2147483647; the kernel takes it for the system's default"},
      {"MemLimitInactive", INT64_MIN, kind,
       "is -9223372036854775808, outside -1 to 2147483647; the kernel takes it for the system's "
       "default"},
      {"MemLimitActive", UINT64_MAX, kind,
       "is 18446744073709551615, outside -1 to 2147483647; the daemon makes it 2147483647"},
      {"JetsamPriority", 211, kind,
       "is 211, outside -1 to 210; no kernel has this band; refused, the daemon tries 21"},
      {"JetsamPriority", -2, kind,
       "is -2, outside -1 to 210; no kernel has this band, and it is refused"},
  });
}

TEST(Check, FindsNumbersOfAnotherType) {
  const std::string kind = "wrong-type";
  expectOfSettings({
      {"NiceValue", "-5", kind, "is a text (-5) and not an integer; the daemon reads it as -5"},
      {"NiceValue", "x", kind, "is a text (x) and not an integer; the daemon reads it as 0"},
      {"NiceValue", 2.5, kind,
       "is a real number (2.5) and not an integer; the daemon reads it as 2"},
      {"NiceValue", true, kind,
       "is a truth value (true) and not an integer; the daemon reads it as 1"},
      {"NiceValue", "30", kind,
       "is a text (30) and not an integer; the daemon reads it as 30, and the daemon makes it 20"},
      {"CheckInterval", "-5 s", kind,
       "is a text (-5 s) and not an integer; the daemon reads it as -5, and it counts as none"},
      {"MemLimitActive", 524288.5, kind,
       "is a real number (524288.5) and not an integer; the daemon reads it as 524288"},
      {"MemLimitInactive", Date{1}, kind,
       "is a date (date) and not an integer; the daemon reads it as 0"},
      {"MemLimitActive", Data{"abc"}, kind,
       "is data (3 bytes) and not an integer; the daemon reads it as 0"},
      {"JetsamPriority", Array{1, 2}, kind,
       "is a list (2 items) and not an integer; the daemon reads it as 0"},
      {"JetsamPriority", Dictionary{}, kind,
       "is a dictionary (0 entries) and not an integer; the daemon reads it as 0"},
      {"JetsamPriority", "home", kind,
       "is a text (home) and not an integer; the daemon reads it as 0"},
  });
}

TEST(Check, FindsTruthValuesAndRemarksOfAnotherType) {
  const std::string kind = "wrong-type";
  expectOfSettings({
      {"StripManaged", 1, kind,
       "is an integer (1) and no truth value; the daemon reads it as true"},
      {"StripManaged", "no", kind,
       "is a text (no) and no truth value; the daemon reads it as false"},
      {"StripManaged", Array{true}, kind,
       "is a list (1 items) and no truth value; the daemon reads it as false"},
      {"Remark", 7, kind, "is an integer and not a text"},
      {"Remark", Dictionary{}, kind, "is a dictionary and not a text"},
  });
}

TEST(Check, FindsUnknownKeysOfATarget) {
  const std::string kind = "unknown-key";
  expectOfSettings({
      {"NiceValu", 1, kind, "is unknown to the daemon; did you mean NiceValue?"},
      {"remark", "x", kind, "is unknown to the daemon; did you mean Remark?"},
      {"Own", Dictionary{}, kind, "is unknown to the daemon"},
  });
}

TEST(Check, FindsWhatIsMissingAtTheTop) {
  expectOfPreferences({}, {{{"Enabled"}, "missing", "is missing: the daemon is switched off"},
                           {{"AppConfigs"}, "missing", "is missing: there are no targets"}});
}

TEST(Check, FindsWhatIsUnknownAtTheTop) {
  expectOfPreferences(
      {{"Enabled", true},
       {"AppConfigs", Dictionary{}},
       {"enable", 1},
       {"AppConfig", 1},
       {"Zzz", 1}},
      {{{"AppConfig"}, "unknown-key", "is unknown to the daemon; did you mean AppConfigs?"},
       {{"Zzz"}, "unknown-key", "is unknown to the daemon"},
       {{"enable"}, "unknown-key", "is unknown to the daemon; did you mean Enabled?"}});
}

TEST(Check, FindsWrongTypesAtTheTop) {
  expectOfPreferences(
      {{"Enabled", "yes"}, {"AppConfigs", Array{}}, {"LogSizeLimit", 2097152.5}},
      {{{"Enabled"},
        "wrong-type",
        "is a text (yes) and no truth value; the daemon reads it as true"},
       {{"LogSizeLimit"},
        "wrong-type",
        "is a real number (2097152.5) and not an integer; the daemon reads it as 2097152"},
       {{"AppConfigs"},
        "wrong-type",
        "is a list and not a dictionary; the daemon reads it as missing"}});
}

TEST(Check, TakesEveryIntegerForTheLogsLimit) {
  ControlStory story;
  for (const Value& limit : {Value(0), Value(-1), Value(INT64_MIN), Value(UINT64_MAX)}) {
    story.writePreferences(
        {{"Enabled", false}, {"AppConfigs", Dictionary{}}, {"LogSizeLimit", limit}});
    expectFindings(story, {"--no-processes"}, {});
  }
}

TEST(Check, FindsTargetsThatAreNoDictionaries) {
  expectOfPreferences(
      {{"Enabled", true}, {"AppConfigs", Dictionary{{"alpha", 7}, {"微信", Data{"x"}}}}},
      {{{"AppConfigs", "alpha"},
        "wrong-type",
        "is an integer and not a dictionary; the daemon passes it over"},
       {{"AppConfigs", "微信"},
        "wrong-type",
        "is data and not a dictionary; the daemon passes it over"}});
}

TEST(Check, FindsTargetsThatMatchNothing) {
  ControlStory story;
  story.device.launch({.name = "alpha"});
  story.writeTargets({{"Alpha", Dictionary{}}, {"alpha", Dictionary{}}, {"beta", Dictionary{}}});
  const std::string nothing = "is the name or bundle identifier of no process that runs now";
  expectFindings(story, {},
                 {{{"AppConfigs", "Alpha"}, "no-match", nothing},
                  {{"AppConfigs", "beta"}, "no-match", nothing}});
  expectFindings(story, {"--no-processes"}, {});
}

TEST(Check, FindsTwoTargetsOfOneProcess) {
  ControlStory story;
  const std::string executable =
      story.installApp("X.app", Dictionary{{"CFBundleIdentifier", "com.example.x"}});
  const auto pid = story.device.launch({.name = "Example", .executable_path = executable});
  story.writeTargets({{"Example", Dictionary{}}, {"com.example.x", Dictionary{}}});
  expectFindings(story, {},
                 {{{"AppConfigs", "com.example.x"},
                   "same-process",
                   "finds the same process as Example (" + std::to_string(pid) +
                       "): both are applied to it, one after the other"}});
}

TEST(Check, ChangesNothing) {
  ControlStory story;
  story.writeTargets({{"alpha", Dictionary{{"NiceValue", 99}}}});
  const std::string bytes = readAll(story.preferencesFile());
  story.startAndSettle();
  EXPECT_EQ(story.run({"check"}).status, 1);
  EXPECT_EQ(readAll(story.preferencesFile()), bytes);
  // It asks for the priority list, and does nothing else.
  EXPECT_EQ(story.takeCalls(), (Lines{"memorystatus_control(1, 0, 0, null, 0) = 24",
                                      "memorystatus_control(1, 0, 0, buffer, 264) = 24"}));
  EXPECT_EQ(story.takeLog(), Lines{});
}

// No key commands the terminal; JSON has its own way to spell it.
TEST(Check, SpellsControlCharactersOut) {
  ControlStory story;
  story.writeTargets({{"\x1b[31m\n", 7}});
  EXPECT_EQ(story.run({"check"}),
            (Output{1,
                    "AppConfigs / ^[[31m^J: is an integer and not a dictionary; the daemon passes "
                    "it over\n" +
                        sizeText(story.preferencesFile()),
                    ""}));
  const std::string json = story.run({"check", "--json"}).out;
  EXPECT_NE(json.find("\"\\u001b[31m\\n\""), std::string::npos) << json;
}

TEST(Check, FindsTwoTargetsOfTheProcessThatAWatchTimerFinds) {
  ControlStory story;
  const std::string app =
      story.installApp("Two.app", Dictionary{{"CFBundleIdentifier", "org.two.app"}});
  story.device.launch({.name = "one", .executable_path = app, .pid = 201});
  story.device.launch({.name = "two", .executable_path = app, .pid = 202});
  story.writeTargets({{"org.two.app", Dictionary{{"CheckInterval", 5}}}, {"two", Dictionary{}}});
  EXPECT_EQ(story.run({"check"}),
            (Output{1,
                    "AppConfigs / two: finds the same process as org.two.app (202): both are "
                    "applied to it, one after the other\n" +
                        sizeText(story.preferencesFile()),
                    ""}));
}

}  // namespace
}  // namespace vorlatch::tests
