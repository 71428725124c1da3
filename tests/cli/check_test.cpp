// vorlatchctl check: every kind of finding, in both forms, in the exact words; files that cannot be
// read as preferences; and a file that it is given.
#include <sys/stat.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "config/default_preset.h"
#include "platform/property_list.h"
#include "tests/cli/control_run.h"

namespace vorlatch::tests {
namespace {

using plist::Data;
using plist::Date;

// The command finds this: of each finding there is a line with its kind in front of the place and
// the message. Behind the findings the command says how large the file is.
void expectFindings(ControlStory& story, const std::string& line, const std::string& findings) {
  const std::string text = story.answer(line + " --json");
  const auto json = nlohmann::json::parse(text.substr(0, text.rfind('}') + 1));
  std::string found;
  for (const auto& each : json.at("findings")) {
    std::string place;
    for (const std::string key : each["path"]) place += (place.empty() ? "" : " / ") + key;
    found += each["kind"].get<std::string>() + " | " + place + ": " +
             each["message"].get<std::string>() + "\n";
  }
  EXPECT_EQ(found, findings);

  std::string expected = findings.empty() ? "{preferences}: all in order\n" : "";
  std::istringstream lines(findings);
  for (std::string each; std::getline(lines, each);) {
    expected += each.substr(each.find('|') + 2) + "\n";
  }
  const std::string answer = story.answer(line);
  const std::size_t size = answer.find("{preferences}: takes ");
  EXPECT_EQ(answer.substr(0, size), expected);
  EXPECT_EQ(answer.ends_with("\nexit 1\n"), !findings.empty());
}

std::string checkJson(const std::string& file, const std::string& findings,
                      const std::string& size) {
  return pretty(R"({"file": ")" + file + R"(", "findings": [)" + findings + R"(], "size": )" +
                size +
                R"(, "bound": {"file_bytes": 524288, "memory_bytes": 2150000, "levels": 128}})");
}

TEST(Check, FindsNothingInThePreset) {
  ControlStory story;
  story.writePreferences(defaultPreset());
  expectFindings(story, "check --no-processes", "");
  for (const char* name : {"SpringBoard", "backboardd", "com.tencent.xin", "dasd", "kbd",
                           "runningboardd", "sharingd"}) {
    story.device.launch({.name = name});
  }
  expectFindings(story, "check", "");
}

TEST(Check, FindsNothingAtTheEndsOfRanges) {
  ControlStory story;
  const Dictionary targets = dictionary(R"({
    "lowest": {"NiceValue": -20, "JetsamPriority": -1, "MemLimitActive": -1, "CheckInterval": 0,
               "StripManaged": false, "Remark": ""},
    "highest": {"NiceValue": 20, "JetsamPriority": 210, "MemLimitInactive": 2147483647,
                "CheckInterval": 2147483647},
    "beyond": {"JetsamPriority": 999}})");
  for (const plist::Value& limit : Array{0, -1, INT64_MIN, UINT64_MAX}) {
    story.writePreferences({{"Enabled", false}, {"AppConfigs", targets}, {"LogSizeLimit", limit}});
    expectFindings(story, "check --no-processes", "");
  }
}

TEST(Check, FindsNumbersOutOfRange) {
  ControlStory story;
  story.writeTargets(dictionary(R"({
    "high": {"NiceValue": 21, "CheckInterval": 1099511627776, "JetsamPriority": 211,
             "MemLimitActive": 18446744073709551615},
    "low": {"NiceValue": -9223372036854775808, "CheckInterval": -1, "JetsamPriority": -2,
            "MemLimitActive": -2, "MemLimitInactive": -9223372036854775808}})"));
  expectFindings(
      story, "check --no-processes",
      R"(out-of-range | AppConfigs / high / CheckInterval: is 1099511627776, outside 0 to 2147483647; the daemon makes it 2147483647
out-of-range | AppConfigs / high / JetsamPriority: is 211, outside -1 to 210; no kernel has this band; refused, the daemon tries 21
out-of-range | AppConfigs / high / MemLimitActive: is 18446744073709551615, outside -1 to 2147483647; the daemon makes it 2147483647
out-of-range | AppConfigs / high / NiceValue: is 21, outside -20 to 20; the daemon makes it 20
out-of-range | AppConfigs / low / CheckInterval: is -1, outside 0 to 2147483647; it counts as none
out-of-range | AppConfigs / low / JetsamPriority: is -2, outside -1 to 210; no kernel has this band, and it is refused
out-of-range | AppConfigs / low / MemLimitActive: is -2, outside -1 to 2147483647; the kernel takes it for the system's default
out-of-range | AppConfigs / low / MemLimitInactive: is -9223372036854775808, outside -1 to 2147483647; the kernel takes it for the system's default
out-of-range | AppConfigs / low / NiceValue: is -9223372036854775808, outside -20 to 20; the daemon makes it -20
)");
}

TEST(Check, FindsValuesOfAnotherType) {
  ControlStory story;
  Dictionary targets = dictionary(R"({
    "a": {"NiceValue": "-5", "CheckInterval": "-5 s", "MemLimitActive": 524288.5,
          "JetsamPriority": [1, 2], "StripManaged": 1, "Remark": 7},
    "b": {"NiceValue": "x", "JetsamPriority": {}, "StripManaged": "no", "Remark": {}},
    "c": {"NiceValue": 2.5, "JetsamPriority": "home", "StripManaged": [true]},
    "d": {"NiceValue": true},
    "e": {"NiceValue": "30"}})");
  targets.emplace("f", Dictionary{{"MemLimitInactive", Date{1}}, {"MemLimitActive", Data{"abc"}}});
  story.writeTargets(targets);
  expectFindings(
      story, "check --no-processes",
      R"(wrong-type | AppConfigs / a / CheckInterval: is a text (-5 s) and not an integer; the daemon reads it as -5, and it counts as none
wrong-type | AppConfigs / a / JetsamPriority: is a list (2 items) and not an integer; the daemon reads it as 0
wrong-type | AppConfigs / a / MemLimitActive: is a real number (524288.5) and not an integer; the daemon reads it as 524288
wrong-type | AppConfigs / a / NiceValue: is a text (-5) and not an integer; the daemon reads it as -5
wrong-type | AppConfigs / a / Remark: is an integer and not a text
wrong-type | AppConfigs / a / StripManaged: is an integer (1) and no truth value; the daemon reads it as true
wrong-type | AppConfigs / b / JetsamPriority: is a dictionary (0 entries) and not an integer; the daemon reads it as 0
wrong-type | AppConfigs / b / NiceValue: is a text (x) and not an integer; the daemon reads it as 0
wrong-type | AppConfigs / b / Remark: is a dictionary and not a text
wrong-type | AppConfigs / b / StripManaged: is a text (no) and no truth value; the daemon reads it as false
wrong-type | AppConfigs / c / JetsamPriority: is a text (home) and not an integer; the daemon reads it as 0
wrong-type | AppConfigs / c / NiceValue: is a real number (2.5) and not an integer; the daemon reads it as 2
wrong-type | AppConfigs / c / StripManaged: is a list (1 items) and no truth value; the daemon reads it as false
wrong-type | AppConfigs / d / NiceValue: is a truth value (true) and not an integer; the daemon reads it as 1
wrong-type | AppConfigs / e / NiceValue: is a text (30) and not an integer; the daemon reads it as 30, and the daemon makes it 20
wrong-type | AppConfigs / f / MemLimitActive: is data (3 bytes) and not an integer; the daemon reads it as 0
wrong-type | AppConfigs / f / MemLimitInactive: is a date (date) and not an integer; the daemon reads it as 0
)");
}

