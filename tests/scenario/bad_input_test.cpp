// The daemon survives any contents of the preferences file and of Info.plist, and applies only what
// it can read from them.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <vector>

#include <gtest/gtest.h>

#include "config/preferences.h"
#include "platform/property_list.h"
#include "proc/process_lookup.h"
#include "tests/support/story.h"

namespace vorlatch {
namespace {

using plist::Array;
using plist::Data;
using plist::Date;
using plist::Dictionary;
using plist::Value;
using tests::Lines;
using tests::Story;
using namespace std::chrono_literals;

std::string nested(int depth) {
  std::string text = "<plist version=\"1.0\">";
  for (int i = 0; i < depth; ++i) text += "<array>";
  for (int i = 0; i < depth; ++i) text += "</array>";
  return text + "</plist>";
}

// Preferences with a target at nice value 5 and this additional XML.
std::string preferencesWith(const std::string& xml) {
  return "<plist version=\"1.0\"><dict><key>Enabled</key><true/>" + xml +
         "<key>AppConfigs</key><dict><key>alpha</key>"
         "<dict><key>NiceValue</key><integer>5</integer></dict></dict></dict></plist>";
}

struct Daemon : Story {
  Daemon() {
    pid = device.launch({.name = "alpha", .nice_value = 1});
    writePreferences({});
    startAndSettle();
  }
  // The nice value of the target after a pass over this file.
  int niceAfter(std::string_view bytes) const {
    device.find(pid)->nice_value = 1;
    tests::writeAll(preferencesFile(), bytes);
    postAndRun();
    return device.find(pid)->nice_value;
  }
  std::int32_t pid;
};

TEST(BadPreferences, WhatIsNoDictionaryReadsAsSwitchedOff) {
  Daemon daemon;
  const std::string whole = preferencesWith("");
  EXPECT_EQ(daemon.niceAfter(whole), 5);
  // The first pass that cannot read the file restores what was held.
  EXPECT_EQ(daemon.niceAfter(""), 0);
  for (const std::string& bytes :
       {whole.substr(0, whole.size() / 2), std::string("no property list"), std::string(1, '\0'),
        std::string("<plist><array><true/></array></plist>"),
        std::string("<plist><string>x</string></plist>"), std::string("bplist00"),
        std::string("bplist00\xd1\x01\x02"), std::string("\xff\xfe<\0p\0"), nested(513),
        nested(1'000'000), std::string(1'000'000, '<')}) {
    EXPECT_EQ(daemon.niceAfter(bytes), 1) << bytes.substr(0, 40);
  }
  EXPECT_EQ(daemon.niceAfter(whole), 5);
}

// A FIFO must not block the reader, and an endless device must not be read to its end.
const std::vector<std::function<void(const std::string&)>> kNoFiles{
    [](const std::string& path) { std::filesystem::create_directory(path); },
    [](const std::string& path) { ASSERT_EQ(mkfifo(path.c_str(), 0666), 0); },
    [](const std::string& path) { std::filesystem::create_symlink("/dev/zero", path); },
    [](const std::string& path) { ASSERT_FALSE(std::filesystem::exists(path)); }};

TEST(BadPreferences, WhatIsNoFileReadsAsSwitchedOff) {
  Daemon daemon;
  for (const auto& put : kNoFiles) {
    std::filesystem::remove(daemon.preferencesFile());
    put(daemon.preferencesFile());
    daemon.postAndRun();
    EXPECT_EQ(daemon.takeLog(), Lines{});
  }
  EXPECT_EQ(daemon.device.find(daemon.pid)->nice_value, 1);
}

TEST(BadPreferences, UnusualKeysAreTargetsLikeAnyOther) {
  Daemon daemon;
  const std::string long_key(10000, 'k');
  const std::vector<std::string> keys{"%s%n%d",           "line\nfeed\n[00-00 00:00:00] forged",
                                      "../../etc/passwd", "\x1b[31m",
                                      long_key,           "微信"};
  Dictionary targets;
  for (const std::string& key : keys) {
    targets.insert_or_assign(key, Dictionary{{"JetsamPriority", -1}, {"CheckInterval", 5}});
    daemon.device.launch({.name = key});
  }
  targets.insert_or_assign("", Dictionary{{"CheckInterval", 5}});
  daemon.writeTargets(targets);
  daemon.postAndRun();
  const std::string log = tests::readAll(daemon.logFile());
  // Process names have at most 31 characters, so that no process matches the long key.
  EXPECT_NE(log.find("[守护] %s%n%d PID:"), log.npos);
  EXPECT_NE(log.find("[守护] ../../etc/passwd PID:"), log.npos);
  EXPECT_NE(log.find("[守护] 微信 PID:"), log.npos);
  EXPECT_EQ(log.find("kkkk"), log.npos);
  daemon.run(5s);
  EXPECT_EQ(daemon.device.scheduler.timerCount(), 2U + keys.size() + 1);
}

TEST(BadInfoPlist, GivesNoIdentifierAndDoesNoHarm) {
  Story story;
  const std::string executable = story.installApp("X.app", Dictionary{});
  const std::string info = std::filesystem::path(executable).parent_path() / "Info.plist";
  const auto pid = story.device.launch({.name = "X", .executable_path = executable});
  story.device.exit(getpid());
  const RunningProcessMap by_name_alone{{"X", pid}};
  const std::string key = "<plist><dict><key>CFBundleIdentifier</key>";
  std::vector<std::string> contents{"",
                                    "no property list",
                                    "bplist00",
                                    nested(513),
                                    nested(1'000'000),
                                    "<plist><array/></plist>",
                                    key + "</dict></plist>",
                                    key + "<string>\xff</string></dict></plist>"};
  for (const Value& value : std::vector<Value>{true, 7, 2.5, Date{1e9}, Data{"\x01\x02"}, Array{7},
                                               Dictionary{}, std::string(1025, 'k')}) {
    contents.push_back(platform::writeXmlPropertyList(Dictionary{{"CFBundleIdentifier", value}}));
  }
  for (const std::string& bytes : contents) {
    tests::writeAll(info, bytes);
    EXPECT_EQ(getRunningProcessMap(), by_name_alone) << bytes.substr(0, 60);
    EXPECT_EQ(getPIDForBundleID("com.example"), 0);
  }
  for (const auto& put : kNoFiles) {
    std::filesystem::remove(info);
    put(info);
    EXPECT_EQ(getRunningProcessMap(), by_name_alone);
  }
}

TEST(BadInfoPlist, AnUnusualIdentifierIsAKeyLikeAnyOther) {
  Story story;
  const std::string identifier = "%s%n\n" + std::string(1019, 'k');
  const auto pid =
      story.device.launch({.name = "X",
                           .executable_path = story.installApp(
                               "X.app", Dictionary{{"CFBundleIdentifier", identifier}})});
  EXPECT_EQ(getPIDForBundleID(identifier), pid);
  EXPECT_EQ(pidIn(getRunningProcessMap(), identifier), pid);
}

}  // namespace
}  // namespace vorlatch
