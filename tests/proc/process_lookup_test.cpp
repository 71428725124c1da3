#include "proc/process_lookup.h"

#include <unistd.h>

#include <climits>
#include <filesystem>

#include <gtest/gtest.h>

#include "tests/support/story.h"

namespace vorlatch {
namespace {

using plist::Dictionary;
using tests::Lines;

// A device whose process list contains only the test's processes.
struct Processes : tests::Story {
  Processes() { device.exit(getpid()); }

  std::int32_t launch(const std::string& name, const std::string& path = "/usr/libexec/x") const {
    return device.launch({.name = name, .executable_path = path});
  }
  std::int32_t launchApp(const std::string& bundle, const plist::Value& identifier,
                         const std::string& name = "Executable") const {
    return launch(name, installApp(bundle, Dictionary{{"CFBundleIdentifier", identifier}}));
  }
  // Makes the first or second call for the list give this result and this buffer.
  void listCallGives(int call, int result, const std::vector<std::int32_t>& pids = {}) const {
    device.clearScripts();
    device.script({.function = "proc_listpids",
                   .first = call,
                   .count = 1,
                   .result = result,
                   .buffer = std::string(reinterpret_cast<const char*>(pids.data()),
                                         pids.size() * sizeof(pids[0]))});
  }
};

TEST(ProcessLookup, MatchesNamesAndEndingsExactly) {
  Processes device;
  const auto daemon = device.launch("backboardd", "");  // it may have no path
  const auto app = device.launchApp("WeChat.app", "com.tencent.xin", "WeChat");
  for (const char* bundle : {"A.APP", "B.apps", "Capp"}) device.launchApp(bundle, bundle, "other");
  EXPECT_EQ(getPIDForBundleID("backboardd"), daemon);
  EXPECT_EQ(getPIDForBundleID("com.tencent.xin"), app);
  for (const char* key :
       {"backboard", "Backboardd", "com.tencent.XIN", "A.APP", "B.apps", "Capp"}) {
    EXPECT_EQ(getPIDForBundleID(key), 0) << key;
  }
}

// The list has the newest process first.
TEST(ProcessLookup, LookUpTakesTheFirstMapTheLastIdentifier) {
  Processes device;
  const auto unreadable = device.launch("unreadable");
  const auto older = device.launchApp("X.app", "twin", "twice");
  const auto newer = device.launchApp("X.app", "twin", "twice");
  EXPECT_EQ(getPIDForBundleID("twin"), newer);
  EXPECT_EQ(pidIn(getRunningProcessMap(), "twin"), older);
  EXPECT_EQ(pidIn(getRunningProcessMap(), "twice"), newer);  // of equal names the first
  const auto daemon = device.launch("twin");
  EXPECT_EQ(getPIDForBundleID("twin"), daemon);
  EXPECT_EQ(pidIn(getRunningProcessMap(), "twin"), older);  // an identifier replaces a name
  device.launchApp("Y.app", "", "nameless");
  device.device.script({.function = "proc_name", .pid = unreadable, .result = 0, .error = ESRCH});
  const std::vector<RunningProcess> all = listRunningProcesses();
  EXPECT_EQ(all.size(), 5U);
  EXPECT_EQ(runningProcessMapOf(all), getRunningProcessMap());
  for (const char* key : {"twice", "twin", "nameless", "unreadable", "", "nobody"}) {
    EXPECT_EQ(pidForBundleIDIn(all, key), getPIDForBundleID(key)) << key;
  }
}

TEST(ProcessLookup, NamesAreCutAtTheBufferAndKeptWhenUtf8) {
  Processes device;
  const auto bad = device.launch("bad\xff");
  EXPECT_EQ(getPIDForBundleID("bad\xff"), bad);
  EXPECT_EQ(getRunningProcessMap(), RunningProcessMap{});
  device.device.exit(bad);
  const auto pid = device.launch("~");
  EXPECT_EQ(getRunningProcessMap(), (RunningProcessMap{{"~", pid}}));
  device.device.script({.function = "proc_name", .result = 1, .buffer = std::string(1, '\0')});
  EXPECT_EQ(getRunningProcessMap(), RunningProcessMap{});
  device.device.clearScripts();
  device.device.script({.function = "proc_name", .result = 256, .buffer = std::string(256, 'x')});
  const std::string name(255, 'x');
  EXPECT_EQ(getPIDForBundleID(name), pid);
  EXPECT_EQ(getRunningProcessMap(), (RunningProcessMap{{name, pid}}));
}

TEST(ProcessLookup, OnlyATextAtAPathHasAnIdentifier) {
  Processes device;
  for (const plist::Value& identifier :
       {plist::Value(5), plist::Value(plist::Array{"x"}), plist::Value(Dictionary{})}) {
    const auto pid = device.launchApp("X.app", identifier, "X");
    EXPECT_EQ(getRunningProcessMap(), (RunningProcessMap{{"X", pid}}));
    device.device.exit(pid);
  }
  device.launchApp("X\xff.app", "x");
  EXPECT_EQ(getPIDForBundleID("x"), 0);
  const std::filesystem::path path =
      device.installApp("X.app", Dictionary{{"CFBundleIdentifier", "x"}});
  // The current directory in which a relative name would find the bundle.
  std::filesystem::current_path(path.parent_path().parent_path());
  const auto pid = device.launch("X", "X.app");
  EXPECT_EQ(getPIDForBundleID("x"), 0);
  for (const int result : {-1, 0, 1}) {
    device.device.clearScripts();
    device.device.script(
        {.function = "proc_pidpath", .pid = pid, .result = result, .buffer = path.string()});
    EXPECT_EQ(getPIDForBundleID("x"), result < 1 ? 0 : pid) << result;
  }
}

TEST(ProcessLookup, LooksOnlyAtTheFilledPartOfTheList) {
  Processes device;
  const auto older = device.launch("older");
  const auto newer = device.launch("newer");
  const RunningProcessMap both{{"newer", newer}, {"older", older}};
  device.listCallGives(1, 1);  // room for as many processes
  EXPECT_EQ(getRunningProcessMap(), (RunningProcessMap{{"newer", newer}}));
  device.listCallGives(2, 7, {older, newer});
  EXPECT_EQ(getRunningProcessMap(), (RunningProcessMap{{"older", older}}));
  device.device.takeTrace();
  device.listCallGives(2, 12, {0, -5, older});
  EXPECT_EQ(getRunningProcessMap(), (RunningProcessMap{{"older", older}}));
  EXPECT_EQ(device.device.takeTrace({"proc_name"}),
            Lines{"proc_name(" + std::to_string(older) + ", zeros, 256) = 5"});
  EXPECT_EQ(getRunningProcessMap(), both);
}

TEST(ProcessLookup, AListThatCannotBeReadGivesNothing) {
  Processes device;
  device.launch("backboardd");
  struct Refusal {
    std::size_t call;
    int result;
  };
  for (const auto& [call, result] :
       {Refusal{1, 0}, Refusal{1, -1}, Refusal{2, 0}, Refusal{2, 3}, Refusal{2, -1},
        Refusal{1, INT_MAX}, Refusal{1, INT_MAX / 4 + 1}}) {
    device.listCallGives(static_cast<int>(call), result);
    device.device.takeTrace();
    EXPECT_EQ(getRunningProcessMap(), RunningProcessMap{}) << call << ' ' << result;
    EXPECT_EQ(device.device.takeTrace().size(), call) << result;
    device.listCallGives(static_cast<int>(call), result);
    EXPECT_EQ(getPIDForBundleID("backboardd"), 0) << call << ' ' << result;
  }
}

}  // namespace
}  // namespace vorlatch
