#include "reconcile/reconciliation_pass.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/story.h"

namespace vorlatch {
namespace {

using plist::Dictionary;
using tests::kTargetRule;
using tests::Lines;
using tests::Story;
using namespace std::chrono_literals;

// Settings of which an apply says little: see applied().
const Dictionary kSettings{{"JetsamPriority", -1}};

const Lines kRemoved{kTargetRule, "[配置] 已有进程从列表移除，已恢复默认"};
const Lines kSwitchedOff{kTargetRule, "[配置] 生效开关已关闭，已挂起守护进程并还原默认状态"};

Lines operator+(Lines first, const Lines& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

// The block of one target that was applied with kSettings.
Lines applied(const std::string& header, const std::string& key, std::int32_t pid) {
  return {kTargetRule,
          header,
          "[内存限制] 目标 Act:0 Inact:0 | 最终 Act:1450 Inact:1450 -> [成功]",
          "[内核] ：成功",
          "[进程优先级] 目标已是 0",
          "[内存优先级] 目标:-1 -> 未设置, 跳过",
          "[守护] " + key + " PID:" + std::to_string(pid) + " 完成"};
}

Lines started(const std::string& key, std::int32_t pid) {
  return applied("[进程] 目标: " + key + " 已启动 PID: " + std::to_string(pid) + " ", key, pid);
}

Lines edited(const std::string& key, std::int32_t pid) {
  return applied("[配置] 目标: " + key + " PID: " + std::to_string(pid), key, pid);
}

Lines restored(const std::string& key, std::int32_t pid) {
  const std::string number = std::to_string(pid);
  return {kTargetRule, "[恢复] 目标: " + key + " PID: " + number,
          "[守护] " + key + " PID:" + number};
}

Dictionary entry(std::int32_t pid) {
  return {{"pid", pid}, {"n", 0}, {"p", 180}};
}

Dictionary with(Dictionary settings, const std::string& key, const plist::Value& value) {
  settings.insert_or_assign(key, value);
  return settings;
}

struct Daemon : Story {
  std::int32_t launch(const std::string& name) const { return device.launch({.name = name}); }
  Lines pass() {
    postAndRun();
    return takeLog();
  }
};

TEST(Pass, TheFirstOneAppliesWhatRunsAndRecordsTheRestSilently) {
  Daemon daemon;
  const auto pid = daemon.launch("alpha");
  daemon.writeTargets({{"alpha", kSettings}, {"beta", kSettings}});
  daemon.start();
  daemon.takeLog();
  daemon.run(150ms);
  EXPECT_EQ(daemon.takeLog(), started("alpha", pid));
  EXPECT_EQ(daemon.status(), (Dictionary{{"alpha", entry(pid)}}));
}

TEST(Pass, ASecondOneWithoutAnyChangeLogsAndCallsNothing) {
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

TEST(Pass, AnExitedProcessIsLoggedAndLeavesTheStatus) {
  Daemon daemon;
  const auto pid = daemon.launch("alpha");
  daemon.writeTargets({{"alpha", with(kSettings, "CheckInterval", 3600)}});
  daemon.startAndSettle();
  daemon.device.exit(pid);
  EXPECT_EQ(daemon.pass(), (Lines{kTargetRule, "[进程] 目标: alpha 已退出"}));
  EXPECT_EQ(daemon.status(), Dictionary{});
  EXPECT_EQ(daemon.device.takeTrace({"startTimer"}).size(), 2U);  // the watch timer anew
  EXPECT_EQ(daemon.pass(), Lines{});
}

TEST(Pass, ANewTargetThatDoesNotRunGetsItsTimerAndNothingElse) {
  Daemon daemon;
  daemon.writeTargets({{"alpha", kSettings}});
  daemon.startAndSettle();
  daemon.writeTargets({{"alpha", kSettings}, {"beta", with(kSettings, "CheckInterval", 5)}});
  EXPECT_EQ(daemon.pass(), Lines{});
  EXPECT_EQ(tests::modeOf(daemon.statusFile()), 0U);
  EXPECT_EQ(daemon.device.takeTrace({"startTimer"}).back(),
            "startTimer(com.zel.vorlatch.debounce, 5000000000, 5000000000, 1000000000) = timer 4");
  // It is known from now on: leaving the list restores it.
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

TEST(Pass, TwoRemovedTargetsGiveOneLineAndAreRestoredOnTheWorker) {
  Daemon daemon;
  const auto alpha = daemon.launch("alpha");
  const auto gamma = daemon.launch("gamma");
  daemon.writeTargets({{"alpha", kSettings}, {"beta", kSettings}, {"gamma", kSettings}});
  daemon.startAndSettle();
  daemon.writeTargets({{"gamma", kSettings}});
  EXPECT_EQ(daemon.pass(), kRemoved + restored("alpha", alpha));
  EXPECT_EQ(daemon.status(), (Dictionary{{"gamma", entry(gamma)}}));
}

TEST(Pass, OfARemovedTargetThatDoesNotRunOnlyTheEntryGoes) {
  Daemon daemon;
  const auto pid = daemon.launch("alpha");
  daemon.writeTargets({{"alpha", kSettings}});
  daemon.startAndSettle();
  daemon.device.exit(pid);
  // A foreign program made the status say otherwise; the removal writes it anew.
  daemon.pass();
  tests::writeAll(daemon.statusFile(), "stale");
  daemon.device.takeTrace();
  daemon.writeTargets({});
  EXPECT_EQ(daemon.pass(), kRemoved);
  EXPECT_EQ(daemon.takeCalls(), Lines{});
  EXPECT_EQ(daemon.status(), Dictionary{});
  EXPECT_NE(tests::readAll(daemon.statusFile()), "stale");
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

TEST(Pass, WithEmptiedTargetsAllAreRestoredAndNoProcessIsLookedAt) {
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

TEST(SwitchedOff, EverythingKnownIsRestoredOnceAndAllTimersGo) {
  Daemon daemon;
  const auto alpha = daemon.launch("alpha");
  const auto beta = daemon.launch("beta");
  const Dictionary targets{{"alpha", with(kSettings, "CheckInterval", 5)},
                           {"beta", kSettings},
                           {"gamma", with(kSettings, "CheckInterval", 7)}};
  daemon.writeTargets(targets);
  daemon.startAndSettle();
  daemon.writePreferences({{"Enabled", false}, {"AppConfigs", targets}});
  EXPECT_EQ(daemon.pass(), kSwitchedOff + restored("alpha", alpha) + restored("beta", beta));
  EXPECT_EQ(daemon.status(), Dictionary{});
  EXPECT_EQ(daemon.device.scheduler.timerCount(), 2U);  // debounce and patrol stay armed
  EXPECT_EQ(daemon.pass(), Lines{});
  daemon.run(2h);
  EXPECT_EQ(daemon.takeLog(), Lines{});
}

TEST(SwitchedOff, AMissingSwitchIsOff) {
  Daemon daemon;
  const auto pid = daemon.launch("alpha");
  daemon.writeTargets({{"alpha", kSettings}});
  daemon.startAndSettle();
  daemon.writePreferences({{"AppConfigs", Dictionary{{"alpha", kSettings}}}});
  EXPECT_EQ(daemon.pass(), kSwitchedOff + restored("alpha", pid));
}

TEST(SwitchedOff, AMissingFileIsOff) {
  Daemon daemon;
  const auto pid = daemon.launch("alpha");
  daemon.writeTargets({{"alpha", kSettings}});
  daemon.startAndSettle();
  ASSERT_EQ(unlink(daemon.preferencesFile().c_str()), 0);
  EXPECT_EQ(daemon.pass(), kSwitchedOff + restored("alpha", pid));
}

TEST(SwitchedOff, FromTheFirstPassItIsSilent) {
  Daemon daemon;
  daemon.launch("alpha");
  daemon.writePreferences({{"Enabled", false}, {"AppConfigs", Dictionary{{"alpha", kSettings}}}});
  daemon.start();
  daemon.takeLog();
  daemon.run(150ms);
  EXPECT_EQ(daemon.takeLog(), Lines{});
  EXPECT_EQ(daemon.pass(), Lines{});
}

TEST(SwitchedOff, OnAgainEverythingRunningIsAppliedAsOnTheFirstPass) {
  Daemon daemon;
  const auto pid = daemon.launch("alpha");
  daemon.writeTargets({{"alpha", kSettings}});
  daemon.startAndSettle();
  daemon.writePreferences({{"Enabled", false}, {"AppConfigs", Dictionary{{"alpha", kSettings}}}});
  daemon.pass();
  daemon.writeTargets({{"alpha", kSettings}});
  EXPECT_EQ(daemon.pass(), started("alpha", pid));
}

TEST(SwitchedOff, WhatThePatrolSawOfNoTargetIsForgottenToo) {
  Daemon daemon;
  daemon.writeTargets({});
  daemon.startAndSettle();
  const auto pid = daemon.launch("alpha");
  // The patrol is the first to see the target; no pass has taken charge of it.
  daemon.writeTargets({{"alpha", kSettings}});
  daemon.run(1800s);
  daemon.writePreferences({{"Enabled", false}});
  daemon.takeLog();
  EXPECT_EQ(daemon.pass(), Lines{});
  daemon.writeTargets({{"alpha", kSettings}});
  EXPECT_EQ(daemon.pass(), started("alpha", pid));
}

TEST(Pass, ATargetThatThePatrolSawFirstIsTakenChargeOfAsEdited) {
  Daemon daemon;
  daemon.writeTargets({});
  daemon.startAndSettle();
  const auto pid = daemon.launch("alpha");
  daemon.writeTargets({{"alpha", kSettings}});
  daemon.run(1800s);
  daemon.takeLog();
  EXPECT_EQ(daemon.pass(), edited("alpha", pid));
}

TEST(Pass, AnIntervalEditedToZeroOrBelowEndsTheTimer) {
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
