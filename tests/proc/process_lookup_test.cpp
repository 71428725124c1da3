#include "proc/process_lookup.h"

#include <unistd.h>

#include <climits>
#include <filesystem>

#include <gtest/gtest.h>

#include "tests/support/scarce_memory.h"
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

TEST(ProcessLookup, FindsADaemonByItsName) {
  Processes device;
  const auto pid = device.launch("backboardd", "");  // it may have no path
  device.device.launch({.name = "launchd", .executable_path = "/sbin/launchd", .pid = 1});
  EXPECT_EQ(getPIDForBundleID("backboardd"), pid);
  EXPECT_EQ(getPIDForBundleID("backboard"), 0);
  EXPECT_EQ(getPIDForBundleID("Backboardd"), 0);
  EXPECT_EQ(getPIDForBundleID("launchd"), 1);
  EXPECT_EQ(getRunningProcessMap(), (RunningProcessMap{{"backboardd", pid}, {"launchd", 1}}));
  device.device.becomeZombie(pid);
  EXPECT_EQ(getPIDForBundleID("backboardd"), 0);
  EXPECT_EQ(getRunningProcessMap(), (RunningProcessMap{{"launchd", 1}}));
}

TEST(ProcessLookup, FindsAnAppByItsBundleIdentifier) {
  Processes device;
  const auto app = device.launchApp("WeChat.app", "com.tencent.xin", "WeChat");
  const auto extension =
      device.launchApp("WeChat.app/PlugIns/Share.appex", "com.tencent.xin.share", "Share");
  // Recognised by the exact ending of the executable's own directory alone.
  const std::string in_bundle = device.rootPath("/Applications/WeChat.app/bin/helper");
  const auto helper = device.launch("helper", in_bundle);
  for (const char* bundle : {"A.APP", "B.apps", "Capp"}) device.launchApp(bundle, bundle, "other");
  EXPECT_EQ(getPIDForBundleID("com.tencent.xin"), app);
  EXPECT_EQ(getPIDForBundleID("com.tencent.XIN"), 0);
  RunningProcessMap running = getRunningProcessMap();
  running.erase("other");
  EXPECT_EQ(running, (RunningProcessMap{{"WeChat", app},
                                        {"com.tencent.xin", app},
                                        {"Share", extension},
                                        {"com.tencent.xin.share", extension},
                                        {"helper", helper}}));
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

TEST(ProcessLookup, EmptyKeyFindsAnEmptyNameOrIdentifier) {
  Processes device;
  const auto unreadable = device.launch("unreadable");
  EXPECT_EQ(getPIDForBundleID(""), 0);
  device.device.script({.function = "proc_name", .pid = unreadable, .result = 0, .error = ESRCH});
  EXPECT_EQ(getPIDForBundleID(""), unreadable);
  const auto app = device.launchApp("X.app", "", "X");
  EXPECT_EQ(getPIDForBundleID(""), app);
  EXPECT_EQ(getRunningProcessMap(), (RunningProcessMap{{"X", app}}));
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

TEST(ProcessLookup, CachesOnlyIdentifiersThatExist) {
  Processes device;
  const auto pid = device.launchApp("X.app", "", "X");
  EXPECT_EQ(getPIDForBundleID("late"), 0);
  device.device.exit(device.launchApp("X.app", "late", "Y"));
  EXPECT_EQ(getPIDForBundleID("late"), pid);
  // From now on the identifier is cached, whatever the file says.
  device.device.exit(device.launchApp("X.app", "changed", "Y"));
  EXPECT_EQ(getPIDForBundleID("changed"), 0);
  EXPECT_EQ(getPIDForBundleID("late"), pid);
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

TEST(ProcessLookup, AProcessThatExitsMeanwhileIsNotFound) {
  Processes device;
  const auto staying = device.launch("staying");
  for (const int call : {1, 2}) {
    const auto leaving = device.launch("leaving");
    device.device.clearScripts();
    device.device.script({.function = "proc_listpids", .first = call, .count = 1, .meanwhile = [&] {
                            device.device.exit(leaving);
                          }});
    EXPECT_EQ(getRunningProcessMap(), (RunningProcessMap{{"staying", staying}})) << call;
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

#ifndef VORLATCH_SANITIZED
TEST(ProcessLookup, AListBeyondTheMemoryThereIsIsNotFetched) {
  Processes device;
  device.launch("backboardd");
  device.listCallGives(1, INT_MAX / 4);
  const tests::ScarceMemory memory(64'000'000);
  EXPECT_EQ(getPIDForBundleID("backboardd"), 0);
  EXPECT_EQ(device.device.takeTrace(), Lines{"proc_listpids(1, 0, null, 0) = 536870911"});
}
#endif

TEST(ProcessLookup, TheWholeWalkMakesTheseCalls) {
  Processes device;
  const std::string older = std::to_string(device.launch("older", "/sbin/older"));
  const std::string newer = std::to_string(device.launch("newer", "/sbin/newer"));
  const Lines begin{"proc_listpids(1, 0, null, 0) = 88", "proc_listpids(1, 0, buffer, 352) = 8",
                    "proc_name(" + newer + ", zeros, 256) = 5"};
  getRunningProcessMap();
  Lines whole = begin;
  whole.insert(whole.end(), {"proc_pidpath(" + newer + ", zeros, 4096) = 11",
                             "proc_name(" + older + ", zeros, 256) = 5",
                             "proc_pidpath(" + older + ", zeros, 4096) = 11"});
  EXPECT_EQ(device.device.takeTrace(), whole);
  EXPECT_EQ(getPIDForBundleID("newer"), std::stoi(newer));
  EXPECT_EQ(device.device.takeTrace(), begin);
}

}  // namespace
}  // namespace vorlatch
