// vorlatchctl check: every kind of finding, in both forms, in the exact words; files that cannot be
// read as preferences; and a file that it is given.
#include <sys/stat.h>

#include <filesystem>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "config/default_preset.h"
#include "platform/property_list.h"
#include "tests/cli/control_run.h"
#include "tests/support/text.h"

namespace vorlatch::tests {
namespace {

using plist::Data;
using plist::Date;

// The command finds this, and then says how much of the bound the file takes.
void expectFindings(ControlStory& story, const std::string& findings,
                    const std::string& line = "check --no-processes") {
  const std::string answer = story.answer(line);
  const std::size_t size = answer.find("{preferences}: takes ");
  ASSERT_NE(size, answer.npos) << answer;
  EXPECT_EQ(answer.substr(0, size), findings.empty() ? "{preferences}: all in order\n" : findings);
  EXPECT_EQ(answer.ends_with("\nexit 1\n"), !findings.empty());
}

std::string checkJson(const std::string& findings, const std::string& size) {
  return pretty(R"({"file": "{preferences}", "findings": [)" + findings + R"(], "size": )" + size +
                R"(, "bound": {"file_bytes": 524288, "memory_bytes": 2150000, "levels": 128}})");
}

TEST(Check, FindsNothingInThePresetOrRanges) {
  ControlStory story;
  story.writePreferences(defaultPreset());
  expectFindings(story, "");
  for (const char* name : {"SpringBoard", "backboardd", "com.tencent.xin", "dasd", "kbd",
                           "runningboardd", "sharingd"}) {
    story.device.launch({.name = name});
  }
  expectFindings(story, "", "check");
  const Dictionary targets = dictionary(R"({
    "lowest": {"NiceValue": -20, "JetsamPriority": -1, "MemLimitActive": -1, "CheckInterval": 0,
               "StripManaged": false, "Remark": ""},
    "highest": {"NiceValue": 20, "JetsamPriority": 210, "MemLimitInactive": 2147483647,
                "CheckInterval": 2147483647},
    "beyond": {"JetsamPriority": 999}})");
  for (const plist::Value& limit : Array{0, -1, INT64_MIN, UINT64_MAX}) {
    story.writePreferences({{"Enabled", false}, {"AppConfigs", targets}, {"LogSizeLimit", limit}});
    expectFindings(story, "");
  }
}

// Values of keys, and what is said of each.
TEST(Check, FindsWrongValues) {
  std::istringstream cases(
      R"(CheckInterval=1099511627776: is 1099511627776, outside 0 to 2147483647; the daemon makes it 2147483647
JetsamPriority=211: is 211, outside -1 to 210; no kernel has this band; refused, the daemon tries 21
MemLimitActive=18446744073709551615: is 18446744073709551615, outside -1 to 2147483647; the daemon makes it 2147483647
CheckInterval=-1: is -1, outside 0 to 2147483647; it counts as none
MemLimitInactive=-2: is -2, outside -1 to 2147483647; the kernel takes it for the system's default
JetsamPriority=-2: is -2, outside -1 to 210; no kernel has this band, and it is refused
NiceValue=-9223372036854775808: is -9223372036854775808, outside -20 to 20; the daemon makes it -20
CheckInterval="-5 s": is a text (-5 s) and not an integer; the daemon reads it as -5, and it counts as none
JetsamPriority=[1, 2]: is a list (2 items) and not an integer; the daemon reads it as 0
MemLimitActive=524288.5: is a real number (524288.5) and not an integer; the daemon reads it as 524288
Remark=7: is an integer and not a text
StripManaged=1: is an integer (1) and no truth value; the daemon reads it as true
JetsamPriority={}: is a dictionary (0 entries) and not an integer; the daemon reads it as 0
StripManaged="no": is a text (no) and no truth value; the daemon reads it as false
NiceValue=true: is a truth value (true) and not an integer; the daemon reads it as 1
NiceValue="30": is a text (30) and not an integer; the daemon reads it as 30, and the daemon makes it 20
)");
  ControlStory story;
  for (std::string line; std::getline(cases, line);) {
    SCOPED_TRACE(line);
    const std::size_t equals = line.find('=');
    const std::size_t colon = line.find(": is ");
    const std::string key = line.substr(0, equals);
    const std::string value = line.substr(equals + 1, colon - equals - 1);
    story.writeTargets(dictionary(R"({"alpha": {")" + key + "\": " + value + "}}"));
    expectFindings(story, "AppConfigs / alpha / " + key + line.substr(colon) + "\n");
  }
  const Dictionary no_json{{"MemLimitInactive", Date{1}}, {"MemLimitActive", Data{"abc"}}};
  story.writeTargets({{"alpha", no_json}});
  expectFindings(
      story,
      R"(AppConfigs / alpha / MemLimitActive: is data (3 bytes) and not an integer; the daemon reads it as 0
AppConfigs / alpha / MemLimitInactive: is a date (date) and not an integer; the daemon reads it as 0
)");
}

