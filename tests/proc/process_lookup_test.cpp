#include "proc/process_lookup.h"

#include <climits>
#include <filesystem>

#include <gtest/gtest.h>

#include "tests/support/scarce_memory.h"
#include "tests/support/story.h"

namespace vorlatch {
namespace {

using plist::Dictionary;
using tests::Lines;
using tests::Story;

// A device whose process list contains only the test's processes.
struct Processes : Story {
  Processes() { device.exit(getpid()); }

  std::int32_t launch(const std::string& name, const std::string& path = "/usr/libexec/x") const {
    return device.launch({.name = name, .executable_path = path});
  }
  std::int32_t launchApp(const std::string& bundle, const std::string& identifier,
                         const std::string& name = "Executable") const {
    return launch(name, installApp(bundle, Dictionary{{"CFBundleIdentifier", identifier}}));
  }
};

TEST(ProcessLookup, FindsADaemonByItsName) {
  Processes device;
  const auto pid = device.launch("backboardd");
  EXPECT_EQ(getPIDForBundleID("backboardd"), pid);
  EXPECT_EQ(getPIDForBundleID("backboard"), 0);
  EXPECT_EQ(getPIDForBundleID("Backboardd"), 0);
  EXPECT_EQ(getRunningProcessMap(), (RunningProcessMap{{"backboardd", pid}}));
}

TEST(ProcessLookup, FindsAnAppByItsBundleIdentifier) {
  Processes device;
  const auto pid = device.launchApp("WeChat.app", "com.tencent.xin", "WeChat");
  EXPECT_EQ(getPIDForBundleID("com.tencent.xin"), pid);
  EXPECT_EQ(getPIDForBundleID("com.tencent.XIN"), 0);
  EXPECT_EQ(getRunningProcessMap(), (RunningProcessMap{{"WeChat", pid}, {"com.tencent.xin", pid}}));
}

TEST(ProcessLookup, AnExtensionHasItsOwnIdentifier) {
  Processes device;
  const auto pid = device.launchApp("WeChat.app/PlugIns/Share.appex", "com.tencent.xin.share");
  EXPECT_EQ(getPIDForBundleID("com.tencent.xin.share"), pid);
}

TEST(ProcessLookup, NestedExecutableIsFoundByNameOnly) {
  Processes device;
  const auto info = Dictionary{{"CFBundleIdentifier", "com.tencent.xin"}};
  const std::string directory =
      std::filesystem::path(device.installApp("WeChat.app", info)).parent_path();
  const auto pid = device.launch("helper", directory + "/bin/helper");
  EXPECT_EQ(getPIDForBundleID("com.tencent.xin"), 0);
  EXPECT_EQ(getRunningProcessMap(), (RunningProcessMap{{"helper", pid}}));
}

TEST(ProcessLookup, BundlesAreRecognisedByExactEnding) {
  Processes device;
  device.launchApp("A.APP", "a");
  device.launchApp("B.apps", "b");
  device.launchApp("Capp", "c");
  for (const char* key : {"a", "b", "c"}) EXPECT_EQ(getPIDForBundleID(key), 0) << key;
}

TEST(ProcessLookup, LookUpTakesTheFirstNameOrIdentifier) {
  Processes device;
  const auto app = device.launchApp("X.app", "twin", "X");
  EXPECT_EQ(getPIDForBundleID("twin"), app);
  const auto daemon = device.launch("twin");
  EXPECT_EQ(getPIDForBundleID("twin"), daemon);  // the list has the newest process first
  EXPECT_EQ(pidIn(getRunningProcessMap(), "twin"), app);
}

TEST(ProcessLookup, IdentifierReplacesAnEqualName) {
  Processes device;
  device.launch("twin");
  const auto app = device.launchApp("X.app", "twin", "X");
  EXPECT_EQ(getPIDForBundleID("twin"), app);
  EXPECT_EQ(pidIn(getRunningProcessMap(), "twin"), app);
}

TEST(ProcessLookup, OneBundleLookUpTakesFirstMapTakesLast) {
  Processes device;
  const auto older = device.launchApp("X.app", "twice", "Older");
  const auto newer = device.launchApp("X.app", "twice", "Newer");
  EXPECT_EQ(getPIDForBundleID("twice"), newer);
  EXPECT_EQ(pidIn(getRunningProcessMap(), "twice"), older);
}

TEST(ProcessLookup, TheFirstOfTwoEqualNamesWins) {
  Processes device;
  device.launch("twice");
  const auto newer = device.launch("twice");
  EXPECT_EQ(getPIDForBundleID("twice"), newer);
  EXPECT_EQ(pidIn(getRunningProcessMap(), "twice"), newer);
}

TEST(ProcessLookup, EmptyKeyFindsAnUnreadableName) {
  Processes device;
  const auto unreadable = device.launch("unreadable");
  device.launch("readable");
  EXPECT_EQ(getPIDForBundleID(""), 0);
  device.device.script({.function = "proc_name", .pid = unreadable, .result = 0, .error = ESRCH});
  EXPECT_EQ(getPIDForBundleID(""), unreadable);
  EXPECT_EQ(getRunningProcessMap().count(""), 0U);
  EXPECT_EQ(getRunningProcessMap().size(), 1U);
}

TEST(ProcessLookup, ANameThatFillsItsBufferEndsThere) {
  Processes device;
  const auto pid = device.launch("alpha");
  device.device.script({.function = "proc_name", .result = 256, .buffer = std::string(256, 'x')});
  const std::string name(255, 'x');
  EXPECT_EQ(getPIDForBundleID(name), pid);
  EXPECT_EQ(getRunningProcessMap(), (RunningProcessMap{{name, pid}}));
}

TEST(ProcessLookup, EmptyIdentifierMatchesOnlyAnEmptyKey) {
  Processes device;
  const auto pid = device.launchApp("X.app", "", "X");
  EXPECT_EQ(getPIDForBundleID(""), pid);
  EXPECT_EQ(getRunningProcessMap(), (RunningProcessMap{{"X", pid}}));
}

TEST(ProcessLookup, CachesOnlyIdentifiersThatExist) {
  Processes device;
  const auto pid = device.launchApp("X.app", "", "X");
  EXPECT_EQ(getPIDForBundleID("late"), 0);
  device.launchApp("X.app", "late", "Y");
  EXPECT_NE(getPIDForBundleID("late"), 0);
  device.device.exit(pid + 1);
  EXPECT_EQ(getPIDForBundleID("late"), pid);
  // From now on the identifier is cached, whatever the file says.
  device.installApp("X.app", Dictionary{{"CFBundleIdentifier", "changed"}}).size();
  EXPECT_EQ(getPIDForBundleID("changed"), 0);
  EXPECT_EQ(getPIDForBundleID("late"), pid);
}

TEST(ProcessLookup, ABundleThatNamesNoStringHasNoIdentifier) {
  Processes device;
  for (const plist::Value& identifier :
       {plist::Value(5), plist::Value(plist::Array{"x"}), plist::Value(Dictionary{})}) {
    const auto pid = device.launch(
        "X", device.installApp("X.app", Dictionary{{"CFBundleIdentifier", identifier}}));
    EXPECT_EQ(getRunningProcessMap(), (RunningProcessMap{{"X", pid}}));
    device.device.exit(pid);
  }
}

TEST(ProcessLookup, InvalidUtf8NameIsOnlyComparedByBytes) {
  Processes device;
  const auto pid = device.launch("bad\xff");
  EXPECT_EQ(getRunningProcessMap(), RunningProcessMap{});
  EXPECT_EQ(getPIDForBundleID("bad\xff"), pid);
}

TEST(ProcessLookup, APathThatIsNotUtf8HasNoIdentifier) {
  Processes device;
  const auto path = device.installApp("X\xff.app", Dictionary{{"CFBundleIdentifier", "x"}});
  device.launch("X", path);
  EXPECT_EQ(getPIDForBundleID("x"), 0);
}

TEST(ProcessLookup, IgnoresThePathOfAFailedCall) {
  Processes device;
  const std::string path = device.installApp("X.app", Dictionary{{"CFBundleIdentifier", "x"}});
  const auto pid = device.launch("X");
  for (const auto& [result, found] : {std::pair(-1, 0), std::pair(0, 0), std::pair(1, pid)}) {
    device.device.clearScripts();
    device.device.script({.function = "proc_pidpath", .result = result, .buffer = path});
    EXPECT_EQ(getPIDForBundleID("x"), found) << result;
  }
}

TEST(ProcessLookup, AcceptsOneCharacterNamesButNotEmptyOnes) {
  Processes device;
  const auto pid = device.launch("~");
  EXPECT_EQ(getRunningProcessMap(), (RunningProcessMap{{"~", pid}}));
  device.device.script({.function = "proc_name", .result = 1, .buffer = std::string(1, '\0')});
  EXPECT_EQ(getRunningProcessMap(), RunningProcessMap{});
}

TEST(ProcessLookup, AListOfAllProcessesAnswersAsAScanDoes) {
  Processes device;
  const auto unreadable = device.launch("unreadable");
  device.launch("twice");
  device.launchApp("X.app", "twin", "twice");
  device.launchApp("X.app", "twin", "newest");
  device.launchApp("Y.app", "", "twin");
  device.device.script({.function = "proc_name", .pid = unreadable, .result = 0, .error = ESRCH});
  const std::vector<RunningProcess> all = listRunningProcesses();
  EXPECT_EQ(all.size(), 5U);
  EXPECT_EQ(runningProcessMapOf(all), getRunningProcessMap());
  for (const char* key : {"twice", "twin", "newest", "unreadable", "", "nobody"}) {
    EXPECT_EQ(pidForBundleIDIn(all, key), getPIDForBundleID(key)) << key;
  }
}

TEST(ProcessLookup, AProcessWithoutAPathIsFoundByName) {
  Processes device;
  const auto pid = device.launch("kernel_task", "");
  EXPECT_EQ(getRunningProcessMap(), (RunningProcessMap{{"kernel_task", pid}}));
}

TEST(ProcessLookup, APathWithoutADirectoryHasNoIdentifier) {
  Processes device;
  const std::filesystem::path executable =
      device.installApp("X.app", Dictionary{{"CFBundleIdentifier", "x"}});
  // The current directory in which the relative name would find the bundle.
  std::filesystem::current_path(executable.parent_path().parent_path());
  const auto pid = device.launch("X", "X.app");
  EXPECT_EQ(getRunningProcessMap(), (RunningProcessMap{{"X", pid}}));
}

// One of two processes exits right after the first or second call for the list.
void oneExitsAfterListCall(int call) {
  Processes device;
  const auto leaving = device.launch("leaving");
  const auto staying = device.launch("staying");
  device.device.script({.function = "proc_listpids", .first = call, .count = 1, .meanwhile = [&] {
                          device.device.exit(leaving);
                        }});
  EXPECT_EQ(getRunningProcessMap(), (RunningProcessMap{{"staying", staying}}));
}

TEST(ProcessLookup, ExitBetweenTheTwoListCallsIsNotFound) {
  oneExitsAfterListCall(1);
}

TEST(ProcessLookup, AProcessThatExitsDuringTheWalkIsNotFound) {
  oneExitsAfterListCall(2);
}

TEST(ProcessLookup, AZombieIsNotFound) {
  Processes device;
  device.device.becomeZombie(device.launch("backboardd"));
  EXPECT_EQ(getPIDForBundleID("backboardd"), 0);
  EXPECT_EQ(getRunningProcessMap(), RunningProcessMap{});
}

TEST(ProcessLookup, PidsBelowOneAreSkippedWithoutACall) {
  Processes device;
  const std::int32_t pids[] = {0, -5, device.launch("backboardd")};
  device.device.script({.function = "proc_listpids",
                        .first = 2,
                        .result = sizeof(pids),
                        .buffer = std::string(reinterpret_cast<const char*>(pids), sizeof(pids))});
  EXPECT_EQ(getRunningProcessMap(), (RunningProcessMap{{"backboardd", pids[2]}}));
  EXPECT_EQ(device.device.takeTrace({"proc_name"}),
            Lines{"proc_name(" + std::to_string(pids[2]) + ", zeros, 256) = 10"});
}

TEST(ProcessLookup, PidOneIsAProcessLikeAnyOther) {
  Processes device;
  device.device.launch({.name = "launchd", .executable_path = "/sbin/launchd", .pid = 1});
  EXPECT_EQ(getPIDForBundleID("launchd"), 1);
  EXPECT_EQ(getRunningProcessMap(), (RunningProcessMap{{"launchd", 1}}));
}

TEST(ProcessLookup, AnySizeAboveZeroIsRoomForAsManyProcesses) {
  Processes device;
  const auto older = device.launch("older");
  const auto newer = device.launch("newer");
  device.device.script({.function = "proc_listpids", .count = 1, .result = 1});
  EXPECT_EQ(getRunningProcessMap(), (RunningProcessMap{{"newer", newer}}));
  EXPECT_EQ(getRunningProcessMap(), (RunningProcessMap{{"newer", newer}, {"older", older}}));
}

TEST(ProcessLookup, AListThatCannotBeReadGivesNothing) {
  Processes device;
  device.launch("backboardd");
  struct Refusal {
    int call;
    int result;
  };
  for (const auto& [call, result] : {Refusal{1, 0}, Refusal{1, -1}, Refusal{2, 0}, Refusal{2, 3},
                                     Refusal{2, -1}, Refusal{1, INT_MAX}}) {
    device.device.clearScripts();
    device.device.script(
        {.function = "proc_listpids", .first = call, .count = 1, .result = result});
    device.device.takeTrace();
    EXPECT_EQ(getRunningProcessMap(), RunningProcessMap{}) << call << ' ' << result;
    EXPECT_EQ(device.device.takeTrace().size(), static_cast<std::size_t>(call)) << result;
    device.device.clearScripts();
    device.device.script(
        {.function = "proc_listpids", .first = call, .count = 1, .result = result});
    EXPECT_EQ(getPIDForBundleID("backboardd"), 0) << call << ' ' << result;
  }
}

TEST(ProcessLookup, OnlyTheFilledPartOfTheListIsLookedAt) {
  Processes device;
  const std::int32_t pids[] = {device.launch("listed"), device.launch("cut off")};
  device.device.script({.function = "proc_listpids",
                        .first = 2,
                        .result = sizeof(pids) - 1,
                        .buffer = std::string(reinterpret_cast<const char*>(pids), sizeof(pids))});
  EXPECT_EQ(getRunningProcessMap(), (RunningProcessMap{{"listed", pids[0]}}));
}

TEST(ProcessLookup, AListTooLongForTheSecondCallIsNotFetched) {
  Processes device;
  device.device.script({.function = "proc_listpids", .count = 1, .result = INT_MAX / 4 + 1});
  EXPECT_EQ(getRunningProcessMap(), RunningProcessMap{});
  EXPECT_EQ(device.device.takeTrace(), Lines{"proc_listpids(1, 0, null, 0) = 536870912"});
}

#ifndef VORLATCH_SANITIZED
TEST(ProcessLookup, AListBeyondTheMemoryThereIsIsNotFetched) {
  Processes device;
  device.launch("backboardd");
  device.device.script({.function = "proc_listpids", .count = 1, .result = INT_MAX / 4});
  const tests::ScarceMemory memory(64'000'000);
  EXPECT_EQ(getPIDForBundleID("backboardd"), 0);
  EXPECT_EQ(device.device.takeTrace(), Lines{"proc_listpids(1, 0, null, 0) = 536870911"});
}
#endif

TEST(ProcessLookup, TheWholeWalkMakesTheseCalls) {
  Processes device;
  const std::string older = std::to_string(device.launch("older", "/sbin/older"));
  const std::string newer = std::to_string(device.launch("newer", "/sbin/newer"));
  getRunningProcessMap();
  EXPECT_EQ(device.device.takeTrace(),
            (Lines{"proc_listpids(1, 0, null, 0) = 88", "proc_listpids(1, 0, buffer, 352) = 8",
                   "proc_name(" + newer + ", zeros, 256) = 5",
                   "proc_pidpath(" + newer + ", zeros, 4096) = 11",
                   "proc_name(" + older + ", zeros, 256) = 5",
                   "proc_pidpath(" + older + ", zeros, 4096) = 11"}));
  EXPECT_EQ(getPIDForBundleID("newer"), std::stoi(newer));
  EXPECT_EQ(device.device.takeTrace(),
            (Lines{"proc_listpids(1, 0, null, 0) = 88", "proc_listpids(1, 0, buffer, 352) = 8",
                   "proc_name(" + newer + ", zeros, 256) = 5"}));
}

}  // namespace
}  // namespace vorlatch
