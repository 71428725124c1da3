#include "reconcile/reconciliation_pass.h"

#include <set>

#include <gtest/gtest.h>

#include "reconcile/work_queues.h"
#include "tests/reconcile/pass_story.h"

namespace vorlatch {
namespace {

using plist::Dictionary;
using tests::Daemon;
using tests::edited;
using tests::entry;
using tests::exited;
using tests::kRemoved;
using tests::kSettings;
using tests::Lines;
using tests::restored;
using tests::started;
using tests::with;
using namespace std::chrono_literals;

Lines operator+(Lines first, const Lines& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

TEST(Pass, FirstPassAppliesRunningTargets) {
  Daemon daemon;
  const auto pid = daemon.launch("alpha");
  daemon.writeTargets({{"alpha", kSettings}, {"beta", kSettings}});
  daemon.start();
  daemon.takeLog();
  daemon.run(150ms);
  EXPECT_EQ(daemon.takeLog(), started("alpha", pid));
  EXPECT_EQ(daemon.status(), (Dictionary{{"alpha", entry(pid)}}));
}

TEST(Pass, UnchangedPassLogsAndCallsNothing) {
  Daemon daemon;
  daemon.launch("alpha");
  daemon.writeTargets({{"alpha", with(kSettings, "CheckInterval", 3600)}, {"beta", kSettings}});
  daemon.startAndSettle();
  EXPECT_EQ(daemon.pass(), Lines{});
  EXPECT_EQ(daemon.takeCalls(), Lines{});
}

TEST(Pass, ASkippedTargetsStatusEntryIsNotWritten) {
  Daemon daemon;
  daemon.launch("alpha");
  daemon.writeTargets({{"alpha", kSettings}});
  daemon.startAndSettle();
  tests::writeAll(daemon.statusFile(), "");
  EXPECT_EQ(daemon.pass(), Lines{});
  EXPECT_EQ(tests::readAll(daemon.statusFile()), "");
}

TEST(Pass, AnEditedRemarkAloneCountsAsAChange) {
  Daemon daemon;
  const auto pid = daemon.launch("alpha");
  daemon.writeTargets({{"alpha", with(kSettings, "CheckInterval", 3600)}});
  daemon.startAndSettle();
  daemon.writeTargets({{"alpha", with(with(kSettings, "CheckInterval", 3600), "Remark", "new")}});
  EXPECT_EQ(daemon.pass(), edited("alpha", pid));
  EXPECT_EQ(daemon.device.takeTrace({"cancelTimer", "startTimer"}),
            (Lines{"cancelTimer(timer 2)",
                   "startTimer(com.zel.vorlatch.debounce, 150000000, never, 0) = timer 4",
                   "cancelTimer(timer 3)",
                   "startTimer(com.zel.vorlatch.debounce, 3600000000000, 3600000000000, 1000000000)"
                   " = timer 5"}));
}

TEST(Pass, AnUnknownKeyOfATargetCountsAsAChange) {
  Daemon daemon;
  const auto pid = daemon.launch("alpha");
  daemon.writeTargets({{"alpha", kSettings}});
  daemon.startAndSettle();
  daemon.writeTargets({{"alpha", with(kSettings, "Unknown", plist::Array{1})}});
  EXPECT_EQ(daemon.pass(), edited("alpha", pid));
}

TEST(Pass, AnEqualNumberOfAnotherTypeIsNoChange) {
  Daemon daemon;
  daemon.launch("alpha");
  daemon.writeTargets({{"alpha", with(kSettings, "MemLimitActive", 0)}});
  daemon.startAndSettle();
  daemon.writeTargets({{"alpha", with(kSettings, "MemLimitActive", 0.0)}});
  EXPECT_EQ(daemon.pass(), Lines{});
}

TEST(Pass, ARestartedProcessIsSeenAsStarted) {
  Daemon daemon;
  const auto before = daemon.launch("alpha");
  daemon.writeTargets({{"alpha", with(kSettings, "CheckInterval", 3600)}});
  daemon.startAndSettle();
  daemon.device.exit(before);
  const auto after = daemon.launch("alpha");
  EXPECT_EQ(daemon.pass(), started("alpha", after));
  EXPECT_EQ(daemon.status(), (Dictionary{{"alpha", entry(after)}}));
  EXPECT_EQ(daemon.device.takeTrace({"cancelTimer"}).size(), 2U);  // debounce and watch timer
}

TEST(Pass, ExitIsLoggedAndRemovedFromTheStatus) {
  Daemon daemon;
  const auto pid = daemon.launch("alpha");
  daemon.writeTargets({{"alpha", with(kSettings, "CheckInterval", 3600)}});
  daemon.startAndSettle();
  daemon.device.exit(pid);
  EXPECT_EQ(daemon.pass(), exited("alpha"));
  EXPECT_EQ(daemon.status(), Dictionary{});
  EXPECT_EQ(daemon.device.takeTrace({"startTimer"}).size(), 2U);  // the watch timer was restarted
  EXPECT_EQ(daemon.pass(), Lines{});
}

TEST(Pass, NewStoppedTargetGetsOnlyItsTimer) {
  Daemon daemon;
  daemon.writeTargets({{"alpha", kSettings}});
  daemon.startAndSettle();
  daemon.writeTargets({{"alpha", kSettings}, {"beta", with(kSettings, "CheckInterval", 5)}});
  EXPECT_EQ(daemon.pass(), Lines{});
  EXPECT_EQ(tests::modeOf(daemon.statusFile()), 0U);
  EXPECT_EQ(daemon.device.takeTrace({"startTimer"}).back(),
            "startTimer(com.zel.vorlatch.debounce, 5000000000, 5000000000, 1000000000) = timer 4");
  // The target is known from now on, so that removing it from the list restores it.
  daemon.writeTargets({{"alpha", kSettings}});
  EXPECT_EQ(daemon.pass(), kRemoved);
}

TEST(Pass, AnEditedTargetThatDoesNotRunIsSilent) {
  Daemon daemon;
  daemon.writeTargets({{"alpha", kSettings}});
  daemon.startAndSettle();
  daemon.writeTargets({{"alpha", with(kSettings, "NiceValue", 5)}});
  EXPECT_EQ(daemon.pass(), Lines{});
  EXPECT_EQ(tests::modeOf(daemon.statusFile()), 0U);
}

TEST(Pass, TwoRemovedTargetsGiveOneLine) {
  Daemon daemon;
  const auto alpha = daemon.launch("alpha");
  const auto gamma = daemon.launch("gamma");
  daemon.writeTargets({{"alpha", kSettings}, {"beta", kSettings}, {"gamma", kSettings}});
  daemon.startAndSettle();
  daemon.writeTargets({{"gamma", kSettings}});
  EXPECT_EQ(daemon.pass(), kRemoved + restored("alpha", alpha));
  EXPECT_EQ(daemon.status(), (Dictionary{{"gamma", entry(gamma)}}));
}

TEST(Pass, RemovedStoppedTargetLosesOnlyItsEntry) {
  Daemon daemon;
  const auto pid = daemon.launch("alpha");
  daemon.writeTargets({{"alpha", kSettings}});
  daemon.startAndSettle();
  daemon.device.exit(pid);
  // Overwrites the status as another program might; the removal rewrites it.
  daemon.pass();
  tests::writeAll(daemon.statusFile(), "stale");
  daemon.device.takeTrace();
  daemon.writeTargets({});
  EXPECT_EQ(daemon.pass(), kRemoved);
  EXPECT_EQ(daemon.takeCalls(), Lines{});
  EXPECT_EQ(daemon.status(), Dictionary{});
  EXPECT_NE(tests::readAll(daemon.statusFile()), "stale");
}

TEST(Pass, RemovedTargetKnownToPatrolLosesItsEntry) {
  Daemon daemon;
  daemon.writeTargets({{"alpha", kSettings}});
  daemon.startAndSettle();
  const auto pid = daemon.launch("alpha");
  // The patrol's sweep applies the target. Meanwhile a pass becomes due at 1800.05 s, before the
  // debounce queue learns of the application.
  daemon.device.script(
      {.function = "proc_listpids", .count = 1, .takes_ns = 100'000'000, .meanwhile = [&] {
         daemon.writeTargets({});
       }});
  daemon.run(1800s - 250ms);
  daemon.post();
  const std::uint64_t end_ns = daemon.device.scheduler.nowNs() + 1'000'000'000;
  daemon.device.scheduler.runUntil(end_ns, [&] { return !daemon.status().empty(); });
  EXPECT_EQ(daemon.status(), (Dictionary{{"alpha", entry(pid)}}));
  daemon.takeLog();
  daemon.device.takeTrace();
  daemon.run(0ms);
  EXPECT_EQ(daemon.takeLog(), kRemoved);
  EXPECT_EQ(daemon.takeCalls(), Lines{});
  EXPECT_EQ(daemon.status(), Dictionary{});
}

TEST(Pass, ARemovedTargetLosesItsTimer) {
  Daemon daemon;
  daemon.launch("alpha");
  daemon.writeTargets({{"alpha", with(kSettings, "CheckInterval", 5)}, {"beta", kSettings}});
  daemon.startAndSettle();
  daemon.writeTargets({{"beta", kSettings}});
  daemon.pass();
  EXPECT_EQ(daemon.device.scheduler.timerCount(), 2U);  // debounce and patrol
  daemon.run(60s);
  EXPECT_EQ(daemon.takeLog(), Lines{});
}

// The observed orders show the restore's queue, because work on one queue keeps its order.
TEST(Pass, RestoreDoesNotBlockTheDebounceQueue) {
  Daemon daemon;
  const auto pid = daemon.launch("alpha");
  const Dictionary staying{{"beta", kSettings}};
  daemon.writeTargets(staying);
  daemon.startAndSettle();
  daemon.device.scheduler.shuffleWith(1);
  Lines order;
  daemon.device.script(
      {.function = "setpriority", .pid = pid, .meanwhile = [&] { order.emplace_back("restore"); }});
  std::set<Lines> orders;
  for (int round = 0; round < 100; ++round) {
    daemon.writeTargets({{"alpha", kSettings}, {"beta", kSettings}});
    daemon.postAndRun();
    daemon.writeTargets(staying);
    // The pass that removes the target scans the processes after it sent the restore.
    daemon.device.script({.function = "proc_listpids", .count = 1, .meanwhile = [&] {
                            platform::async(debounceQueue(),
                                            [&] { order.emplace_back("debounce"); });
                            platform::async(workerQueue(), [&] { order.emplace_back("worker"); });
                          }});
    order.clear();
    daemon.postAndRun();
    orders.insert(order);
  }
  EXPECT_EQ(orders, (std::set<Lines>{{"debounce", "restore", "worker"},
                                     {"restore", "debounce", "worker"},
                                     {"restore", "worker", "debounce"}}));
}

TEST(Pass, ARestoreGoesToThePidLastKnown) {
  Daemon daemon;
  const auto before = daemon.launch("alpha");
  daemon.writeTargets({{"alpha", kSettings}});
  daemon.startAndSettle();
  daemon.device.exit(before);
  const auto after = daemon.launch("alpha");
  daemon.writeTargets({});
  EXPECT_EQ(daemon.pass(), kRemoved + restored("alpha", before));
  EXPECT_EQ(daemon.device.jetsam(after).effective_band, 180);
}

TEST(Pass, EmptiedTargetsAreRestoredWithoutAScan) {
  Daemon daemon;
  const auto pid = daemon.launch("alpha");
  daemon.writeTargets({{"alpha", kSettings}});
  daemon.startAndSettle();
  daemon.writeTargets({});
  EXPECT_EQ(daemon.pass(), kRemoved + restored("alpha", pid));
  EXPECT_EQ(daemon.device.takeTrace({"proc_listpids"}), Lines{});
  EXPECT_EQ(daemon.pass(), Lines{});
}

TEST(Pass, MissingTargetsCountAsEmpty) {
  Daemon daemon;
  const auto pid = daemon.launch("alpha");
  daemon.writeTargets({{"alpha", kSettings}});
  daemon.startAndSettle();
  daemon.writePreferences({{"Enabled", true}});
  EXPECT_EQ(daemon.pass(), kRemoved + restored("alpha", pid));
}

TEST(Pass, ATargetThatComesBackIsAppliedAsNew) {
  Daemon daemon;
  const auto pid = daemon.launch("alpha");
  daemon.writeTargets({{"alpha", kSettings}});
  daemon.startAndSettle();
  daemon.writeTargets({});
  daemon.pass();
  daemon.writeTargets({{"alpha", kSettings}});
  EXPECT_EQ(daemon.pass(), started("alpha", pid));
}

TEST(Pass, ReturningStoppedTargetGetsItsTimerAgain) {
  Daemon daemon;
  const Dictionary watched = with(kSettings, "CheckInterval", 5);
  daemon.writeTargets({{"alpha", watched}});
  daemon.startAndSettle();
  daemon.writeTargets({});
  EXPECT_EQ(daemon.pass(), kRemoved);
  daemon.writeTargets({{"alpha", watched}});
  EXPECT_EQ(daemon.pass(), Lines{});
  const auto pid = daemon.launch("alpha");
  daemon.run(5s);
  EXPECT_EQ(daemon.takeLog(), started("alpha", pid));
}

TEST(Pass, TargetFirstSeenByPatrolCountsAsEdited) {
  Daemon daemon;
  daemon.writeTargets({});
  daemon.startAndSettle();
  const auto pid = daemon.launch("alpha");
  daemon.writeTargets({{"alpha", kSettings}});
  daemon.run(1800s);
  daemon.takeLog();
  EXPECT_EQ(daemon.pass(), edited("alpha", pid));
}

TEST(Pass, NonPositiveIntervalEndsTheTimer) {
  Daemon daemon;
  daemon.launch("alpha");
  daemon.launch("beta");
  daemon.writeTargets({{"alpha", with(kSettings, "CheckInterval", 30)},
                       {"beta", with(kSettings, "CheckInterval", 30)}});
  daemon.startAndSettle();
  EXPECT_EQ(daemon.device.scheduler.timerCount(), 4U);
  daemon.writeTargets({{"alpha", with(kSettings, "CheckInterval", 0)},
                       {"beta", with(kSettings, "CheckInterval", -3)}});
  daemon.pass();
  EXPECT_EQ(daemon.device.scheduler.timerCount(), 2U);  // debounce and patrol
}

TEST(Pass, ASkippedTargetsTimerKeepsItsPhase) {
  Daemon daemon;
  daemon.launch("alpha");
  daemon.writeTargets({{"alpha", with(kSettings, "CheckInterval", 10)}});
  daemon.startAndSettle();
  daemon.run(9s);
  EXPECT_EQ(daemon.pass(), Lines{});
  daemon.run(850ms);  // 10 s after the first pass
  EXPECT_EQ(daemon.takeLog().size(), 7U);
}

TEST(Pass, ClearsAnOversizedLogBeforeAnythingElse) {
  Daemon daemon;
  const auto pid = daemon.launch("alpha");
  daemon.writePreferences(
      {{"Enabled", true}, {"LogSizeLimit", 100}, {"AppConfigs", Dictionary{{"alpha", kSettings}}}});
  daemon.start();
  daemon.takeLog();
  daemon.run(150ms);
  EXPECT_EQ(daemon.rereadLog(),
            Lines{"[守护] 日志大小超过设定限制(0.0MB)，已自动清空。"} + started("alpha", pid));
}

TEST(Pass, AnAppAndADaemonAreFoundAlike) {
  Daemon daemon;
  const auto app = daemon.device.launch(
      {.name = "WeChat",
       .executable_path =
           daemon.installApp("WeChat.app", Dictionary{{"CFBundleIdentifier", "com.tencent.xin"}})});
  daemon.writeTargets({{"com.tencent.xin", kSettings}});
  daemon.start();
  daemon.takeLog();
  daemon.run(150ms);
  EXPECT_EQ(daemon.takeLog(), started("com.tencent.xin", app));
}

}  // namespace
}  // namespace vorlatch