TEST(Check, FindsWrongAndUnknownKeys) {
  const std::vector<std::pair<std::string, std::string>> cases{
      {"{}", R"(Enabled: is missing: the daemon is switched off
AppConfigs: is missing: there are no targets
)"},
      {R"({"Enabled": "yes", "AppConfigs": [], "LogSizeLimit": 2097152.5})",
       R"(Enabled: is a text (yes) and no truth value; the daemon reads it as true
LogSizeLimit: is a real number (2097152.5) and not an integer; the daemon reads it as 2097152
AppConfigs: is a list and not a dictionary; the daemon reads it as missing
)"},
      {R"({"Enabled": true, "enable": 1, "AppConfig": 1, "Zzz": 1, "AppConfigs": {
           "alpha": {"NiceValu": 1, "Own": {}}, "gamma": 7, "微信": "text"}})",
       R"(AppConfig: is unknown to the daemon; did you mean AppConfigs?
Zzz: is unknown to the daemon
enable: is unknown to the daemon; did you mean Enabled?
AppConfigs / alpha / NiceValu: is unknown to the daemon; did you mean NiceValue?
AppConfigs / alpha / Own: is unknown to the daemon
AppConfigs / gamma: is an integer and not a dictionary; the daemon passes it over
AppConfigs / 微信: is a text and not a dictionary; the daemon passes it over
)"}};
  ControlStory story;
  for (const auto& [preferences, findings] : cases) {
    story.writePreferences(dictionary(preferences));
    expectFindings(story, findings);
  }
}

// It asks for the priority list, and does nothing else.
TEST(Check, FindsTargetsThatMatchNothing) {
  ControlStory story;
  story.device.launch({.name = "alpha"});
  story.installApp("Closed", "org.closed", "Closed", "关");
  story.writeTargets({{"Alpha", Dictionary{}},
                      {"Closed", Dictionary{}},
                      {"alpha", Dictionary{}},
                      {"beta", Dictionary{}},
                      {"org.closed", Dictionary{}}});
  const std::string bytes = readAll(story.preferencesFile());
  story.startAndSettle();
  expectFindings(
      story,
      R"(AppConfigs / Alpha: is the name or bundle identifier of no running process and no installed app
AppConfigs / beta: is the name or bundle identifier of no running process and no installed app
)",
      "check");
  expectFindings(story, "");
  EXPECT_EQ(readAll(story.preferencesFile()), bytes);
  EXPECT_EQ(story.takeCalls(), (Lines{"memorystatus_control(1, 0, 0, null, 0) = 48",
                                      "memorystatus_control(1, 0, 0, buffer, 288) = 48"}));
  EXPECT_EQ(story.takeLog(), Lines{});
}

// A pass finds the first process of the app, a watch timer the second.
TEST(Check, FindsTwoTargetsOfOneProcess) {
  ControlStory story;
  const auto app = story.installApp("X.app", Dictionary{{"CFBundleIdentifier", "com.x"}});
  story.device.launch({.name = "One", .executable_path = app, .pid = 201});
  story.device.launch({.name = "Two", .executable_path = app, .pid = 202});
  const auto expect_same_as = [&](const std::string& name, int pid, int interval_s) {
    story.writeTargets(
        {{name, Dictionary{}}, {"com.x", Dictionary{{"CheckInterval", interval_s}}}});
    expectFindings(story,
                   text("AppConfigs / com.x: finds the same process as ", name, " (", pid,
                        "): both are applied to it, one after the other\n"),
                   "check");
  };
  expect_same_as("One", 201, 0);
  expect_same_as("Two", 202, 5);
}

