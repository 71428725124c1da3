// vorlatchctl status: how each target stands, and by what it is judged; which targets it shows, as
// a table, as JSON, and again and again.
#include <gtest/gtest.h>

#include "base/utf8.h"
#include "tests/cli/held_story.h"

namespace vorlatch::tests {
namespace {

Dictionary with(Dictionary settings, const std::string& key, const plist::Value& value) {
  settings.insert_or_assign(key, value);
  return settings;
}

TEST(Status, FromHeldToStale) {
  HeldStory story;
  EXPECT_EQ(story.answer("status"), R"(switched on, the daemon runs as 100
TARGET  PID  NAME   BAND  NICE  LIMITS MB    MANAGED  TIMER  DAEMON WROTE    VERDICT
alpha   101  alpha   100    -7  1500 / 1000  no       -      101 n:-7 b:100  held
)");
  story.device.exit(100);
  EXPECT_EQ(story.answer("status"), R"(switched on, the daemon does not run
TARGET  PID  NAME   BAND  NICE  LIMITS MB    MANAGED  TIMER  DAEMON WROTE    VERDICT
alpha   101  alpha   100    -7  1500 / 1000  no       -      101 n:-7 b:100  stale status
)");
  story.launchDaemon();
  story.device.exit(101);
  EXPECT_EQ(story.answer("status"), R"(switched on, the daemon runs as 102
TARGET  PID  NAME  BAND  NICE  LIMITS MB  MANAGED  TIMER  DAEMON WROTE    VERDICT
alpha   -    -     -     -     -          -        -      101 n:-7 b:100  stale status
)");
  story.device.launch({.name = "alpha"});
  EXPECT_EQ(story.answer("status"), R"(switched on, the daemon runs as 102
TARGET  PID  NAME   BAND       NICE    LIMITS MB                  MANAGED  TIMER  DAEMON WROTE    VERDICT
alpha   103  alpha  100 > 180  -7 > 0  1500 > 1450 / 1000 > 1450  no       -      101 n:-7 b:100  stale status
)");
}

TEST(Status, OverriddenThoughAnotherIsEdited) {
  HeldStory story;
  auto& record = story.device.jetsam_table.records.at(101);
  record.active.limit_mb = 800;
  EXPECT_EQ(story.answer("status"), R"(switched on, the daemon runs as 100
TARGET  PID  NAME   BAND  NICE  LIMITS MB          MANAGED  TIMER  DAEMON WROTE    VERDICT
alpha   101  alpha   100    -7  1500 > 800 / 1000  no       -      101 n:-7 b:100  overridden by the system
exit 1
)");
  record.active.limit_mb = 1500;
  record.effective_band = 40;
  EXPECT_EQ(story.answer("status"), R"(switched on, the daemon runs as 100
TARGET  PID  NAME   BAND      NICE  LIMITS MB    MANAGED  TIMER  DAEMON WROTE    VERDICT
alpha   101  alpha  100 > 40    -7  1500 / 1000  no       -      101 n:-7 b:100  overridden by the system
exit 1
)");
  record.effective_band = 100;
  story.device.find(101)->nice_value = 0;
  story.editLater({{"alpha", kAlphaSettings}, {"absent", Dictionary{{"NiceValue", 1}}}});
  EXPECT_EQ(story.answer("status alpha"), R"(switched on, the daemon runs as 100
TARGET  PID  NAME   BAND  NICE    LIMITS MB    MANAGED  TIMER  DAEMON WROTE    VERDICT
alpha   101  alpha   100  -7 > 0  1500 / 1000  no       -      101 n:-7 b:100  overridden by the system
exit 1
)");
}

TEST(Status, OverriddenFromTheBeginning) {
  HeldStory story(kAlphaSettings, {.name = "alpha"},
                  [](simulated::Device& device) { device.find(101)->overriding_nice = 5; });
  EXPECT_EQ(story.answer("status"), R"(switched on, the daemon runs as 100
TARGET  PID  NAME   BAND  NICE    LIMITS MB    MANAGED  TIMER  DAEMON WROTE   VERDICT
alpha   101  alpha   100  -7 > 5  1500 / 1000  no       -      101 n:5 b:100  overridden by the system
exit 1
)");
}

TEST(Status, NotRunningThenNotAppliedYet) {
  HeldStory story(with(kAlphaSettings, "CheckInterval", 30), {.name = "other"});
  EXPECT_EQ(story.answer("status"), R"(switched on, the daemon runs as 100
TARGET  PID  NAME  BAND  NICE  LIMITS MB  MANAGED  TIMER  DAEMON WROTE  VERDICT
alpha   -    -     -     -     -          -        30s    -             not running
)");
  story.device.launch({.name = "alpha", .nice_value = 3});
  EXPECT_EQ(story.answer("status"), R"(switched on, the daemon runs as 100
TARGET  PID  NAME   BAND       NICE    LIMITS MB                  MANAGED  TIMER  DAEMON WROTE  VERDICT
alpha   102  alpha  100 > 180  -7 > 3  1500 > 1450 / 1000 > 1450  no       30s    -             not applied yet
)");
}

TEST(Status, EditedThenHeldAgain) {
  HeldStory story;
  story.editLater({{"alpha", with(kAlphaSettings, "NiceValue", -9)}});
  EXPECT_EQ(story.answer("status"), R"(switched on, the daemon runs as 100
TARGET  PID  NAME   BAND  NICE     LIMITS MB    MANAGED  TIMER  DAEMON WROTE    VERDICT
alpha   101  alpha   100  -9 > -7  1500 / 1000  no       -      101 n:-7 b:100  not applied yet
)");
  story.postAndRun();
  EXPECT_EQ(story.answer("status"), R"(switched on, the daemon runs as 100
TARGET  PID  NAME   BAND  NICE  LIMITS MB    MANAGED  TIMER  DAEMON WROTE    VERDICT
alpha   101  alpha   100    -9  1500 / 1000  no       -      101 n:-9 b:100  held
)");
}

TEST(Status, SwitchedOffNothingIsJudged) {
  HeldStory story;
  story.writePreferences(
      {{"Enabled", false}, {"AppConfigs", Dictionary{{"alpha", kAlphaSettings}}}});
  story.postAndRun();
  EXPECT_EQ(story.answer("status"), R"(switched off, the daemon runs as 100
TARGET  PID  NAME   BAND     NICE    LIMITS MB                  MANAGED  TIMER  DAEMON WROTE  VERDICT
alpha   101  alpha  100 > 0  -7 > 0  1500 > 1450 / 1000 > 1450  yes      -      -             switched off
)");
}

TEST(Status, HeldAtTheBandOfAnOlderKernel) {
  ControlStory story;
  story.device.kernel.generation = model::KernelGeneration::Xnu4903To8020;
  story.launchDaemon();
  story.device.launch({.name = "alpha"});
  story.writeTargets({{"alpha", with(kAlphaSettings, "JetsamPriority", 210)}});
  story.startAndSettle();
  EXPECT_EQ(story.answer("status"), R"(switched on, the daemon runs as 100
TARGET  PID  NAME   BAND      NICE  LIMITS MB    MANAGED  TIMER  DAEMON WROTE   VERDICT
alpha   101  alpha  210 > 21    -7  1500 / 1000  no       -      101 n:-7 b:21  held
)");
}

TEST(Status, OverriddenAtTheBandOfAnOlderKernel) {
  HeldStory story(with(kAlphaSettings, "JetsamPriority", 210));
  story.device.jetsam_table.records.at(101).effective_band = 21;
  EXPECT_EQ(story.answer("status"), R"(switched on, the daemon runs as 100
TARGET  PID  NAME   BAND      NICE  LIMITS MB    MANAGED  TIMER  DAEMON WROTE    VERDICT
alpha   101  alpha  210 > 21    -7  1500 / 1000  no       -      101 n:-7 b:210  overridden by the system
exit 1
)");
}

TEST(Status, HeldWhateverTheSystemChooses) {
  HeldStory story({{"MemLimitInactive", -1}});
  story.device.jetsam_table.records.at(101).effective_band = 40;
  EXPECT_EQ(story.answer("status"), R"(switched on, the daemon runs as 100
TARGET  PID  NAME   BAND         NICE  LIMITS MB                      MANAGED  TIMER  DAEMON WROTE  VERDICT
alpha   101  alpha  system > 40     0  system > 1450 / system > 1450  yes      -      101 n:0 b:0   held
)");
}

TEST(Status, HeldByTheStatusFileUnprivileged) {
  HeldStory story(with(kAlphaSettings, "StripManaged", true));
  story.device.kernel.caller_is_privileged = false;
  EXPECT_EQ(story.answer("status"), R"(switched on, the daemon runs as 100
TARGET  PID  NAME   BAND     NICE  LIMITS MB            MANAGED  TIMER  DAEMON WROTE    VERDICT
alpha   101  alpha  100 > -    -7  1500 > - / 1000 > -  no > -   -      101 n:-7 b:100  held
)");
}

TEST(Status, OverriddenByTheStatusFileUnprivileged) {
  HeldStory story(kAlphaSettings, {.name = "alpha"},
                  [](simulated::Device& device) { device.find(101)->overriding_band = 40; });
  story.device.kernel.caller_is_privileged = false;
  EXPECT_EQ(story.answer("status"), R"(switched on, the daemon runs as 100
TARGET  PID  NAME   BAND     NICE  LIMITS MB            MANAGED  TIMER  DAEMON WROTE   VERDICT
alpha   101  alpha  100 > -    -7  1500 > - / 1000 > -  -        -      101 n:-7 b:40  overridden by the system
exit 1
)");
}

TEST(Status, HeldWhicheverProcessIsChosen) {
  WatchedAppStory story(with(kAlphaSettings, "CheckInterval", 5));
  EXPECT_EQ(story.answer("status"), R"(switched on, the daemon runs as 100
TARGET   PID  NAME  BAND  NICE  LIMITS MB    MANAGED  TIMER  DAEMON WROTE    VERDICT
org.app  101  App    100    -7  1500 / 1000  no       5s     101 n:-7 b:100  held
)");
  story.Story::run(5s);
  EXPECT_EQ(story.answer("status"), R"(switched on, the daemon runs as 100
TARGET   PID  NAME    BAND  NICE  LIMITS MB    MANAGED  TIMER  DAEMON WROTE    VERDICT
org.app  102  Helper   100    -7  1500 / 1000  no       5s     102 n:-7 b:100  held
)");
}

TEST(Status, ShowsOnlyNamedTargets) {
  ControlStory story;
  story.writeTargets({{"alpha", kLeftAlone}, {"beta", kLeftAlone}, {"gamma", kLeftAlone}});
  EXPECT_EQ(story.answer("status gamma alpha"), R"(switched on, the daemon does not run
TARGET  PID  NAME  BAND  NICE  LIMITS MB  MANAGED  TIMER  DAEMON WROTE  VERDICT
alpha   -    -     -     -     -          -        -      -             not running
gamma   -    -     -     -     -          -        -      -             not running
)");
  EXPECT_EQ(story.answer("status alhpa"),
            "err: vorlatchctl: no target alhpa is configured; did you mean alpha?\nexit 2\n");
  EXPECT_EQ(story.answer("status xyz"), "err: vorlatchctl: no target xyz is configured\nexit 2\n");
}

TEST(Status, SaysThatThereAreNoTargets) {
  ControlStory story;
  EXPECT_EQ(story.answer("status"), "switched off, the daemon does not run\nno targets\n");
}

TEST(Status, CutsColumnsOnANarrowTerminal) {
  HeldStory story;
  story.columns = 64;
  EXPECT_EQ(story.answer("status"), R"(switched on, the daemon runs as 100
TARG…  PID  NAME   BAND  NICE  LIMI…  MANA…  TIMER  DAEM…  VERD…
alpha  101  alpha   100    -7  1500…  no     -      101 …  held
)");
}

TEST(Status, AlignsChineseNames) {
  ControlStory story;
  story.device.launch({.name = "微信"});
  story.writeTargets({{"微信", kLeftAlone}, {"alphabet", kLeftAlone}});
  EXPECT_EQ(story.answer("status"), R"(switched on, the daemon does not run
TARGET    PID  NAME  BAND       NICE  LIMITS MB                      MANAGED  TIMER  DAEMON WROTE  VERDICT
alphabet    -  -     -             -  -                              -        -      -             not running
微信      100  微信  any > 180     0  system > 1450 / system > 1450  no       -      -             not applied yet
)");
}

TEST(Status, SpellsControlCharactersOut) {
  ControlStory story;
  std::string name = "a\x1b]0;b\x07\x9b";
  name += "2J\n";
  ASSERT_TRUE(appendUtf8(name, 0x202E));  // what follows would run from right to left
  const auto app = story.installApp("A.app", Dictionary{{"CFBundleIdentifier", "org.app"}});
  story.device.launch({.name = name, .executable_path = app});
  story.writeTargets({{"org.app", kLeftAlone}});
  EXPECT_EQ(story.answer("status"), R"(switched on, the daemon does not run
TARGET   PID  NAME                           BAND       NICE  LIMITS MB                      MANAGED  TIMER  DAEMON WROTE  VERDICT
org.app  100  a^[]0;b^G\x9B2J^J\xE2\x80\xAE  any > 180     0  system > 1450 / system > 1450  no       -      -             not applied yet
)");
}

// The overridden alpha is no finding when only beta is asked for.
TEST(Status, ColoursHeadingsAndVerdicts) {
  HeldStory story;
  story.device.find(101)->nice_value = 3;
  story.writeTargets({{"alpha", kAlphaSettings}, {"beta", kLeftAlone}});
  EXPECT_EQ(story.run({"status", "beta"}).status, 0);
  story.has_colour = true;
  const auto bold = [](const std::string& text) { return "\x1b[1m" + text + "\x1b[0m"; };
  EXPECT_EQ(story.answer("status"),
            "switched on, the daemon runs as 100\n" + bold("TARGET") + "  " + bold("PID") + "  " +
                bold("NAME") + "   " + bold("BAND") + "  " + bold("NICE") + "    " +
                bold("LIMITS MB") + "    " + bold("MANAGED") + "  " + bold("TIMER") + "  " +
                bold("DAEMON WROTE") + "    " + bold("VERDICT") +
                "\nalpha   101  alpha   100  -7 > 3  1500 / 1000  no       -      101 n:-7 b:100  "
                "\x1b[31moverridden by the system\x1b[0m\n"
                "beta      -  -         -  -       -            -        -      -               "
                "\x1b[2mnot running\x1b[0m\nexit 1\n");
}

// The nice value is all that a user without privilege is told of the process 101.
std::string statusJson(const std::string& band, const std::string& limits_and_management) {
  return pretty(R"({"enabled": true, "daemon_pids": [100], "targets": [
    {"target": "alpha", "verdict": "held",
     "wanted": {"band": 100, "nice": -7, "active_limit_mb": 1500, "inactive_limit_mb": 0,
                "strip_managed": true, "interval_s": 0},
     "daemon_wrote": {"pid": 101, "nice": -7, "band": 100},
     "now": {"pid": 101, "name": "alpha", "band": )" +
                band + R"(, "nice": -7, )" + limits_and_management + R"(}},
    {"target": "beta", "verdict": "not running",
     "wanted": {"band": 0, "nice": 0, "active_limit_mb": 0, "inactive_limit_mb": 0,
                "strip_managed": null, "interval_s": 30},
     "daemon_wrote": null, "now": null}]})");
}

TEST(Status, AsJson) {
  HeldStory story({{"NiceValue", -7}, {"JetsamPriority", 100}, {"StripManaged", true}});
  story.writeTargets(dictionary(R"({"alpha": {"NiceValue": -7, "JetsamPriority": 100,
      "MemLimitActive": 1500, "StripManaged": true}, "beta": {"CheckInterval": 30}})"));
  story.postAndRun();
  EXPECT_EQ(
      story.answer("status --json"),
      statusJson("100", R"("active_limit_mb": 1500, "inactive_limit_mb": 1450, "managed": false)"));
  story.device.kernel.caller_is_privileged = false;
  EXPECT_EQ(
      story.answer("status --json"),
      statusJson("null", R"("active_limit_mb": null, "inactive_limit_mb": null, "managed": null)"));
}