TEST(Check, FindsWhatIsWrongAtTheTop) {
  ControlStory story;
  story.writePreferences({});
  expectFindings(story, "check --no-processes",
                 R"(missing | Enabled: is missing: the daemon is switched off
missing | AppConfigs: is missing: there are no targets
)");
  story.writePreferences(
      dictionary(R"({"Enabled": "yes", "AppConfigs": [], "LogSizeLimit": 2097152.5})"));
  expectFindings(
      story, "check --no-processes",
      R"(wrong-type | Enabled: is a text (yes) and no truth value; the daemon reads it as true
wrong-type | LogSizeLimit: is a real number (2097152.5) and not an integer; the daemon reads it as 2097152
wrong-type | AppConfigs: is a list and not a dictionary; the daemon reads it as missing
)");
}

TEST(Check, FindsUnknownKeysAndWrongTargets) {
  ControlStory story;
  Dictionary preferences =
      dictionary(R"({"Enabled": true, "enable": 1, "AppConfig": 1, "Zzz": 1})");
  Dictionary targets =
      dictionary(R"({"alpha": {"NiceValu": 1, "remark": "x"}, "beta": {"Own": {}}, "gamma": 7})");
  targets.emplace("微信", Data{"x"});
  preferences.emplace("AppConfigs", targets);
  story.writePreferences(preferences);
  expectFindings(story, "check --no-processes",
                 R"(unknown-key | AppConfig: is unknown to the daemon; did you mean AppConfigs?
unknown-key | Zzz: is unknown to the daemon
unknown-key | enable: is unknown to the daemon; did you mean Enabled?
unknown-key | AppConfigs / alpha / NiceValu: is unknown to the daemon; did you mean NiceValue?
unknown-key | AppConfigs / alpha / remark: is unknown to the daemon; did you mean Remark?
unknown-key | AppConfigs / beta / Own: is unknown to the daemon
wrong-type | AppConfigs / gamma: is an integer and not a dictionary; the daemon passes it over
wrong-type | AppConfigs / 微信: is data and not a dictionary; the daemon passes it over
)");
}

