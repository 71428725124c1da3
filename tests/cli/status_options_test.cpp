// vorlatchctl status: which targets it shows, as a table, as JSON, and again and again.
#include <algorithm>

#include <gtest/gtest.h>

#include "base/utf8.h"
#include "tests/cli/held_story.h"

namespace vorlatch::tests {
namespace {

using plist::Dictionary;

const Dictionary kLeftAlone{{"JetsamPriority", -1}};

TEST(Status, OnlyTheNamedTargetsAreShown) {
  ControlStory story;
  story.writeTargets({{"alpha", kLeftAlone}, {"beta", kLeftAlone}, {"gamma", kLeftAlone}});
  EXPECT_EQ(story.run({"status", "gamma", "alpha"}),
            (Output{0,
                    "switched on, the daemon does not run\n"
                    "TARGET  PID  NAME  BAND  NICE  LIMITS MB  MANAGED  TIMER  DAEMON WROTE  "
                    "VERDICT\n"
                    "alpha   -    -     -     -     -          -        -      -             "
                    "not running\n"
                    "gamma   -    -     -     -     -          -        -      -             "
                    "not running\n",
                    ""}));
}

TEST(Status, AnOverriddenTargetThatIsNotNamedIsNoFinding) {
  HeldStory story;
  story.device.find(101)->nice_value = 3;
  story.writeTargets({{"alpha", kAlphaSettings}, {"beta", kLeftAlone}});
  EXPECT_EQ(story.run({"status"}).status, 1);
  EXPECT_EQ(story.run({"status", "beta"}).status, 0);
}

TEST(Status, AnUnknownTargetIsWrongUsageAndTheNearestIsOffered) {
  ControlStory story;
  story.writeTargets({{"backboardd", kLeftAlone}, {"SpringBoard", kLeftAlone}});
  EXPECT_EQ(
      story.run({"status", "springbord"}),
      (Output{2, "",
              "vorlatchctl: no target springbord is configured; did you mean SpringBoard?\n"}));
  EXPECT_EQ(story.run({"status", "xyz"}),
            (Output{2, "", "vorlatchctl: no target xyz is configured\n"}));
}

TEST(Status, WithoutTargetsItSaysSo) {
  ControlStory story;
  EXPECT_EQ(story.run({"status"}),
            (Output{0, "switched off, the daemon does not run\nno targets\n", ""}));
}

TEST(Status, ANarrowTerminalCutsTheWidestColumns) {
  HeldStory story;
  story.columns = 64;
  EXPECT_EQ(story.run({"status"}),
            (Output{0,
                    "switched on, the daemon runs as 100\n"
                    "TARG…  PID  NAME   BAND  NICE  LIMI…  MANA…  TIMER  DAEM…  VERD…\n"
                    "alpha  101  alpha   100    -7  1500…  no     -      101 …  held\n",
                    ""}));
}

TEST(Status, ChineseNamesAreAlignedByTheirWidth) {
  ControlStory story;
  story.device.launch({.name = "微信"});
  story.writeTargets({{"微信", kLeftAlone}, {"alphabet", kLeftAlone}});
  EXPECT_EQ(story.run({"status"}),
            (Output{0,
                    "switched on, the daemon does not run\n"
                    "TARGET    PID  NAME  BAND       NICE  LIMITS MB                      MANAGED  "
                    "TIMER  DAEMON WROTE  VERDICT\n"
                    "alphabet    -  -     -             -  -                              -        "
                    "-      -             not running\n"
                    "微信      100  微信  any > 180     0  system > 1450 / system > 1450  no       "
                    "-      -             not applied yet\n",
                    ""}));
}

TEST(Status, ControlCharactersOfANameAreShownAndNotObeyed) {
  ControlStory story;
  std::string name = "a\x1b]0;b\x07\x9b";
  name += "2J\n";
  ASSERT_TRUE(appendUtf8(name, 0x202E));  // what follows would run from right to left
  const auto app = story.installApp("A.app", Dictionary{{"CFBundleIdentifier", "org.app"}});
  story.device.launch({.name = name, .executable_path = app});
  story.writeTargets({{"org.app", kLeftAlone}});
  EXPECT_EQ(story.run({"status"}),
            (Output{0,
                    "switched on, the daemon does not run\n"
                    "TARGET   PID  NAME                           BAND       NICE  LIMITS MB      "
                    "                MANAGED  TIMER  DAEMON WROTE  VERDICT\n"
                    "org.app  100  a^[]0;b^G\\x9B2J^J\\xE2\\x80\\xAE  any > 180     0  system > 14"
                    "50 / system > 1450  no       -      -             not applied yet\n",
                    ""}));
}

TEST(Status, HeadingsAndVerdictsHaveColours) {
  HeldStory story;
  story.device.find(101)->nice_value = 3;
  story.writeTargets({{"alpha", kAlphaSettings}, {"beta", kLeftAlone}});
  story.has_colour = true;
  const auto bold = [](const std::string& text) { return "\x1b[1m" + text + "\x1b[0m"; };
  EXPECT_EQ(story.run({"status"}),
            (Output{1,
                    "switched on, the daemon runs as 100\n" + bold("TARGET") + "  " + bold("PID") +
                        "  " + bold("NAME") + "   " + bold("BAND") + "  " + bold("NICE") + "    " +
                        bold("LIMITS MB") + "    " + bold("MANAGED") + "  " + bold("TIMER") + "  " +
                        bold("DAEMON WROTE") + "    " + bold("VERDICT") +
                        "\n"
                        "alpha   101  alpha   100  -7 > 3  1500 / 1000  no       -      101 n:-7 b"
                        ":100  \x1b[31moverridden by the system\x1b[0m\n"
                        "beta      -  -         -  -       -            -        -      -         "
                        "      \x1b[2mnot running\x1b[0m\n",
                    ""}));
}

TEST(Status, AsJson) {
  HeldStory story({{"NiceValue", -7}, {"JetsamPriority", 100}, {"StripManaged", true}});
  story.writeTargets({{"alpha", Dictionary{{"NiceValue", -7},
                                           {"JetsamPriority", 100},
                                           {"MemLimitActive", 1500},
                                           {"StripManaged", true}}},
                      {"beta", Dictionary{{"CheckInterval", 30}}}});
  story.postAndRun();
  EXPECT_EQ(story.run({"status", "--json"}), (Output{0,
                                                     R"({
  "enabled": true,
  "daemon_pids": [
    100
  ],
  "targets": [
    {
      "target": "alpha",
      "verdict": "held",
      "wanted": {
        "band": 100,
        "nice": -7,
        "active_limit_mb": 1500,
        "inactive_limit_mb": 0,
        "strip_managed": true,
        "interval_s": 0
      },
      "daemon_wrote": {
        "pid": 101,
        "nice": -7,
        "band": 100
      },
      "now": {
        "pid": 101,
        "name": "alpha",
        "band": 100,
        "nice": -7,
        "active_limit_mb": 1500,
        "inactive_limit_mb": 1450,
        "managed": false
      }
    },
    {
      "target": "beta",
      "verdict": "not running",
      "wanted": {
        "band": 0,
        "nice": 0,
        "active_limit_mb": 0,
        "inactive_limit_mb": 0,
        "strip_managed": null,
        "interval_s": 30
      },
      "daemon_wrote": null,
      "now": null
    }
  ]
}
)",
                                                     ""}));
}

