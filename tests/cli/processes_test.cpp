// vorlatchctl match, ps and plan: what runs, under which names, what a key finds, and what a
// freshly started daemon would do to it, step by step.
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/cli/held_story.h"
#include "tests/support/text.h"

namespace vorlatch::tests {
namespace {

// Of this story no process but its own runs.
struct EmptyDevice : ControlStory {
  EmptyDevice() { device.exit(getpid()); }
  void launchApp(const std::vector<std::string>& names, const std::string& identifier) const {
    const auto path =
        installApp(identifier + ".app", Dictionary{{"CFBundleIdentifier", identifier}});
    for (const std::string& name : names) device.launch({.name = name, .executable_path = path});
  }
};

const std::string kDiffer =
    "The two differ: among several processes a pass takes the first name and the last bundle "
    "identifier of the kernel's list, a watch timer the first of either.\n";

// What is found, without the widths of the columns.
std::string rows(ControlStory& story, const std::string& line) {
  return rowsOf(story.answer(line), 1);
}

TEST(Match, FindsANameOrABundleIdentifier) {
  EmptyDevice story;
  story.launchApp({"WeChat"}, "com.tencent.xin");
  story.device.launch({.name = "alpha"});
  EXPECT_EQ(story.answer("match alpha"), R"(PID  NAME   BUNDLE IDENTIFIER  FOUND BY  CHOSEN BY
101  alpha  -                  name      pass, watch timer
)");
  EXPECT_EQ(rows(story, "match com.tencent.xin"),
            "100 | WeChat | com.tencent.xin | bundle identifier | pass, watch timer\n");
  story.device.launch({.name = "alpha"});
  EXPECT_EQ(rows(story, "match alpha"),
            "102 | alpha | - | name | pass, watch timer\n101 | alpha | - | name | -\n");
  EXPECT_EQ(story.answer("match alpa"),
            "no running process and no installed app has alpa in its name; did you mean alpha?\n");
  EXPECT_EQ(story.answer("match none --json"), pretty(R"({"text": "none", "pid_for_pass": 0,
      "pid_for_watch_timer": 0, "processes": []})"));
  EXPECT_EQ(story.answer("match"),
            "err: vorlatchctl: TEXT is missing; vorlatchctl match --help says more\nexit 2\n");
}

TEST(Match, SaysThatPassAndTimerDiffer) {
  EmptyDevice story;
  story.launchApp({"One", "Two", "Three"}, "org.app");
  EXPECT_EQ(rows(story, "match org.app"),
            "102 | Three | org.app | bundle identifier | watch timer\n"
            "101 | Two | org.app | bundle identifier | -\n"
            "100 | One | org.app | bundle identifier | pass\n" +
                kDiffer);
  story.launchApp({"both"}, "both");
  story.device.launch({.name = "both"});
  EXPECT_EQ(rows(story, "match both"),
            "104 | both | - | name | watch timer\n"
            "103 | both | both | name and bundle identifier | pass\n" +
                kDiffer);
  EXPECT_EQ(story.answer("match both --json"), pretty(R"({"text": "both", "pid_for_pass": 103,
      "pid_for_watch_timer": 104, "processes": [
      {"pid": 104, "name": "both", "bundle_identifier": null, "display_name": null,
       "rule": "name", "rule_text": "name"},
      {"pid": 103, "name": "both", "bundle_identifier": "both", "display_name": null,
       "rule": "name-and-bundle-identifier", "rule_text": "name and bundle identifier"}]})"));
}

// The home screen's name may be in any language, and the app need not run.
TEST(Match, FindsWhatAPersonCallsIt) {
  EmptyDevice story;
  const auto wechat = story.installApp("WeChat", "com.tencent.xin", "WeChat", "微信");
  story.installApp("WeRead", "com.tencent.weread", "WeRead", "微信读书");
  story.device.launch({.name = "WeChat", .executable_path = wechat});
  const std::string whole_only =
      "The daemon finds a target only by its whole name or bundle identifier.\n";
  EXPECT_EQ(rows(story, "match 微信"),
            "100 | WeChat | com.tencent.xin | display name 微信 | -\n"
            "- | WeRead | com.tencent.weread | display name 微信读书 | -\n" +
                whole_only);
  EXPECT_EQ(rows(story, "match wechat"),
            "100 | WeChat | com.tencent.xin | another case | -\n" + whole_only);
  EXPECT_EQ(rows(story, "match TENCENT"),
            "100 | WeChat | com.tencent.xin | a part | -\n"
            "- | WeRead | com.tencent.weread | a part | -\n" +
                whole_only);
  EXPECT_EQ(rows(story, "match WeRead"), "- | WeRead | com.tencent.weread | name | -\n");
  EXPECT_EQ(story.answer("match 读书 --json"), pretty(R"({"text": "读书", "pid_for_pass": 0,
      "pid_for_watch_timer": 0, "processes": [
      {"pid": null, "name": "WeRead", "bundle_identifier": "com.tencent.weread",
       "display_name": "微信读书", "rule": "part-of-display-name",
       "rule_text": "display name 微信读书"}]})"));
}

// A nice value of -1 is no failure, and a failure is no nice value of -1.
TEST(Ps, ShowsWhatTheKernelSays) {
  EmptyDevice story;
  story.launchApp({"微信"}, "com.tencent.xin");
  story.device.launch({.name = "a\t\xff", .nice_value = -1});
  story.device.launch({.name = "beta", .nice_value = 3});
  story.device.script({.function = "getpriority", .pid = 102, .result = -1, .error = 1});
  EXPECT_EQ(story.answer("ps"), R"(PID  NAME     BUNDLE IDENTIFIER  BAND  NICE  LIMIT MB  MEMORY MB
102  beta     -                   180     -      1450  -
101  a^I\xFF  -                   180    -1      1450  -
100  微信     com.tencent.xin     180     0      1450  -
)");
}

TEST(Ps, AsJsonWithAndWithoutPrivilege) {
  EmptyDevice story;
  story.device.launch({.name = "a\xff", .nice_value = -7});
  const auto json = [](const std::string& told) {
    return pretty(R"({"processes": [
        {"pid": 100, "name": "a�", "bundle_identifier": null, "display_name": null, )" +
                  told + R"(, "memory": null}]})");
  };
  EXPECT_EQ(story.answer("ps --json"), json(R"("band": 180, "nice": -7, "limit_mb": 1450)"));
  story.device.kernel.caller_is_privileged = false;
  EXPECT_EQ(story.answer("ps --json"), json(R"("band": null, "nice": -7, "limit_mb": null)"));
}

TEST(Ps, FiltersAndSorts) {
  EmptyDevice story;
  const auto memory = [](std::uint64_t megabytes) {
    return platform::ProcessMemory{.footprint_bytes = megabytes << 20U,
                                   .peak_bytes = megabytes << 20U};
  };
  story.device.launch({.name = "small", .nice_value = 5, .memory = memory(29)});
  story.device.launch({.name = "large", .nice_value = -5, .memory = memory(290)});
  story.device.launch({.name = "hidden"});
  const std::string hidden = "102 | hidden | - | 180 | 0 | 1450 | -\n";
  const std::string large = "101 | large | - | 180 | -5 | 1450 | 290, peak 290, 20 %\n";
  const std::string small = "100 | small | - | 180 | 5 | 1450 | 29, peak 29, 2 %\n";
  EXPECT_EQ(rows(story, "ps --sort memory"), large + small + hidden);
  EXPECT_EQ(rows(story, "ps --sort name"), hidden + large + small);
  EXPECT_EQ(rows(story, "ps --sort nice"), large + hidden + small);
  EXPECT_EQ(rows(story, "ps --sort pid"), small + large + hidden);
  EXPECT_EQ(rows(story, "ps --sort band LARGE"), large);
  EXPECT_EQ(story.answer("ps xyz"), "no process has \"xyz\" in its name or bundle identifier\n");
  EXPECT_EQ(story.answer("ps --sort size"),
            "err: vorlatchctl: ps cannot sort by size; it sorts by: memory band name nice pid\n"
            "exit 2\n");
  story.columns = 100;
  EXPECT_EQ(rows(story, "ps large"),
            "101 | large | - | 180 | -5 | 1450 | 290, peak 290, 20 % ##........\n");
  // On a phone's screen, names that must be typed stay whole, and other columns are left out.
  story.columns = 52;
  EXPECT_EQ(rows(story, "ps large"), "101 | large | - | 290, peak 290, 20 %\n");
  story.columns = 30;
  EXPECT_EQ(rows(story, "ps large"), "101 | large | 290, peak 290, 20…\n");
}

const std::string kUnknown =
    "What the kernel will accept, and what the running daemon remembers of settings that it "
    "applied before, cannot be known from here: the running daemon passes over a target whose "
    "settings and process have not changed since.";
const std::string kEnd = "  then again every 1800 s by the patrol\n" + kUnknown + "\n";
const std::string kNoLimits =
    "  set the memory limits: active the system's default, inactive the system's default\n";

// The plan for the process alpha, which runs as 100 with nice value 3.
void expectPlan(ControlStory& story, const std::string& settings, const std::string& steps) {
  SCOPED_TRACE(steps);
  story.writeTargets({{"alpha", dictionary(settings)}});
  EXPECT_EQ(story.answer("plan"), "alpha: runs as 100, found by its name\n" + steps + kEnd);
}

TEST(Plan, NamesEachStep) {
  ControlStory story;
  story.device.launch({.name = "alpha", .nice_value = 3});
  expectPlan(story, "{}", kNoLimits + R"(  set the nice value from 3 to 0
  return the process to the system's management, and its band to idle
)");
  expectPlan(
      story,
      R"({"MemLimitActive": -1, "NiceValue": 3, "JetsamPriority": -1, "StripManaged": false})",
      kNoLimits + R"(  leave the nice value, which is 3
  leave the jetsam band
  give it back to the system's management, freezable, not elevated
)");
  expectPlan(
      story,
      R"({"MemLimitActive": 1500, "MemLimitInactive": 1000, "NiceValue": -7, "JetsamPriority": 999,
          "StripManaged": true})",
      R"(  set the memory limits: active 1500 MB, fatal, inactive 1000 MB, fatal
  set the nice value from 3 to -7
  mark the process as unmanaged and set jetsam band 999
  take it out of the system's management, not freezable, elevated
)");
}