// A look at the process alpha that is left alone.
constexpr const char* kHead = "switched on, the daemon runs as 100";
constexpr const char* kHeadings =
    "TARGET  PID  NAME   BAND       NICE  LIMITS MB                      MANAGED  TIMER  DAEMON "
    "WROTE   VERDICT";
constexpr const char* kRow =
    "alpha   101  alpha  any > 180     0  system > 1450 / system > 1450  no       -      101 n:0 "
    "b:180  held";

// The lines as they are sent to the terminal.
std::string drawn(const Lines& lines) {
  std::string text = "\x1b[?7l\x1b[H";
  for (const std::string& line : lines) text += line + "\x1b[K\n";
  return text + "\x1b[J\x1b[?7h";
}

TEST(StatusWatch, DrawsOverUntilInterrupted) {
  HeldStory story(kLeftAlone);
  story.columns = 200;
  story.rows = 24;
  std::vector<std::uint64_t> waited_until_ns;
  story.is_interrupted = [&](int waits) {
    waited_until_ns.push_back(story.device.scheduler.nowNs());
    if (waits == 2) story.device.find(101)->nice_value = 3;
    return waits == 3;
  };
  const std::string held = drawn({kHead, kHeadings, kRow});
  const std::string overridden = drawn(
      {kHead,
       "TARGET  PID  NAME   BAND       NICE   LIMITS MB                      MANAGED  TIMER  "
       "DAEMON WROTE   VERDICT",
       "alpha   101  alpha  any > 180  0 > 3  system > 1450 / system > 1450  no       -      101 "
       "n:0 b:180  overridden by the system"});
  EXPECT_EQ(story.answer("status --watch --interval 5"),
            "\x1b[2J" + held + held + overridden + "exit 1\n");
  ASSERT_EQ(waited_until_ns.size(), 3U);
  EXPECT_EQ(waited_until_ns[2] - waited_until_ns[0], 10'000'000'000U);
}

TEST(StatusWatch, TakesAHundredthOfTheTimeAtMost) {
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

TEST(StatusWatch, DrawsNoMoreLinesThanFit) {
  ControlStory story;
  story.writeTargets({{"a", kLeftAlone}, {"b", kLeftAlone}, {"c", kLeftAlone}});
  story.columns = 30;
  story.rows = 5;
  story.is_interrupted = [](int) { return true; };
  EXPECT_EQ(story.answer("status --watch"),
            "\x1b[2J" + drawn({"switched on, the daemon does not run",
                               "TAR…  PID  NAME  BAND  NICE  LIM…  MAN…  TIM…  DAE…  VER…",
                               "a     -    -     -     -     -     -     -     -     not…",
                               "b     -    -     -     -     -     -     -     -     not…"}));
}

TEST(StatusWatch, WritesPictureBehindPictureIntoAPipe) {
  HeldStory story(kLeftAlone);
  story.is_interrupted = [](int waits) { return waits == 2; };
  const std::string picture = std::string(kHead) + "\n" + kHeadings + "\n" + kRow + "\n";
  EXPECT_EQ(story.answer("status --watch"), picture + picture);
}

}  // namespace
}  // namespace vorlatch::tests