TEST(Status, JsonWithoutPrivilegeHasNullForWhatTheKernelDoesNotSay) {
  HeldStory story;
  story.device.kernel.caller_is_privileged = false;
  const Output output = story.run({"status", "--json"});
  const std::string now = R"(      "now": {
        "pid": 101,
        "name": "alpha",
        "band": null,
        "nice": -7,
        "active_limit_mb": null,
        "inactive_limit_mb": null,
        "managed": null
      }
)";
  EXPECT_NE(output.out.find(now), std::string::npos) << output.out;
}

// A picture of three lines, as it is sent to the terminal.
std::string drawn(const std::string& headings, const std::string& row) {
  return "\x1b[?7l\x1b[Hswitched on, the daemon runs as 100\x1b[K\n" + headings + "\x1b[K\n" + row +
         "\x1b[K\n\x1b[J\x1b[?7h";
}

TEST(Status, WatchingOnATerminalDrawsOverUntilInterrupted) {
  HeldStory story(kLeftAlone);
  story.columns = 200;
  story.rows = 24;
  std::vector<std::uint64_t> waited_until_ns;
  story.is_interrupted = [&](int waits) {
    waited_until_ns.push_back(story.device.scheduler.nowNs());
    if (waits == 2) story.device.find(101)->nice_value = 3;
    return waits == 3;
  };
  const std::string held = drawn(
      "TARGET  PID  NAME   BAND       NICE  LIMITS MB                      MANAGED  TIMER  DAEMON "
      "WROTE   VERDICT",
      "alpha   101  alpha  any > 180     0  system > 1450 / system > 1450  no       -      101 n:0"
      " b:180  held");
  const std::string overridden = drawn(
      "TARGET  PID  NAME   BAND       NICE   LIMITS MB                      MANAGED  TIMER  DAEMON"
      " WROTE   VERDICT",
      "alpha   101  alpha  any > 180  0 > 3  system > 1450 / system > 1450  no       -      101 n:"
      "0 b:180  overridden by the system");
  EXPECT_EQ(story.run({"status", "--watch", "--interval", "5"}),
            (Output{1, "\x1b[2J" + held + held + overridden, ""}));
  ASSERT_EQ(waited_until_ns.size(), 3U);
  EXPECT_EQ(waited_until_ns[2] - waited_until_ns[0], 10'000'000'000U);
}

TEST(Status, WatchingTakesNoMoreThanAHundredthOfTheTime) {
  HeldStory story(kLeftAlone);
  std::vector<std::uint64_t> waited_until_ns;
  story.is_interrupted = [&](int waits) {
    waited_until_ns.push_back(story.device.scheduler.nowNs());
    return waits == 2;
  };
  story.device.script({.function = "getpriority", .takes_ns = 40'000'000});
  EXPECT_EQ(story.run({"status", "--watch", "--interval", "3"}).status, 0);
  ASSERT_EQ(waited_until_ns.size(), 2U);
  EXPECT_EQ(waited_until_ns[1] - waited_until_ns[0], 101 * 40'000'000U);
}

TEST(Status, WatchingDrawsNoMoreLinesThanTheTerminalHas) {
  ControlStory story;
  story.writeTargets({{"a", kLeftAlone}, {"b", kLeftAlone}, {"c", kLeftAlone}, {"d", kLeftAlone}});
  story.columns = 30;
  story.rows = 5;
  story.is_interrupted = [](int waits) { return waits == 1; };
  const Output output = story.run({"status", "--watch"});
  EXPECT_EQ(std::count(output.out.begin(), output.out.end(), '\n'), 4);
  EXPECT_NE(output.out.find("\nb"), std::string::npos);
  EXPECT_EQ(output.out.find("\nc"), std::string::npos);
}

TEST(Status, WatchingIntoAPipeWritesOnePictureBehindTheOther) {
  HeldStory story(kLeftAlone);
  story.is_interrupted = [](int waits) { return waits == 2; };
  const std::string picture =
      "switched on, the daemon runs as 100\n"
      "TARGET  PID  NAME   BAND       NICE  LIMITS MB                      MANAGED  TIMER  DAEMON "
      "WROTE   VERDICT\n"
      "alpha   101  alpha  any > 180     0  system > 1450 / system > 1450  no       -      101 n:0"
      " b:180  held\n";
  EXPECT_EQ(story.run({"status", "--watch"}), (Output{0, picture + picture, ""}));
}

}  // namespace
}  // namespace vorlatch::tests