// It asks for the priority list, and does nothing else.
TEST(Check, FindsTargetsThatMatchNothing) {
  ControlStory story;
  story.device.launch({.name = "alpha"});
  story.writeTargets({{"Alpha", Dictionary{}}, {"alpha", Dictionary{}}, {"beta", Dictionary{}}});
  const std::string bytes = readAll(story.preferencesFile());
  story.startAndSettle();
  expectFindings(
      story, "check",
      R"(no-match | AppConfigs / Alpha: is the name or bundle identifier of no process that runs now
no-match | AppConfigs / beta: is the name or bundle identifier of no process that runs now
)");
  expectFindings(story, "check --no-processes", "");
  EXPECT_EQ(readAll(story.preferencesFile()), bytes);
  const Lines listed{"memorystatus_control(1, 0, 0, null, 0) = 48",
                     "memorystatus_control(1, 0, 0, buffer, 288) = 48"};
  EXPECT_EQ(story.takeCalls(), with(listed, listed));  // for either form
  EXPECT_EQ(story.takeLog(), Lines{});
}

// A pass finds the first process of the app, a watch timer the second.
TEST(Check, FindsTwoTargetsOfOneProcess) {
  ControlStory story;
  const auto app = story.installApp("X.app", Dictionary{{"CFBundleIdentifier", "com.x"}});
  story.device.launch({.name = "One", .executable_path = app, .pid = 201});
  story.device.launch({.name = "Two", .executable_path = app, .pid = 202});
  story.writeTargets({{"One", Dictionary{}}, {"com.x", Dictionary{}}});
  expectFindings(
      story, "check",
      R"(same-process | AppConfigs / com.x: finds the same process as One (201): both are applied to it, one after the other
)");
  story.writeTargets({{"Two", Dictionary{}}, {"com.x", Dictionary{{"CheckInterval", 5}}}});
  expectFindings(
      story, "check",
      R"(same-process | AppConfigs / com.x: finds the same process as Two (202): both are applied to it, one after the other
)");
}

// No key commands the terminal; JSON has its own way to spell it.
TEST(Check, AsJson) {
  ControlStory story;
  story.writeTargets({{"\x1b[31m\n", 7}});
  const std::string size = R"({"file_bytes": 300, "memory_bytes": 2813, "levels": 2})";
  EXPECT_EQ(
      story.answer("check --json"),
      checkJson("{preferences}", R"({"path": ["AppConfigs", "\u001b[31m\n"], "kind": "wrong-type",
              "message": "is an integer and not a dictionary; the daemon passes it over"})",
                size) +
          "exit 1\n");
  EXPECT_EQ(
      story.answer("check"),
      "AppConfigs / ^[[31m^J: is an integer and not a dictionary; the daemon passes it over\n"
      "{preferences}: takes 1 % of the memory that the daemon gives it, 1 % of the bytes, 2 of "
      "128 levels\nexit 1\n");
}

