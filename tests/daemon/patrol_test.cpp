#include "daemon/patrol.h"

#include <gtest/gtest.h>

#include "daemon/apply_scheduling.h"
#include "tests/support/story.h"

namespace vorlatch {
namespace {

using plist::Dictionary;
using tests::kChapterRule;
using tests::kTargetRule;
using tests::Lines;
using tests::Story;
using namespace std::chrono_literals;

const Dictionary kSettings{{"JetsamPriority", -1}};
const Lines kBegun{kChapterRule, "[守护] 开始执行 1800s "};
const Lines kEnded{"[全局守护] 1800s 周期巡检完成。", kChapterRule};

Lines applied(const std::string& key, std::int32_t pid) {
  return {"[内存限制] 目标 Act:0 Inact:0 | 最终 Act:1450 Inact:1450 -> [成功]", "[内核] ：成功",
          "[进程优先级] 目标已是 0", "[内存优先级] 目标:-1 -> 未设置, 跳过",
          "[守护] " + key + " PID:" + std::to_string(pid) + " 完成"};
}

TEST(Patrol, MakesBothQueuesWhereNobodyDidBefore) {
  Story story;
  kMainThread.assertHeld();
  setupGlobal1800sTimer();
  EXPECT_EQ(story.device.takeTrace(),
            (Lines{"makeSerialQueue(\"com.zel.vorlatch.debounce\")",
                   "makeSerialQueue(\"com.zel.vorlatch.worker\")",
                   "startTimer(com.zel.vorlatch.debounce, 1800000000000, 1800000000000, 5000000000)"
                   " = timer 1"}));
}

TEST(Patrol, TicksAt1800SecondsAndAgainAt3600) {
  Story story;
  const auto alpha = story.device.launch({.name = "alpha"});
  const auto beta = story.device.launch({.name = "beta"});
  story.writeTargets({{"absent", kSettings}, {"alpha", kSettings}, {"beta", kSettings}});
  story.start();
  story.run(1s);
  story.takeLog();
  story.device.takeTrace();
  story.run(1799s - 1ns);
  EXPECT_EQ(story.takeLog(), Lines{});
  for (int tick = 0; tick < 2; ++tick) {
    story.run(1ns);
    EXPECT_EQ(story.takeLog(), kBegun + applied("alpha", alpha) + applied("beta", beta) + kEnded);
    EXPECT_EQ(story.device.takeTrace({"proc_listpids"}).size(), 2U);  // one scan
    story.run(1800s - 1ns);
    EXPECT_EQ(story.takeLog(), Lines{});
  }
}

TEST(Patrol, HoldsWhatTheSystemChangedMeanwhile) {
  Story story;
  const auto pid = story.device.launch({.name = "alpha"});
  story.writeTargets({{"alpha", Dictionary{{"NiceValue", -7}, {"JetsamPriority", 100}}}});
  story.startAndSettle();
  story.device.find(pid)->nice_value = 3;
  story.device.jetsam_table.records[pid].effective_band = 30;
  story.run(1800s);
  EXPECT_EQ(story.device.find(pid)->nice_value, -7);
  EXPECT_EQ(story.device.jetsam(pid).effective_band, 100);
}

TEST(Patrol, IsSilentWhenSwitchedOffOrWithoutTargets) {
  Story story;
  story.writePreferences({{"Enabled", false}});
  story.startAndSettle();
  const Dictionary targets{{"alpha", kSettings}};
  for (const Dictionary& preferences :
       {Dictionary{{"Enabled", false}, {"AppConfigs", targets}},
        Dictionary{{"AppConfigs", targets}}, Dictionary{{"Enabled", true}},
        Dictionary{{"Enabled", true}, {"AppConfigs", Dictionary{}}}}) {
    story.writePreferences(preferences);
    story.run(1800s);
    EXPECT_EQ(story.takeLog(), Lines{});
  }
  EXPECT_EQ(story.device.takeTrace({"proc_listpids"}), Lines{});
}

TEST(Patrol, SkipsTargetsWithACheckInterval) {
  Story story;
  const auto covered = story.device.launch({.name = "covered"});
  story.device.launch({.name = "watched"});
  Dictionary watched = kSettings;
  watched.insert_or_assign("CheckInterval", 1);
  Dictionary zero = kSettings;
  zero.insert_or_assign("CheckInterval", 0);
  story.startAndSettle();
  // No notification is posted, so that no watch timer starts.
  story.writeTargets({{"covered", zero}, {"watched", watched}});
  story.run(1800s);
  EXPECT_EQ(story.takeLog(), kBegun + applied("covered", covered) + kEnded);
}

TEST(Patrol, RemovesTheEntryOfAStoppedTarget) {
  Story story;
  const auto pid = story.device.launch({.name = "alpha"});
  story.writeTargets({{"alpha", kSettings}});
  story.startAndSettle();
  story.device.exit(pid);
  story.run(1800s);
  EXPECT_EQ(story.takeLog(), kBegun + kEnded);
  EXPECT_EQ(story.takeCalls(), Lines{});  // no restore
  EXPECT_EQ(story.status(), Dictionary{});
  story.postAndRun();
  EXPECT_EQ(story.takeLog(), Lines{});  // the pass sees no further change
}

TEST(Patrol, WhatItAppliedThePassSkips) {
  Story story;
  story.writeTargets({{"alpha", kSettings}});
  story.startAndSettle();
  const auto pid = story.device.launch({.name = "alpha"});
  story.run(1800s);
  EXPECT_EQ(story.takeLog(), kBegun + applied("alpha", pid) + kEnded);
  story.postAndRun();
  EXPECT_EQ(story.takeLog(), Lines{});
}

TEST(Patrol, DoesNotClearAnOversizedLog) {
  Story story;
  story.startAndSettle();
  story.writePreferences(
      {{"Enabled", true}, {"LogSizeLimit", 10}, {"AppConfigs", Dictionary{{"alpha", kSettings}}}});
  story.run(1800s);
  EXPECT_EQ(story.takeLog(), kBegun + kEnded);
}

TEST(Patrol, IsMadeOnceHoweverOftenItIsAskedFor) {
  Story story;
  story.writeTargets({{"alpha", kSettings}});
  story.startAndSettle();
  kMainThread.assertHeld();
  setupGlobal1800sTimer();
  applyMemoryLimits();
  setupGlobal1800sTimer();
  story.run(150ms);
  EXPECT_EQ(story.device.takeTrace({"makeSerialQueue", "startTimer"}),
            Lines{"startTimer(com.zel.vorlatch.debounce, 150000000, never, 0) = timer 3"});
  story.run(1800s);
  EXPECT_EQ(story.takeLog(), kBegun + kEnded);
}

}  // namespace
}  // namespace vorlatch