// An older kernel takes a tenth of the band, and a user without privilege cannot see which it is.
TEST(Plan, NamesTheBandIfRefused) {
  ControlStory story;
  story.device.kernel.generation = model::KernelGeneration::Xnu4903To8020;
  story.device.launch({.name = "alpha", .nice_value = 3});
  expectPlan(story, R"({"JetsamPriority": 210, "NiceValue": 3})",
             kNoLimits + R"(  leave the nice value, which is 3
  mark the process as unmanaged and set jetsam band 210; if refused, band 21
)");
  story.device.kernel.caller_is_privileged = false;
  story.device.script({.function = "getpriority", .result = -1, .error = 1});
  expectPlan(story, R"({"JetsamPriority": 100, "NiceValue": -1})",
             kNoLimits + R"(  read the nice value, and set it to -1 unless it is that
  mark the process as unmanaged and set jetsam band 100; if refused, band 10
)");
}

TEST(Plan, IsAPassAndNotTheWatchTimer) {
  WatchedAppStory story({{"JetsamPriority", -1}, {"NiceValue", 4}, {"CheckInterval", 5}});
  story.device.find(101)->nice_value = 2;
  story.Story::run(5s);
  EXPECT_EQ(story.device.find(102)->nice_value, 4);
  EXPECT_EQ(story.answer("plan"), "org.app: runs as 101, found by its bundle identifier\n" +
                                      kNoLimits +
                                      R"(  set the nice value from 2 to 4
  leave the jetsam band
  then again every 5 s by its own timer
)" + kUnknown + "\n");
}

