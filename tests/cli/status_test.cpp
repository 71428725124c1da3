// vorlatchctl status: how each target stands, and by what it is judged.
#include <gtest/gtest.h>

#include "tests/cli/held_story.h"

namespace vorlatch::tests {
namespace {

using plist::Dictionary;

const std::string kOn = "switched on, the daemon runs as 100\n";

plist::Dictionary with(plist::Dictionary settings, const std::string& key,
                       const plist::Value& value) {
  settings.insert_or_assign(key, value);
  return settings;
}

TEST(Status, WhatIsAsWantedIsHeld) {
  HeldStory story;
  EXPECT_EQ(
      story.run({"status"}),
      (Output{0,
              kOn + "TARGET  PID  NAME   BAND  NICE  LIMITS MB    MANAGED  TIMER  DAEMON WROTE    "
                    "VERDICT\n"
                    "alpha   101  alpha   100    -7  1500 / 1000  no       -      101 n:-7 b:100  "
                    "held\n",
              ""}));
}

TEST(Status, ABandThatTheSystemChangedIsOverriddenAndAFinding) {
  HeldStory story;
  story.device.find(101)->overriding_band = 40;
  story.device.jetsam_table.records.at(101).effective_band = 40;
  EXPECT_EQ(
      story.run({"status"}),
      (Output{1,
              kOn +
                  "TARGET  PID  NAME   BAND      NICE  LIMITS MB    MANAGED  TIMER  DAEMON WROTE  "
                  "  VERDICT\n"
                  "alpha   101  alpha  100 > 40    -7  1500 / 1000  no       -      101 n:-7 b:100"
                  "  overridden by the system\n",
              ""}));
}

TEST(Status, ANiceValueThatTheSystemOverridesFromTheBeginningIsOverridden) {
  ControlStory story;
  story.launchDaemon();
  const auto pid = story.device.launch({.name = "alpha"});
  story.device.find(pid)->overriding_nice = 5;
  story.writeTargets({{"alpha", kAlphaSettings}});
  story.startAndSettle();
  EXPECT_EQ(
      story.run({"status"}),
      (Output{1,
              kOn + "TARGET  PID  NAME   BAND  NICE    LIMITS MB    MANAGED  TIMER  DAEMON WROTE   "
                    "VERDICT\n"
                    "alpha   101  alpha   100  -7 > 5  1500 / 1000  no       -      101 n:5 b:100  "
                    "overridden by the system\n",
              ""}));
}

TEST(Status, AMemoryLimitThatTheSystemChangedIsOverridden) {
  HeldStory story;
  story.device.jetsam_table.records.at(101).active.limit_mb = 800;
  EXPECT_EQ(
      story.run({"status"}),
      (Output{1,
              kOn +
                  "TARGET  PID  NAME   BAND  NICE  LIMITS MB          MANAGED  TIMER  DAEMON WROTE"
                  "    VERDICT\n"
                  "alpha   101  alpha   100    -7  1500 > 800 / 1000  no       -      101 n:-7 b:1"
                  "00  overridden by the system\n",
              ""}));
}

TEST(Status, ATargetWithoutAProcessDoesNotRun) {
  HeldStory story(with(kAlphaSettings, "CheckInterval", 30), {.name = "other"});
  EXPECT_EQ(story.run({"status"}),
            (Output{0,
                    kOn + "TARGET  PID  NAME  BAND  NICE  LIMITS MB  MANAGED  TIMER  DAEMON WROTE  "
                          "VERDICT\n"
                          "alpha   -    -     -     -     -          -        30s    -             "
                          "not running\n",
                    ""}));
}

TEST(Status, AProcessThatTheDaemonHasNotSeenIsNotAppliedYet) {
  HeldStory story(kAlphaSettings, {.name = "other"});
  story.device.launch({.name = "alpha", .nice_value = 3});
  EXPECT_EQ(
      story.run({"status"}),
      (Output{0,
              kOn + "TARGET  PID  NAME   BAND       NICE    LIMITS MB                  MANAGED"
                    "  TIMER  DAEMON WROTE  VERDICT\n"
                    "alpha   102  alpha  100 > 180  -7 > 3  1500 > 1450 / 1000 > 1450  no     "
                    "  -      -             not applied yet\n",
              ""}));
}

TEST(Status, ATargetEditedWithoutApplyIsNotAppliedYet) {
  HeldStory story;
  story.editLater({{"alpha", with(kAlphaSettings, "NiceValue", -9)}});
  EXPECT_EQ(
      story.run({"status"}),
      (Output{0,
              kOn +
                  "TARGET  PID  NAME   BAND  NICE     LIMITS MB    MANAGED  TIMER  DAEMON WROTE   "
                  " VERDICT\n"
                  "alpha   101  alpha   100  -9 > -7  1500 / 1000  no       -      101 n:-7 b:100 "
                  " not applied yet\n",
              ""}));
}

TEST(Status, AnEditThatTheDaemonHeardOfIsJudgedAgain) {
  HeldStory story;
  story.editLater({{"alpha", with(kAlphaSettings, "NiceValue", -9)}});
  story.postAndRun();
  EXPECT_EQ(
      story.run({"status"}),
      (Output{0,
              kOn + "TARGET  PID  NAME   BAND  NICE  LIMITS MB    MANAGED  TIMER  DAEMON WROTE    "
                    "VERDICT\n"
                    "alpha   101  alpha   100    -9  1500 / 1000  no       -      101 n:-9 b:100  "
                    "held\n",
              ""}));
}

TEST(Status, WithoutADaemonWhatItWroteIsStale) {
  HeldStory story;
  story.device.exit(100);
  EXPECT_EQ(story.run({"status"}),
            (Output{0,
                    "switched on, the daemon does not run\n"
                    "TARGET  PID  NAME   BAND  NICE  LIMITS MB    MANAGED  TIMER  DAEMON WROTE    "
                    "VERDICT\n"
                    "alpha   101  alpha   100    -7  1500 / 1000  no       -      101 n:-7 b:100  "
                    "stale status\n",
                    ""}));
}

TEST(Status, AfterARestartWhatTheDaemonWroteIsStale) {
  HeldStory story;
  story.device.exit(101);
  story.device.launch({.name = "alpha"});
  EXPECT_EQ(
      story.run({"status"}),
      (Output{0,
              kOn + "TARGET  PID  NAME   BAND       NICE    LIMITS MB                  MANAGED"
                    "  TIMER  DAEMON WROTE    VERDICT\n"
                    "alpha   102  alpha  100 > 180  -7 > 0  1500 > 1450 / 1000 > 1450  no     "
                    "  -      101 n:-7 b:100  stale status\n",
              ""}));
}

TEST(Status, OfAProcessThatIsGoneWhatTheDaemonWroteIsStale) {
  HeldStory story;
  story.device.exit(101);
  EXPECT_EQ(
      story.run({"status"}),
      (Output{0,
              kOn + "TARGET  PID  NAME  BAND  NICE  LIMITS MB  MANAGED  TIMER  DAEMON WROTE    "
                    "VERDICT\n"
                    "alpha   -    -     -     -     -          -        -      101 n:-7 b:100  "
                    "stale status\n",
              ""}));
}

TEST(Status, SwitchedOffNothingIsJudged) {
  HeldStory story;
  story.writePreferences(
      {{"Enabled", false}, {"AppConfigs", Dictionary{{"alpha", kAlphaSettings}}}});
  story.postAndRun();
  EXPECT_EQ(story.run({"status"}),
            (Output{0,
                    "switched off, the daemon runs as 100\n"
                    "TARGET  PID  NAME   BAND     NICE    LIMITS MB                  MANAGED  TIMER"
                    "  DAEMON WROTE  VERDICT\n"
                    "alpha   101  alpha  100 > 0  -7 > 0  1500 > 1450 / 1000 > 1450  yes      -    "
                    "  -             switched off\n",
                    ""}));
}

TEST(Status, ABandThatAnOlderKernelHasATenthOfIsHeld) {
  ControlStory story;
  story.device.kernel.generation = model::KernelGeneration::Xnu4903To8020;
  story.launchDaemon();
  story.device.launch({.name = "alpha"});
  story.writeTargets({{"alpha", with(kAlphaSettings, "JetsamPriority", 210)}});
  story.startAndSettle();
  EXPECT_EQ(
      story.run({"status"}),
      (Output{0,
              kOn +
                  "TARGET  PID  NAME   BAND      NICE  LIMITS MB    MANAGED  TIMER  DAEMON WROTE  "
                  " VERDICT\n"
                  "alpha   101  alpha  210 > 21    -7  1500 / 1000  no       -      101 n:-7 b:21 "
                  " held\n",
              ""}));
}

TEST(Status, ATenthOfABandThatTheKernelHasIsOverridden) {
  HeldStory story(with(kAlphaSettings, "JetsamPriority", 210));
  story.device.jetsam_table.records.at(101).effective_band = 21;
  EXPECT_EQ(
      story.run({"status"}),
      (Output{1,
              kOn +
                  "TARGET  PID  NAME   BAND      NICE  LIMITS MB    MANAGED  TIMER  DAEMON WROTE  "
                  "  VERDICT\n"
                  "alpha   101  alpha  210 > 21    -7  1500 / 1000  no       -      101 n:-7 b:210"
                  "  overridden by the system\n",
              ""}));
}

TEST(Status, WhatIsLeftToTheSystemIsHeldWhateverItChose) {
  HeldStory story({{"MemLimitInactive", -1}});
  story.device.jetsam_table.records.at(101).effective_band = 40;
  EXPECT_EQ(
      story.run({"status"}),
      (Output{0,
              kOn +
                  "TARGET  PID  NAME   BAND         NICE  LIMITS MB                      MANAGED  "
                  "TIMER  DAEMON WROTE  VERDICT\n"
                  "alpha   101  alpha  system > 40     0  system > 1450 / system > 1450  yes      "
                  "-      101 n:0 b:0   held\n",
              ""}));
}

TEST(Status, WithoutPrivilegeWhatTheDaemonWroteCounts) {
  HeldStory story(with(kAlphaSettings, "StripManaged", true));
  story.device.kernel.caller_is_privileged = false;
  EXPECT_EQ(
      story.run({"status"}),
      (Output{0,
              kOn +
                  "TARGET  PID  NAME   BAND     NICE  LIMITS MB            MANAGED  TIMER  DAEMON "
                  "WROTE    VERDICT\n"
                  "alpha   101  alpha  100 > -    -7  1500 > - / 1000 > -  no > -   -      101 n:-"
                  "7 b:100  held\n",
              ""}));
}

TEST(Status, WithoutPrivilegeABandThatTheDaemonDidNotReachIsOverridden) {
  ControlStory story;
  story.launchDaemon();
  const auto pid = story.device.launch({.name = "alpha"});
  story.device.find(pid)->overriding_band = 40;
  story.writeTargets({{"alpha", kAlphaSettings}});
  story.startAndSettle();
  story.device.kernel.caller_is_privileged = false;
  EXPECT_EQ(
      story.run({"status"}),
      (Output{1,
              kOn +
                  "TARGET  PID  NAME   BAND     NICE  LIMITS MB            MANAGED  TIMER  DAEMON "
                  "WROTE   VERDICT\n"
                  "alpha   101  alpha  100 > -    -7  1500 > - / 1000 > -  -        -      101 n:-"
                  "7 b:40  overridden by the system\n",
              ""}));
}

// A pass takes the older of an app's two processes, the watch timer the newer.
TEST(Status, TheProcessThatTheWatchTimerChoseIsHeldAsIsThePasses) {
  ControlStory story;
  story.launchDaemon();
  const auto app = story.installApp("A.app", Dictionary{{"CFBundleIdentifier", "org.app"}});
  story.device.launch({.name = "App", .executable_path = app});
  story.device.launch({.name = "Helper", .executable_path = app});
  story.writeTargets({{"org.app", with(kAlphaSettings, "CheckInterval", 5)}});
  story.startAndSettle();
  const std::string headings =
      "TARGET   PID  NAME    BAND  NICE  LIMITS MB    MANAGED  TIMER  DAEMON WROTE    VERDICT\n";
  EXPECT_EQ(
      story.run({"status"}),
      (Output{0,
              kOn + "TARGET   PID  NAME  BAND  NICE  LIMITS MB    MANAGED  TIMER  DAEMON WROTE"
                    "    VERDICT\n"
                    "org.app  101  App    100    -7  1500 / 1000  no       5s     101 n:-7 b:1"
                    "00  held\n",
              ""}));
  story.Story::run(5s);
  EXPECT_EQ(story.run({"status"}),
            (Output{0,
                    kOn + headings +
                        "org.app  102  Helper   100    -7  1500 / 1000  no       5s     102 n:-7 "
                        "b:100  held\n",
                    ""}));
}

TEST(Status, AnEditOfAnotherTargetDoesNotHideAnOverride) {
  HeldStory story;
  story.device.find(101)->nice_value = 0;
  story.editLater({{"alpha", kAlphaSettings}, {"absent", Dictionary{{"NiceValue", 1}}}});
  const Output seen = story.run({"status", "alpha"});
  EXPECT_EQ(seen.status, 1);
  EXPECT_NE(seen.out.find("overridden by the system"), std::string::npos) << seen.out;
}

}  // namespace
}  // namespace vorlatch::tests
