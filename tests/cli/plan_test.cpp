// vorlatchctl plan: what a freshly started daemon would do, step by step.
#include <gtest/gtest.h>

#include "tests/cli/held_story.h"

namespace vorlatch::tests {
namespace {

using plist::Dictionary;

const std::string kUnknown =
    "What the kernel will accept, and what the running daemon remembers of settings that it "
    "applied before, cannot be known from here: the running daemon passes over a target whose "
    "settings and process have not changed since.\n";
const std::string kDefaultLimits =
    "  set the memory limits: active the system's default, inactive the system's default\n";
const std::string kByPatrol = "  then again every 1800 s by the patrol\n";

// The plan for one process alpha that runs as 100 with nice value 3.
Output planFor(const Dictionary& settings,
               model::KernelGeneration generation = model::KernelGeneration::Xnu8792To10063) {
  ControlStory story;
  story.device.kernel.generation = generation;
  story.device.launch({.name = "alpha", .nice_value = 3});
  story.writeTargets({{"alpha", settings}});
  return story.run({"plan"});
}

Output planned(const std::string& steps) {
  return {0, "alpha: runs as 100, found by its name\n" + steps + kUnknown, ""};
}

TEST(Plan, EverythingThatCanBeAsked) {
  EXPECT_EQ(planFor({{"MemLimitActive", 1500},
                     {"MemLimitInactive", 1000},
                     {"NiceValue", -7},
                     {"JetsamPriority", 100},
                     {"StripManaged", true},
                     {"CheckInterval", 30}}),
            planned("  set the memory limits: active 1500 MB, fatal, inactive 1000 MB, fatal\n"
                    "  set the nice value from 3 to -7\n"
                    "  mark the process as unmanaged and set jetsam band 100\n"
                    "  take it out of the system's management, not freezable, elevated\n"
                    "  then again every 30 s by its own timer\n"));
}

TEST(Plan, NothingAsked) {
  EXPECT_EQ(planFor({}),
            planned(kDefaultLimits +
                    "  set the nice value from 3 to 0\n"
                    "  return the process to the system's management, and its band to idle\n" +
                    kByPatrol));
}

TEST(Plan, ANiceValueThatIsThereABandLeftAloneAndManagementGivenBack) {
  EXPECT_EQ(planFor({{"MemLimitActive", -1},
                     {"NiceValue", 3},
                     {"JetsamPriority", -1},
                     {"StripManaged", false}}),
            planned(kDefaultLimits +
                    "  leave the nice value, which is 3\n"
                    "  leave the jetsam band\n"
                    "  give it back to the system's management, freezable, not elevated\n" +
                    kByPatrol));
}

TEST(Plan, ABandThatAnOlderKernelRefuses) {
  EXPECT_EQ(
      planFor({{"JetsamPriority", 210}, {"NiceValue", 3}}, model::KernelGeneration::Xnu4903To8020),
      planned(kDefaultLimits +
              "  leave the nice value, which is 3\n"
              "  mark the process as unmanaged and set jetsam band 210; if refused, band "
              "21\n" +
              kByPatrol));
}

TEST(Plan, ABandAboveAllIsNotAdapted) {
  EXPECT_EQ(planFor({{"JetsamPriority", 999}, {"NiceValue", 3}}),
            planned(kDefaultLimits +
                    "  leave the nice value, which is 3\n"
                    "  mark the process as unmanaged and set jetsam band 999\n" +
                    kByPatrol));
}

TEST(Plan, WithoutPrivilegeAnyBandMayBeRefusedAndTheNiceValueMayBeUnknown) {
  ControlStory story;
  story.device.kernel.caller_is_privileged = false;
  story.device.launch({.name = "alpha"});
  story.device.script({.function = "getpriority", .result = -1, .error = 1});
  story.writeTargets({{"alpha", Dictionary{{"JetsamPriority", 100}, {"NiceValue", -1}}}});
  EXPECT_EQ(story.run({"plan"}),
            planned(kDefaultLimits +
                    "  read the nice value, and set it to -1 unless it is that\n"
                    "  mark the process as unmanaged and set jetsam band 100; if refused, band "
                    "10\n" +
                    kByPatrol));
}

TEST(Plan, TheStepsAreThoseThatTheDaemonTakes) {
  const Dictionary settings{
      {"MemLimitActive", 1500}, {"NiceValue", -7}, {"JetsamPriority", 100}, {"StripManaged", true}};
  HeldStory story(settings);
  EXPECT_EQ(story.run({"plan"}),
            (Output{0,
                    "alpha: runs as 101, found by its name (held already)\n"
                    "  set the memory limits: active 1500 MB, fatal, inactive the system's "
                    "default\n"
                    "  leave the nice value, which is -7\n"
                    "  mark the process as unmanaged and set jetsam band 100\n"
                    "  take it out of the system's management, not freezable, elevated\n" +
                        kByPatrol + kUnknown,
                    ""}));
  EXPECT_EQ(story.device.jetsam(101).active, (model::MemoryLimit{1500, true}));
  EXPECT_EQ(story.device.jetsam(101).inactive, (model::MemoryLimit{-1, true}));
  EXPECT_EQ(story.device.jetsam(101).managed, false);
  EXPECT_EQ(story.device.jetsam(101).freezable, false);
  EXPECT_EQ(story.device.jetsam(101).elevated, true);
}

TEST(Plan, ATargetThatDoesNotRunIsWatchedFor) {
  ControlStory story;
  story.writeTargets({{"alpha", Dictionary{{"CheckInterval", 5}}}, {"beta", Dictionary{}}});
  EXPECT_EQ(story.run({"plan"}), (Output{0,
                                         "alpha: does not run: nothing now, watched for\n"
                                         "  then again every 5 s by its own timer\n"
                                         "beta: does not run: nothing now, watched for\n" +
                                             kByPatrol + kUnknown,
                                         ""}));
}

TEST(Plan, ARestartedProcessIsNotHeldAlready) {
  HeldStory story({{"JetsamPriority", -1}});
  story.device.exit(101);
  story.device.launch({.name = "alpha"});
  EXPECT_EQ(story.run({"plan"}),
            (Output{0,
                    "alpha: runs as 102, found by its name\n" + kDefaultLimits +
                        "  leave the nice value, which is 0\n"
                        "  leave the jetsam band\n" +
                        kByPatrol + kUnknown,
                    ""}));
}

// The watch timer holds the newer of an app's processes; a first pass would take the older.
TEST(Plan, IsWhatAPassWouldDoAndNotTheWatchTimer) {
  ControlStory story;
  const auto app = story.installApp("A.app", Dictionary{{"CFBundleIdentifier", "org.app"}});
  story.device.launch({.name = "App", .executable_path = app});
  story.device.launch({.name = "Helper", .executable_path = app});
  story.writeTargets(
      {{"org.app", Dictionary{{"JetsamPriority", -1}, {"NiceValue", 4}, {"CheckInterval", 5}}}});
  story.startAndSettle();
  story.device.find(100)->nice_value = 2;
  story.Story::run(5s);
  EXPECT_EQ(story.device.find(101)->nice_value, 4);
  EXPECT_EQ(story.run({"plan"}),
            (Output{0,
                    "org.app: runs as 100, found by its bundle identifier\n" + kDefaultLimits +
                        "  set the nice value from 2 to 4\n"
                        "  leave the jetsam band\n"
                        "  then again every 5 s by its own timer\n" +
                        kUnknown,
                    ""}));
}

TEST(Plan, SwitchedOff) {
  ControlStory story;
  story.writePreferences({{"Enabled", false}, {"AppConfigs", Dictionary{{"alpha", Dictionary{}}}}});
  EXPECT_EQ(story.run({"plan"}),
            (Output{0,
                    "Switched off: the daemon would do nothing. Switched on, it would:\n"
                    "alpha: does not run: nothing now, watched for\n" +
                        kByPatrol + kUnknown,
                    ""}));
}

TEST(Plan, WithoutTargets) {
  ControlStory story;
  story.writeTargets({});
  EXPECT_EQ(story.run({"plan"}), (Output{0, "no targets\n" + kUnknown, ""}));
}

TEST(Plan, AKeyDoesNotCommandTheTerminalNorBreakItsLine) {
  ControlStory story;
  story.writeTargets(
      {{"a\tb\n\xc2\x9b"
        "2J",
        Dictionary{}}});
  EXPECT_EQ(
      story.run({"plan"}),
      (Output{0,
              "a^Ib^J\\xC2\\x9B2J: does not run: nothing now, watched for\n" + kByPatrol + kUnknown,
              ""}));
}

TEST(Plan, AsJson) {
  HeldStory story({{"JetsamPriority", -1}});
  EXPECT_EQ(story.run({"plan", "--json"}), (Output{0,
                                                   R"({
  "enabled": true,
  "targets": [
    {
      "target": "alpha",
      "pid": 101,
      "reason": "runs as 101, found by its name",
      "steps": [
        "set the memory limits: active the system's default, inactive the system's default",
        "leave the nice value, which is 0",
        "leave the jetsam band"
      ],
      "afterwards": "then again every 1800 s by the patrol",
      "held_already": true
    }
  ],
  "unknown": ")" + kUnknown.substr(0, kUnknown.size() - 1) +
                                                       "\"\n}\n",
                                                   ""}));
}

}  // namespace
}  // namespace vorlatch::tests
