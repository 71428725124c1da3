#include <algorithm>

#include <gtest/gtest.h>

#include "tests/reconcile/pass_story.h"

namespace vorlatch {
namespace {

using plist::Dictionary;
using tests::kSettings;
using tests::kTargetRule;
using tests::Lines;
using tests::Story;
using tests::with;
using namespace std::chrono_literals;

// A target named alpha with a check interval, and a daemon that has run its first pass.
struct Watched : Story {
  explicit Watched(std::int32_t interval_s, bool runs = true) {
    if (runs) pid = launch();
    configure(interval_s);
    startAndSettle();
  }
  void configure(std::int32_t interval_s) const {
    writeTargets({{"alpha", with(kSettings, "CheckInterval", interval_s)}});
  }
  std::int32_t launch() const { return device.launch({.name = "alpha"}); }
  // How often the target was reported during this time.
  std::size_t reportsWithin(std::chrono::nanoseconds duration) {
    run(duration);
    const Lines log = takeLog();
    return static_cast<std::size_t>(std::count(log.begin(), log.end(), kTargetRule));
  }
  std::int32_t pid = 0;
};

Lines ticked(std::int32_t interval_s, std::int32_t pid) {
  return tests::ticked("alpha", interval_s, pid);
}

Lines started(std::int32_t pid) {
  return tests::started("alpha", pid);
}

const Lines kExited = tests::exited("alpha");

TEST(WatchTimer, ATargetThatNeverRunsIsSilent) {
  Watched watched(5, false);
  watched.run(1h);
  EXPECT_EQ(watched.takeLog().size(), 8U);  // the patrol's four lines, twice
  EXPECT_EQ(watched.takeCalls(), Lines{});
}

TEST(WatchTimer, TheShortestIntervalIsOneSecond) {
  Watched watched(1);
  watched.run(1s);
  EXPECT_EQ(watched.takeLog(), ticked(1, watched.pid));
}

TEST(WatchTimer, TicksOncePerIntervalAfterThePass) {
  Watched watched(5);
  watched.run(5s - 1ns);
  EXPECT_EQ(watched.takeLog(), Lines{});
  watched.run(1ns);
  EXPECT_EQ(watched.takeLog(), ticked(5, watched.pid));
  watched.run(5s - 1ns);
  EXPECT_EQ(watched.takeLog(), Lines{});
  watched.run(1ns);
  EXPECT_EQ(watched.takeLog(), ticked(5, watched.pid));
}

TEST(WatchTimer, AppliesAStartedTargetAtEveryTick) {
  Watched watched(5, false);
  watched.run(7s);
  const auto pid = watched.launch();
  watched.run(3s);
  EXPECT_EQ(watched.takeLog(), started(pid));
  EXPECT_EQ(watched.status(), (Dictionary{{"alpha", tests::entry(pid)}}));
  watched.run(5s);
  EXPECT_EQ(watched.takeLog(), ticked(5, pid));
}

TEST(WatchTimer, AnExitIsSeenOnceAndTheEntryRemoved) {
  Watched watched(5);
  watched.device.exit(watched.pid);
  watched.run(5s);
  EXPECT_EQ(watched.takeLog(), kExited);
  EXPECT_EQ(watched.status(), Dictionary{});
  watched.run(20s);
  EXPECT_EQ(watched.takeLog(), Lines{});
}

TEST(WatchTimer, RestartBetweenTicksLogsOnlyAStart) {
  Watched watched(5);
  watched.device.exit(watched.pid);
  const auto pid = watched.launch();
  watched.run(5s);
  EXPECT_EQ(watched.takeLog(), started(pid));
}

TEST(WatchTimer, WhatATickSawThePassDoesNotApplyAgain) {
  Watched watched(5, false);
  const auto pid = watched.launch();
  watched.run(5s);
  EXPECT_EQ(watched.takeLog(), started(pid));
  watched.postAndRun();
  EXPECT_EQ(watched.takeLog(), Lines{});
  watched.device.exit(pid);
  watched.run(5s);
  EXPECT_EQ(watched.takeLog(), kExited);
  watched.postAndRun();
  EXPECT_EQ(watched.takeLog(), Lines{});
}

TEST(WatchTimer, AnEditedIntervalTakesEffectWithThePass) {
  Watched watched(5);
  watched.run(2s);
  watched.configure(10);
  watched.postAndRun();
  EXPECT_EQ(watched.takeLog(), tests::edited("alpha", watched.pid));
  watched.run(10s - 1ns);
  EXPECT_EQ(watched.takeLog(), Lines{});
  watched.run(1ns);
  EXPECT_EQ(watched.takeLog(), ticked(10, watched.pid));
}

TEST(WatchTimer, RestartSeenByAPassRestartsTheInterval) {
  Watched watched(10);
  watched.run(7s);
  watched.device.exit(watched.pid);
  const auto pid = watched.launch();
  watched.postAndRun();
  EXPECT_EQ(watched.takeLog(), started(pid));
  watched.run(10s - 1ns);
  EXPECT_EQ(watched.takeLog(), Lines{});
  watched.run(1ns);
  EXPECT_EQ(watched.takeLog(), ticked(10, pid));
}

TEST(WatchTimer, KeepsTheSettingsOfThePassThatMadeIt) {
  Watched watched(5);
  watched.configure(10);
  watched.run(5s);  // the file was edited, but no notification posted
  EXPECT_EQ(watched.takeLog(), ticked(5, watched.pid));
}

TEST(WatchTimer, LooksUpItsOwnTargetAlone) {
  Watched watched(5);
  watched.device.launch({.name = "older", .pid = 90});
  watched.device.exit(watched.pid);
  const auto pid = watched.launch();
  watched.device.takeTrace();
  watched.run(5s);
  EXPECT_EQ(watched.device.takeTrace({"proc_name"}),
            Lines{"proc_name(" + std::to_string(pid) + ", zeros, 256) = 5"});
}

TEST(WatchTimer, ATickDoesNotClearAnOversizedLog) {
  Watched watched(5);
  watched.writePreferences({{"Enabled", true}, {"LogSizeLimit", 10}});
  watched.run(5s);
  EXPECT_EQ(watched.takeLog(), ticked(5, watched.pid));
}

TEST(WatchTimer, TheLongestIntervalNeverTicksInALifetime) {
  Watched watched(INT32_MAX);
  EXPECT_EQ(watched.device.scheduler.timerCount(), 3U);
  EXPECT_EQ(watched.reportsWithin(std::chrono::hours(24 * 365)), 0U);
}

TEST(WatchTimer, TickTakesFirstInstancePassTakesLast) {
  Story story;
  const std::string path = story.installApp("X.app", Dictionary{{"CFBundleIdentifier", "alpha"}});
  const auto older = story.device.launch({.name = "Older", .executable_path = path});
  const auto newer = story.device.launch({.name = "Newer", .executable_path = path});
  story.writeTargets({{"alpha", with(kSettings, "CheckInterval", 5)}});
  story.start();
  story.takeLog();
  story.run(150ms);
  EXPECT_EQ(story.takeLog(), started(older));
  story.run(5s);
  EXPECT_EQ(story.takeLog(), started(newer));
  story.run(5s);
  EXPECT_EQ(story.takeLog(), ticked(5, newer));
  story.postAndRun();
  EXPECT_EQ(story.takeLog(), started(older));
}

TEST(WatchTimer, ALateTickDoesNotMoveLaterOnes) {
  Watched watched(5);
  watched.device.scheduler.spend(5'900'000'000);  // within the leeway of one second
  watched.run(0s);
  EXPECT_EQ(watched.takeLog(), ticked(5, watched.pid));
  const auto pid = watched.launch();
  watched.device.exit(watched.pid);
  watched.run(4100ms - 1ns);
  EXPECT_EQ(watched.takeLog(), Lines{});
  watched.device.scheduler.spend(1'000'000'000);
  watched.run(0s);
  EXPECT_EQ(watched.takeLog(), started(pid));
  watched.device.exit(pid);
  watched.device.scheduler.spend(4'700'000'000);
  watched.run(0s);
  EXPECT_EQ(watched.takeLog(), kExited);
}

TEST(WatchTimer, TicksMissedWhileAPassWasBusyComeAsOne) {
  Watched watched(5);
  watched.device.script(
      {.function = "proc_listpids", .first = 1, .count = 1, .takes_ns = 17000000000});
  watched.post();
  EXPECT_EQ(watched.reportsWithin(17s), 1U);  // due at 5, 10 and 15 s
  EXPECT_EQ(watched.reportsWithin(3s), 1U);   // the timer keeps its phase: 20 s
}

}  // namespace
}  // namespace vorlatch