// The message about the daemon's file, or about the same file that is given.
void expectUnreadable(ControlStory& story, const std::string& message, bool is_given = true) {
  const std::string text = "{preferences}: " + message + "\nexit 1\n";
  EXPECT_EQ(story.answer("check"), text);
  if (is_given) {
    EXPECT_EQ(story.answer("check --no-processes " + story.preferencesFile()), text);
  }
  EXPECT_EQ(
      story.answer("check --json"),
      checkJson("{preferences}",
                R"({"path": [], "kind": "unreadable", "message": ")" + message + "\"}", "null") +
          "exit 1\n");
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
  const std::string damaged = "is damaged, or neither XML in UTF-8 nor binary" + as_empty;
  const std::string too_deep = "nests deeper than 128 levels" + as_empty;
  const std::string no_list = "is no property list" + as_empty;
  const std::string a_list = "holds a list and no dictionary" + as_empty;
  const std::vector<std::pair<std::string, std::string>> files{
      {"", "is empty: the daemon is switched off"},
      {whole.substr(0, whole.size() / 2), no_list},
      {whole.substr(0, whole.find("</key>") + 3), damaged},
      {binary.substr(0, binary.size() / 2), damaged},
      {"no property list", damaged},
      {std::string(1, '\0'), damaged},
      {"<plist><array><true/></array></plist>", a_list},
      {platform::writeBinaryPropertyList(Array{1}), a_list},
      {"<plist><string>x</string></plist>", "holds a text and no dictionary" + as_empty},
      {"bplist00", damaged},
      {"bplist00\xd1\x01\x02", damaged},
      {std::string("\xff\xfe<\0p\0", 6), damaged},
      {nested(128), a_list},
      {nested(129), too_deep},
      {nested(20'000), too_deep},
      {platform::writeXmlPropertyList(Array(20'000, plist::Value(""))),
       "would take more memory than the daemon gives it" + as_empty},
      {std::string(500'000, '<'), damaged},
      {std::string(512U * 1024 + 1, 'x'), "is larger than 512 kB" + as_empty},
      {"<plist><dict><key>a</key><string>\xff</string></dict></plist>", no_list},
  };
  for (const auto& [bytes, message] : files) {
    SCOPED_TRACE(bytes.substr(0, 40));
    writeAll(story.preferencesFile(), bytes);
    expectUnreadable(story, message);
  }
}

TEST(CheckFile, SaysWhatStandsInItsPlace) {
  ControlStory story;
  const std::string path = story.preferencesFile();
  expectUnreadable(story,
                   "is missing: the daemon is switched off, and writes its default preset when it "
                   "is started",
                   false);
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
  const std::string missing =
      "err: vorlatchctl: {root}/given.plist: there is no such file\nexit 3\n";
  EXPECT_EQ(story.answer(check), missing);
  EXPECT_EQ(story.answer(check + " --json"), missing);
  EXPECT_EQ(story.answer("check "), "err: vorlatchctl: : there is no such file\nexit 3\n");
  writeAll(given, platform::writeBinaryPropertyList(defaultPreset()));
  EXPECT_EQ(story.answer(check + " --no-processes"),
            "{root}/given.plist: all in order\n"
            "{root}/given.plist: takes 2 % of the memory that the daemon gives it, 1 % of the "
            "bytes, 3 of 128 levels\n");
  EXPECT_EQ(story.answer(check + " --no-processes --json"),
            checkJson("{root}/given.plist", "",
                      R"({"file_bytes": 521, "memory_bytes": 25473, "levels": 3})"));
  writeAll(given, "<plist/>");
  EXPECT_EQ(story.answer(check),
            "{root}/given.plist: is no property list; the daemon reads it as empty\nexit 1\n");
}

}  // namespace
}  // namespace vorlatch::tests