// Each kind of finding. No key commands the terminal; JSON has its own way to spell it.
TEST(Check, AsJson) {
  ControlStory story;
  const auto app = story.installApp("X.app", Dictionary{{"CFBundleIdentifier", "com.x"}});
  story.device.launch({.name = "X", .executable_path = app, .pid = 201});
  story.writePreferences(dictionary(R"({"Zzz": 1, "AppConfigs": {
      "\u001b[31m\n": 7, "X": {}, "com.x": {}, "no": {"NiceValue": 21}}})"));
  const std::string findings = R"(
    {"path": ["Zzz"], "code": "unknown-key", "message": "is unknown to the daemon"},
    {"path": ["Enabled"], "code": "missing", "message": "is missing: the daemon is switched off"},
    {"path": ["AppConfigs", "\u001b[31m\n"], "code": "wrong-type",
     "message": "is an integer and not a dictionary; the daemon passes it over"},
    {"path": ["AppConfigs", "no", "NiceValue"], "code": "out-of-range",
     "message": "is 21, outside -20 to 20; the daemon makes it 20"},
    {"path": ["AppConfigs", "com.x"], "code": "same-process", "message":
     "finds the same process as X (201): both are applied to it, one after the other"},
    {"path": ["AppConfigs", "no"], "code": "no-match",
     "message": "is the name or bundle identifier of no running process and no installed app"})";
  const std::string size = R"({"file_bytes": 447, "memory_bytes": 5469, "levels": 3})";
  EXPECT_EQ(story.answer("check --json"), checkJson(findings, size) + "exit 1\n");
  EXPECT_EQ(story.answer("check --no-processes"), R"(Zzz: is unknown to the daemon
Enabled: is missing: the daemon is switched off
AppConfigs / ^[[31m^J: is an integer and not a dictionary; the daemon passes it over
AppConfigs / no / NiceValue: is 21, outside -20 to 20; the daemon makes it 20
{preferences}: takes 1 % of the memory that the daemon gives it, 1 % of the bytes, 3 of 128 levels
exit 1
)");
}

// Of the daemon's file.
void expectUnreadable(ControlStory& story, const std::string& message) {
  EXPECT_EQ(story.answer("check"), "{preferences}: " + message + "\nexit 1\n");
}

std::string nested(int depth) {
  std::string list = "<plist version=\"1.0\">";
  for (int i = 0; i < depth; ++i) list += "<array>";
  for (int i = 0; i < depth; ++i) list += "</array>";
  return list + "</plist>";
}

TEST(CheckFile, SaysWhatKeepsItFromBeingRead) {
  ControlStory story;
  const std::string whole = platform::writeXmlPropertyList(defaultPreset());
  const std::string binary = platform::writeBinaryPropertyList(defaultPreset());
  const std::string as_empty = "; the daemon reads it as empty";
  const std::string damaged = "is damaged, or neither XML in UTF-8 nor binary";
  const std::string no_list = "is no property list";
  const std::vector<std::pair<std::string, std::string>> files{
      {whole.substr(0, whole.size() / 2), no_list},
      {"<plist><dict><key>a</key><string>\xff</string></dict></plist>", no_list},
      {binary.substr(0, binary.size() / 2), damaged},
      {"no property list", damaged},
      {"<plist><string>x</string></plist>", "holds a text and no dictionary"},
      {nested(128), "holds a list and no dictionary"},
      {nested(129), "nests deeper than 128 levels"},
      {platform::writeXmlPropertyList(Array(20'000, plist::Value(""))),
       "would take more memory than the daemon gives it"},
      {std::string(512U * 1024 + 1, 'x'), "is larger than 512 kB"},
  };
  for (const auto& [bytes, message] : files) {
    SCOPED_TRACE(bytes.substr(0, 40));
    writeAll(story.preferencesFile(), bytes);
    expectUnreadable(story, message + as_empty);
    EXPECT_EQ(
        story.answer("check --json"),
        checkJson(R"({"path": [], "code": "unreadable", "message": ")" + message + as_empty + "\"}",
                  "null") +
            "exit 1\n");
  }
}

TEST(CheckFile, SaysWhatStandsInItsPlace) {
  ControlStory story;
  const std::string path = story.preferencesFile();
  expectUnreadable(story,
                   "is missing: the daemon is switched off, and writes its default preset when it "
                   "is started");
  writeAll(path, "");
  expectUnreadable(story, "is empty: the daemon is switched off");
  std::filesystem::remove(path);
  std::filesystem::create_directory(path);
  expectUnreadable(story, "is a directory; the daemon reads it as empty");
  std::filesystem::remove(path);
  ASSERT_EQ(mkfifo(path.c_str(), 0666), 0);
  expectUnreadable(story, "is no regular file; the daemon reads it as empty");
  std::filesystem::remove(path);
  std::filesystem::create_symlink(path, path);
  expectUnreadable(story, "is a link to itself; the daemon reads it as empty");
}

TEST(CheckFile, LooksAtTheFileThatItIsGiven) {
  ControlStory story;
  story.writePreferences({{"Enabled", 1}});
  const std::string given = story.rootPath("/given.plist");
  const std::string check = "check " + given;
  EXPECT_EQ(story.answer(check),
            "err: vorlatchctl: {root}/given.plist: there is no such file\nexit 3\n");
  EXPECT_EQ(story.answer("check "), "err: vorlatchctl: : there is no such file\nexit 3\n");
  writeAll(given, platform::writeBinaryPropertyList(defaultPreset()));
  EXPECT_EQ(story.answer(check + " --no-processes"),
            "{root}/given.plist: all in order\n"
            "{root}/given.plist: takes 2 % of the memory that the daemon gives it, 1 % of the "
            "bytes, 3 of 128 levels\n");
  writeAll(given, "<plist/>");
  EXPECT_EQ(story.answer(check),
            "{root}/given.plist: is no property list; the daemon reads it as empty\nexit 1\n");
}

}  // namespace
}  // namespace vorlatch::tests