// No key commands the terminal or breaks its line.
TEST(Plan, SaysWhatItWatchesFor) {
  ControlStory story;
  const Dictionary targets{{"alpha", Dictionary{{"CheckInterval", 5}}},
                           {"b\tb\n\xc2\x9b"
                            "2J",
                            Dictionary{}}};
  const std::string steps = R"(alpha: does not run: nothing now, watched for
  then again every 5 s by its own timer
b^Ib^J\xC2\x9B2J: does not run: nothing now, watched for
)" + kEnd;
  story.writeTargets(targets);
  EXPECT_EQ(story.answer("plan"), steps);
  story.writePreferences({{"Enabled", false}, {"AppConfigs", targets}});
  EXPECT_EQ(story.answer("plan"),
            "Switched off: the daemon would do nothing. Switched on, it would:\n" + steps);
  story.writeTargets({});
  EXPECT_EQ(story.answer("plan"), "no targets\n" + kUnknown + "\n");
}

TEST(Plan, OfAHeldTarget) {
  HeldStory story(kLeftAlone);
  EXPECT_TRUE(
      story.answer("plan").starts_with("alpha: runs as 101, found by its name (held already)\n"));
  EXPECT_EQ(story.answer("plan --json"),
            pretty(R"({"enabled": true, "targets": [{"target": "alpha", "pid": 101,
  "reason": "runs as 101, found by its name",
  "steps": ["set the memory limits: active the system's default, inactive the system's default",
  "leave the nice value, which is 0", "leave the jetsam band"],
  "afterwards": "then again every 1800 s by the patrol", "held_already": true}],
  "unknown": ")" + kUnknown +
                   R"("})"));
}

}  // namespace
}  // namespace vorlatch::tests
