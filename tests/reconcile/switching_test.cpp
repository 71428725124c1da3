// Switching the daemon off and on again.
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/reconcile/pass_story.h"

namespace vorlatch {
namespace {

using plist::Dictionary;
using tests::Daemon;
using tests::entry;
using tests::kSettings;
using tests::kSwitchedOff;
using tests::Lines;
using tests::restored;
using tests::started;
using tests::ticked;
using tests::with;
using namespace std::chrono_literals;

Lines operator+(Lines first, const Lines& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

TEST(SwitchedOff, RestoresAllOnceAndCancelsAllTimers) {
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

TEST(SwitchedOff, OnAgainAppliesAsOnTheFirstPass) {
  Daemon daemon;
  const auto pid = daemon.launch("alpha");
  daemon.writeTargets({{"alpha", kSettings}});
  daemon.startAndSettle();
  daemon.writePreferences({{"Enabled", false}, {"AppConfigs", Dictionary{{"alpha", kSettings}}}});
  daemon.pass();
  daemon.writeTargets({{"alpha", kSettings}});
  EXPECT_EQ(daemon.pass(), started("alpha", pid));
}

TEST(SwitchedOff, OnAgainRestartsEveryWatchTimer) {
  Daemon daemon;
  const auto alpha = daemon.launch("alpha");
  const auto beta = daemon.launch("beta");
  const auto delta = daemon.launch("delta");
  const Dictionary targets{{"alpha", with(kSettings, "CheckInterval", 10)},
                           {"beta", kSettings},
                           {"gamma", with(kSettings, "CheckInterval", 12)},
                           {"delta", with(kSettings, "CheckInterval", 17)}};
  daemon.writeTargets(targets);
  daemon.startAndSettle();
  daemon.run(7s);
  daemon.writePreferences({{"Enabled", false}, {"AppConfigs", targets}});
  daemon.pass();
  daemon.device.takeTrace();
  daemon.writeTargets(targets);
  EXPECT_EQ(daemon.pass(),
            started("alpha", alpha) + started("beta", beta) + started("delta", delta));
  const auto in_idle_band = [](std::int32_t pid) { return with(entry(pid), "p", 0); };  // restored
  EXPECT_EQ(daemon.status(), (Dictionary{{"alpha", in_idle_band(alpha)},
                                         {"beta", in_idle_band(beta)},
                                         {"delta", in_idle_band(delta)}}));
  const std::string start = "startTimer(com.zel.vorlatch.debounce, ";
  EXPECT_EQ(daemon.device.takeTrace({"cancelTimer", "startTimer"}),
            (Lines{"cancelTimer(timer 6)", start + "150000000, never, 0) = timer 7",
                   start + "10000000000, 10000000000, 1000000000) = timer 8",
                   start + "17000000000, 17000000000, 1000000000) = timer 9",
                   start + "12000000000, 12000000000, 1000000000) = timer 10"}));
  const auto gamma = daemon.launch("gamma");
  daemon.run(10s - 1ns);
  EXPECT_EQ(daemon.takeLog(), Lines{});
  daemon.run(1ns);
  EXPECT_EQ(daemon.takeLog(), ticked("alpha", 10, alpha));
  daemon.run(2s);
  EXPECT_EQ(daemon.takeLog(), started("gamma", gamma));
  daemon.run(5s);
  EXPECT_EQ(daemon.takeLog(), ticked("delta", 17, delta));
}

TEST(SwitchedOff, WhatThePatrolSawOfNoTargetIsForgottenToo) {
  Daemon daemon;
  daemon.writeTargets({});
  daemon.startAndSettle();
  const auto pid = daemon.launch("alpha");
  // The patrol sees the target before any pass does.
  daemon.writeTargets({{"alpha", kSettings}});
  daemon.run(1800s);
  daemon.writePreferences({{"Enabled", false}});
  daemon.takeLog();
  EXPECT_EQ(daemon.pass(), Lines{});
  daemon.writeTargets({{"alpha", kSettings}});
  EXPECT_EQ(daemon.pass(), started("alpha", pid));
}

}  // namespace
}  // namespace vorlatch
