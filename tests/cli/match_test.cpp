// vorlatchctl match and ps: what runs, under which names, and what a key finds.
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/cli/control_run.h"

namespace vorlatch::tests {
namespace {

using plist::Dictionary;

// Of this story no process but its own runs.
struct EmptyDevice : ControlStory {
  EmptyDevice() { device.exit(getpid()); }
  std::int32_t launchApp(const std::string& name, const std::string& identifier) const {
    const auto path =
        installApp(identifier + ".app", Dictionary{{"CFBundleIdentifier", identifier}});
    return device.launch({.name = name, .executable_path = path});
  }
};

TEST(Match, ATextThatFindsNothing) {
  EmptyDevice story;
  story.device.launch({.name = "alpha"});
  EXPECT_EQ(story.run({"match", "Alpha"}),
            (Output{0, "no running process has this name or bundle identifier\n", ""}));
  EXPECT_EQ(story.run({"match", "Alpha", "--json"}), (Output{0,
                                                             R"({
  "text": "Alpha",
  "pid_for_pass": 0,
  "pid_for_watch_timer": 0,
  "processes": []
}
)",
                                                             ""}));
}

TEST(Match, AName) {
  EmptyDevice story;
  story.device.launch({.name = "alpha"});
  story.device.launch({.name = "beta"});
  EXPECT_EQ(story.run({"match", "alpha"}),
            (Output{0,
                    "PID  NAME   BUNDLE IDENTIFIER  FOUND BY  CHOSEN BY\n"
                    "100  alpha  -                  name      pass, watch timer\n",
                    ""}));
}

TEST(Match, ABundleIdentifier) {
  EmptyDevice story;
  story.launchApp("WeChat", "com.tencent.xin");
  EXPECT_EQ(story.run({"match", "com.tencent.xin"}),
            (Output{0,
                    "PID  NAME    BUNDLE IDENTIFIER  FOUND BY           CHOSEN BY\n"
                    "100  WeChat  com.tencent.xin    bundle identifier  pass, watch timer\n",
                    ""}));
}

TEST(Match, BothAtOnceAndWhoElse) {
  EmptyDevice story;
  story.launchApp("both", "both");
  story.device.launch({.name = "both"});
  EXPECT_EQ(story.run({"match", "both"}),
            (Output{0,
                    "PID  NAME  BUNDLE IDENTIFIER  FOUND BY                    CHOSEN BY\n"
                    "101  both  -                  name                        watch timer\n"
                    "100  both  both               name and bundle identifier  pass\n"
                    "The two differ: among several processes a pass takes the first name and the "
                    "last bundle identifier of the kernel's list, a watch timer the first of "
                    "either.\n",
                    ""}));
}

TEST(Match, OfSeveralOfOneNameTheFirstIsChosen) {
  EmptyDevice story;
  story.device.launch({.name = "alpha"});
  story.device.launch({.name = "alpha"});
  EXPECT_EQ(story.run({"match", "alpha"}),
            (Output{0,
                    "PID  NAME   BUNDLE IDENTIFIER  FOUND BY  CHOSEN BY\n"
                    "101  alpha  -                  name      pass, watch timer\n"
                    "100  alpha  -                  name      -\n",
                    ""}));
}

TEST(Match, OfSeveralOfOneBundlePassAndWatchTimerChooseDifferently) {
  EmptyDevice story;
  const auto path = story.installApp("A.app", Dictionary{{"CFBundleIdentifier", "org.app"}});
  for (const char* name : {"One", "Two", "Three"}) {
    story.device.launch({.name = name, .executable_path = path});
  }
  EXPECT_EQ(story.run({"match", "org.app"}),
            (Output{0,
                    "PID  NAME   BUNDLE IDENTIFIER  FOUND BY           CHOSEN BY\n"
                    "102  Three  org.app            bundle identifier  watch timer\n"
                    "101  Two    org.app            bundle identifier  -\n"
                    "100  One    org.app            bundle identifier  pass\n"
                    "The two differ: among several processes a pass takes the first name and the "
                    "last bundle identifier of the kernel's list, a watch timer the first of "
                    "either.\n",
                    ""}));
}

TEST(Match, AsJson) {
  EmptyDevice story;
  story.launchApp("both", "both");
  story.device.launch({.name = "both"});
  EXPECT_EQ(story.run({"match", "both", "--json"}), (Output{0,
                                                            R"({
  "text": "both",
  "pid_for_pass": 100,
  "pid_for_watch_timer": 101,
  "processes": [
    {
      "pid": 101,
      "name": "both",
      "bundle_identifier": null,
      "rule": "name"
    },
    {
      "pid": 100,
      "name": "both",
      "bundle_identifier": "both",
      "rule": "name and bundle identifier"
    }
  ]
}
)",
                                                            ""}));
}

TEST(Match, NeedsAText) {
  EmptyDevice story;
  const Output output = story.run({"match"});
  EXPECT_EQ(output.status, 2);
  EXPECT_EQ(output.out, "");
}

TEST(Ps, ShowsWhatTheKernelSaysOfEachProcess) {
  EmptyDevice story;
  story.launchApp("微信", "com.tencent.xin");
  story.device.launch({.name = "a\tb", .nice_value = -7});
  EXPECT_EQ(story.run({"ps"}), (Output{0,
                                       "PID  NAME  BUNDLE IDENTIFIER  BAND  NICE  LIMIT MB\n"
                                       "101  a^Ib  -                   180    -7      1450\n"
                                       "100  微信  com.tencent.xin     180     0      1450\n",
                                       ""}));
}

TEST(Ps, WithoutPrivilegeTheKernelSaysLess) {
  EmptyDevice story;
  story.device.kernel.caller_is_privileged = false;
  story.device.launch({.name = "alpha", .nice_value = -7});
  EXPECT_EQ(story.run({"ps"}), (Output{0,
                                       "PID  NAME   BUNDLE IDENTIFIER  BAND  NICE  LIMIT MB\n"
                                       "100  alpha  -                  -       -7  -\n",
                                       ""}));
  EXPECT_EQ(story.run({"ps", "--json"}), (Output{0,
                                                 R"({
  "processes": [
    {
      "pid": 100,
      "name": "alpha",
      "bundle_identifier": null,
      "band": null,
      "nice": -7,
      "limit_mb": null
    }
  ]
}
)",
                                                 ""}));
}

// A nice value of -1 is no failure, and a failure is no nice value of -1.
TEST(Ps, TellsANiceValueOfMinusOneFromAFailure) {
  EmptyDevice story;
  story.device.launch({.name = "alpha", .nice_value = -1});
  story.device.launch({.name = "beta", .nice_value = 3});
  story.device.script({.function = "getpriority", .pid = 101, .result = -1, .error = 1});
  EXPECT_EQ(story.run({"ps"}), (Output{0,
                                       "PID  NAME   BUNDLE IDENTIFIER  BAND  NICE  LIMIT MB\n"
                                       "101  beta   -                   180     -      1450\n"
                                       "100  alpha  -                   180    -1      1450\n",
                                       ""}));
}

TEST(Ps, NamesThatAreNotUtf8AreReplacedInJson) {
  EmptyDevice story;
  story.device.launch({.name = "a\xff"
                               "b"});
  EXPECT_EQ(story.run({"ps", "--json"}), (Output{0,
                                                 R"({
  "processes": [
    {
      "pid": 100,
      "name": "a�b",
      "bundle_identifier": null,
      "band": 180,
      "nice": 0,
      "limit_mb": 1450
    }
  ]
}
)",
                                                 ""}));
}

}  // namespace
}  // namespace vorlatch::tests
