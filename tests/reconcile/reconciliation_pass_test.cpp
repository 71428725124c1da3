#include "reconcile/reconciliation_pass.h"

#include <unistd.h>

#include <set>

#include <gtest/gtest.h>

#include "reconcile/work_queues.h"
#include "tests/reconcile/pass_story.h"

namespace vorlatch {
namespace {

using plist::Dictionary;
using tests::Alpha;
using tests::Daemon;
using tests::edited;
using tests::entry;
using tests::every;
using tests::kRemoved;
using tests::kSettings;
using tests::kSwitchedOff;
using tests::Lines;
using tests::restored;
using tests::started;
using tests::ticked;
using tests::with;
using namespace std::chrono_literals;

// A timer of the debounce queue as the trace shows its start.
std::string startOf(const std::string& schedule, int number) {
  return "startTimer(com.zel.vorlatch.debounce, " + schedule + ") = timer " +
         std::to_string(number);
}

TEST(Pass, FirstPassAppliesRunningTargets) {
  Daemon daemon;
  const auto alpha = daemon.launch("alpha");
  const auto app = daemon.device.launch(
      {.name = "WeChat",
       .executable_path =
           daemon.installApp("WeChat.app", Dictionary{{"CFBundleIdentifier", "com.tencent.xin"}})});
  daemon.writeTargets({{"alpha", kSettings}, {"beta", kSettings}, {"com.tencent.xin", kSettings}});
  daemon.start();
  daemon.takeLog();
  EXPECT_EQ(daemon.runAndTakeLog(150ms), started("alpha", alpha) + started("com.tencent.xin", app));
  EXPECT_EQ(daemon.status(),
            (Dictionary{{"alpha", entry(alpha)}, {"com.tencent.xin", entry(app)}}));
}

TEST(Pass, UnchangedPassLogsCallsAndWritesNothing) {
  Alpha daemon(with(every(10), "MemLimitActive", 0));
  tests::writeAll(daemon.statusFile(), "");
  daemon.run(9s);
  EXPECT_EQ(daemon.pass(), Lines{});
  // An equal number of another type is no change.
  EXPECT_EQ(daemon.passWith({{"alpha", with(every(10), "MemLimitActive", 0.0)}}), Lines{});
  EXPECT_EQ(daemon.takeCalls(), Lines{});
  EXPECT_EQ(tests::readAll(daemon.statusFile()), "");
  // The timer keeps its phase: 10 s after the first pass.
  EXPECT_EQ(daemon.runAndTakeLog(700ms), ticked("alpha", 10, daemon.pid));
}

TEST(Pass, AnEditOfAnyKeyCountsAsAChange) {
  Alpha daemon(every(3600));
  const Dictionary remarked = with(every(3600), "Remark", "new");
  EXPECT_EQ(daemon.passWith({{"alpha", remarked}}), edited("alpha", daemon.pid));
  EXPECT_EQ(
      daemon.device.takeTrace({"cancelTimer", "startTimer"}),
      (Lines{"cancelTimer(timer 2)", startOf("150000000, never, 0", 4), "cancelTimer(timer 3)",
             startOf("3600000000000, 3600000000000, 1000000000", 5)}));
  EXPECT_EQ(daemon.passWith({{"alpha", with(remarked, "Unknown", plist::Array{1})}}),
            edited("alpha", daemon.pid));
}

TEST(Pass, RestartAndExitAreLoggedAndRestartTheTimer) {
  Alpha daemon(every(3600));
  const Lines restarted = daemon.restart();
  EXPECT_EQ(daemon.pass(), restarted);
  EXPECT_EQ(daemon.status(), (Dictionary{{"alpha", entry(daemon.pid)}}));
  EXPECT_EQ(daemon.device.takeTrace({"cancelTimer"}).size(), 2U);  // debounce and watch timer
  daemon.device.exit(daemon.pid);
  EXPECT_EQ(daemon.pass(), tests::exited("alpha"));
  EXPECT_EQ(daemon.status(), Dictionary{});
  EXPECT_EQ(daemon.device.takeTrace({"startTimer"}).size(), 2U);
  EXPECT_EQ(daemon.pass(), Lines{});
}

TEST(Pass, StoppedTargetsGetOnlyTheirTimers) {
  Daemon daemon;
  daemon.settleWith({{"alpha", kSettings}});
  EXPECT_EQ(daemon.passWith({{"alpha", with(kSettings, "NiceValue", 5)}, {"beta", every(5)}}),
            Lines{});
  EXPECT_EQ(tests::modeOf(daemon.statusFile()), 0U);
  EXPECT_EQ(daemon.device.takeTrace({"startTimer"}).back(),
            startOf("5000000000, 5000000000, 1000000000", 4));
  // Each is known from now on, so that removing it from the list restores it.
  EXPECT_EQ(daemon.passWith({{"beta", every(5)}}), kRemoved);
  EXPECT_EQ(daemon.passWith({}), kRemoved);
  EXPECT_EQ(daemon.passWith({{"beta", every(5)}}), Lines{});
  const auto pid = daemon.launch("beta");
  EXPECT_EQ(daemon.runAndTakeLog(5s), started("beta", pid));
}

TEST(Pass, RemovedTargetsGiveOneLineAndLoseTheirTimers) {
  Daemon daemon;
  const auto alpha = daemon.launch("alpha");
  const auto gamma = daemon.launch("gamma");
  daemon.settleWith({{"alpha", every(5)}, {"beta", every(5)}, {"gamma", kSettings}});
  EXPECT_EQ(daemon.passWith({{"gamma", kSettings}}), kRemoved + restored("alpha", alpha));
  EXPECT_EQ(daemon.status(), (Dictionary{{"gamma", entry(gamma)}}));
  EXPECT_EQ(daemon.device.scheduler.timerCount(), 2U);  // debounce and patrol
  EXPECT_EQ(daemon.runAndTakeLog(60s), Lines{});
}

TEST(Pass, RemovedTargetKnownToPatrolLosesItsEntry) {
  Daemon daemon;
  daemon.settleWith({{"alpha", kSettings}});
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
  EXPECT_EQ(daemon.runAndTakeLog(0ms), kRemoved);
  EXPECT_EQ(daemon.takeCalls(), Lines{});
  EXPECT_EQ(daemon.status(), Dictionary{});
}

// The observed orders show the restore's queue, because work on one queue keeps its order.
TEST(Pass, RestoreDoesNotBlockTheDebounceQueue) {
  Daemon daemon;
  const auto pid = daemon.launch("alpha");
  const Dictionary staying{{"beta", kSettings}};
  daemon.settleWith(staying);
  daemon.device.scheduler.shuffleWith(1);
  Lines order;
  daemon.device.script(
      {.function = "setpriority", .pid = pid, .meanwhile = [&] { order.emplace_back("restore"); }});
  std::set<Lines> orders;
  for (int round = 0; round < 100; ++round) {
    daemon.passWith({{"alpha", kSettings}, {"beta", kSettings}});
    // The pass that removes the target scans the processes after it sent the restore.
    daemon.device.script({.function = "proc_listpids", .count = 1, .meanwhile = [&] {
                            platform::async(debounceQueue(),
                                            [&] { order.emplace_back("debounce"); });
                            platform::async(workerQueue(), [&] { order.emplace_back("worker"); });
                          }});
    order.clear();
    daemon.passWith(staying);
    orders.insert(order);
  }
  EXPECT_EQ(orders, (std::set<Lines>{{"debounce", "restore", "worker"},
                                     {"restore", "debounce", "worker"},
                                     {"restore", "worker", "debounce"}}));
}

TEST(Pass, EmptiedTargetsAreRestoredAtTheLastKnownPid) {
  Alpha daemon;
  const auto before = daemon.pid;
  daemon.restart();
  EXPECT_EQ(daemon.passWith({}), kRemoved + restored("alpha", before));
  EXPECT_EQ(daemon.device.takeTrace({"proc_listpids"}), Lines{});
  EXPECT_EQ(daemon.device.jetsam(daemon.pid).effective_band, 180);
  EXPECT_EQ(daemon.pass(), Lines{});
  // A target that comes back is applied as new.
  EXPECT_EQ(daemon.passWith({{"alpha", kSettings}}), started("alpha", daemon.pid));
  daemon.writePreferences({{"Enabled", true}});  // missing targets count as empty
  EXPECT_EQ(daemon.pass(), kRemoved + restored("alpha", daemon.pid));
  EXPECT_EQ(daemon.passWith({{"alpha", kSettings}}), started("alpha", daemon.pid));  // the same pid
}

// Launches the target alpha, which a patrol applies before any pass sees it. Returns its pid.
std::int32_t launchForPatrol(Daemon& daemon) {
  daemon.settleWith({});
  const auto pid = daemon.launch("alpha");
  daemon.writeTargets({{"alpha", kSettings}});
  daemon.run(1800s);
  daemon.takeLog();
  return pid;
}

TEST(Pass, TargetFirstSeenByPatrolCountsAsEdited) {
  Daemon daemon;
  const auto pid = launchForPatrol(daemon);
  EXPECT_EQ(daemon.pass(), edited("alpha", pid));
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

TEST(SwitchedOff, RestoresAllOnceAndStartsAnewOnceOn) {
  Daemon daemon;
  const auto alpha = daemon.launch("alpha");
  const auto beta = daemon.launch("beta");
  const auto delta = daemon.launch("delta");
  const Dictionary targets{
      {"alpha", every(10)}, {"beta", kSettings}, {"delta", every(17)}, {"gamma", every(12)}};
  daemon.settleWith(targets);
  daemon.run(7s);
  daemon.writePreferences({{"Enabled", false}, {"AppConfigs", targets}});
  EXPECT_EQ(daemon.pass(), kSwitchedOff + restored("alpha", alpha) + restored("beta", beta) +
                               restored("delta", delta));
  EXPECT_EQ(daemon.status(), Dictionary{});
  EXPECT_EQ(daemon.device.scheduler.timerCount(), 2U);  // debounce and patrol stay armed
  EXPECT_EQ(daemon.pass(), Lines{});
  EXPECT_EQ(daemon.runAndTakeLog(2h), Lines{});
  daemon.device.takeTrace();

  EXPECT_EQ(daemon.passWith(targets),
            started("alpha", alpha) + started("beta", beta) + started("delta", delta));
  const auto in_idle_band = [](std::int32_t pid) { return with(entry(pid), "p", 0); };  // restored
  EXPECT_EQ(daemon.status(), (Dictionary{{"alpha", in_idle_band(alpha)},
                                         {"beta", in_idle_band(beta)},
                                         {"delta", in_idle_band(delta)}}));
  EXPECT_EQ(daemon.device.takeTrace({"cancelTimer", "startTimer"}),
            (Lines{"cancelTimer(timer 7)", startOf("150000000, never, 0", 8),
                   startOf("10000000000, 10000000000, 1000000000", 9),
                   startOf("17000000000, 17000000000, 1000000000", 10),
                   startOf("12000000000, 12000000000, 1000000000", 11)}));
  const auto gamma = daemon.launch("gamma");
  EXPECT_EQ(daemon.runAndTakeLog(10s - 1ns), Lines{});
  EXPECT_EQ(daemon.runAndTakeLog(1ns), ticked("alpha", 10, alpha));
  EXPECT_EQ(daemon.runAndTakeLog(2s), started("gamma", gamma));
  EXPECT_EQ(daemon.runAndTakeLog(5s), ticked("delta", 17, delta));
}

TEST(SwitchedOff, AMissingSwitchOrFileIsOff) {
  Alpha daemon;
  daemon.writePreferences({{"AppConfigs", Dictionary{{"alpha", kSettings}}}});
  EXPECT_EQ(daemon.pass(), kSwitchedOff + restored("alpha", daemon.pid));
  EXPECT_EQ(daemon.passWith({{"alpha", kSettings}}), started("alpha", daemon.pid));
  ASSERT_EQ(unlink(daemon.preferencesFile().c_str()), 0);
  EXPECT_EQ(daemon.pass(), kSwitchedOff + restored("alpha", daemon.pid));
}

TEST(SwitchedOff, WhatThePatrolSawOfNoTargetIsForgottenToo) {
  Daemon daemon;
  const auto pid = launchForPatrol(daemon);
  daemon.writePreferences({{"Enabled", false}});
  EXPECT_EQ(daemon.pass(), Lines{});
  EXPECT_EQ(daemon.passWith({{"alpha", kSettings}}), started("alpha", pid));
}

}  // namespace
}  // namespace vorlatch
