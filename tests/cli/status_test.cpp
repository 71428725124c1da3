// vorlatchctl status: how each target stands, and by what it is judged; which targets it shows, as
// a table, as JSON, and again and again.
#include <gtest/gtest.h>

#include "tests/cli/held_story.h"
#include "tests/support/text.h"

namespace vorlatch::tests {
namespace {

Dictionary with(Dictionary settings, const std::string& key, const plist::Value& value) {
  settings.insert_or_assign(key, value);
  return settings;
}

// The targets' rows, without the widths of their columns.
std::string rows(ControlStory& story) {
  return rowsOf(story.answer("status"), 2);
}

TEST(Status, FromHeldToStale) {
  HeldStory story;
  const std::string table = R"(
TARGET  PID  NAME   BAND  NICE  LIMITS MB    MANAGED  TIMER  MEMORY MB  DAEMON WROTE    VERDICT
alpha   101  alpha   100    -7  1500 / 1000  no       -      -          101 n:-7 b:100  )";
  EXPECT_EQ(story.answer("status"), "switched on, the daemon runs as 100" + table + "held\n");
  story.device.exit(100);
  EXPECT_EQ(story.answer("status"),
            "switched on, the daemon does not run" + table + "stale status\nexit 1\n");
  story.launchDaemon();
  story.device.exit(101);
  EXPECT_EQ(rows(story), "alpha | - | - | - | - | - | - | - | - | 101 n:-7 b:100 | stale status\n");
  story.device.launch({.name = "alpha"});
  EXPECT_EQ(rows(story),
            "alpha | 103 | alpha | 100 > 180 | -7 > 0 | 1500 > 1450 / 1000 > 1450 | no | - | - | "
            "101 n:-7 b:100 | stale status\nexit 1\n");
}

TEST(Status, OverriddenThoughAnotherIsEdited) {
  const std::string end = "no | - | - | 101 n:-7 b:100 | overridden by the system\nexit 1\n";
  HeldStory story;
  auto& record = story.device.jetsam_table.records.at(101);
  record.active.limit_mb = 800;
  EXPECT_EQ(rows(story), "alpha | 101 | alpha | 100 | -7 | 1500 > 800 / 1000 | " + end);
  record.active.limit_mb = 1500;
  record.effective_band = 40;
  EXPECT_EQ(rows(story), "alpha | 101 | alpha | 100 > 40 | -7 | 1500 / 1000 | " + end);
  record.effective_band = 100;
  story.device.find(101)->nice_value = 0;
  story.editLater({{"absent", Dictionary{{"NiceValue", 1}}}, {"alpha", kAlphaSettings}});
  EXPECT_EQ(rows(story),
            "absent | - | - | - | - | - | - | - | - | - | not running\n"
            "alpha | 101 | alpha | 100 | -7 > 0 | 1500 / 1000 | " +
                end);
}

TEST(Status, NotRunningThenNotAppliedYet) {
  HeldStory story({{"JetsamPriority", -1}, {"CheckInterval", 30}}, {.name = "other"});
  EXPECT_EQ(rows(story), "alpha | - | - | - | - | - | - | 30s | - | - | not running\n");
  story.device.launch({.name = "alpha", .nice_value = 3});
  EXPECT_EQ(
      rows(story),
      "alpha | 102 | alpha | any > 180 | 0 > 3 | system > 1450 / system > 1450 | no | 30s | - | "
      "- | not applied yet\nexit 1\n");
}

TEST(Status, EditedThenHeldAgain) {
  HeldStory story;
  const Dictionary edited{{"alpha", with(kAlphaSettings, "NiceValue", -9)}};
  story.editLater(edited);
  EXPECT_EQ(rows(story),
            "alpha | 101 | alpha | 100 | -9 > -7 | 1500 / 1000 | no | - | - | 101 n:-7 b:100 | "
            "not applied yet\nexit 1\n");
  story.postAndRun();
  EXPECT_EQ(rows(story),
            "alpha | 101 | alpha | 100 | -9 | 1500 / 1000 | no | - | - | 101 n:-9 b:100 | held\n");
  story.writePreferences({{"Enabled", false}, {"AppConfigs", edited}});
  story.postAndRun();
  const std::string answer = story.answer("status");
  EXPECT_TRUE(answer.starts_with("switched off, the daemon runs as 100\n")) << answer;
  EXPECT_EQ(
      rowsOf(answer, 2),
      "alpha | 101 | alpha | 100 > 0 | -9 > 0 | 1500 > 1450 / 1000 > 1450 | yes | - | - | - | "
      "switched off\nexit 1\n");
}

// An older kernel has a tenth of the band; on a newer one, that is another band.
TEST(Status, OfABandThatTheKernelAdapts) {
  const Dictionary settings = with(kAlphaSettings, "JetsamPriority", 210);
  const std::string row =
      "alpha | 101 | alpha | 210 > 21 | -7 | 1500 / 1000 | no | - | - | 101 n:-7 ";
  HeldStory story(settings, {.name = "alpha"}, [](simulated::Device& device) {
    device.kernel.generation = model::KernelGeneration::Xnu4903To8020;
  });
  EXPECT_EQ(rows(story), row + "b:21 | held\n");
  story.device.kernel.generation = model::Kernel{}.generation;
  story.writeTargets({{"alpha", with(settings, "Remark", "x")}});
  story.postAndRun();
  story.device.jetsam_table.records.at(101).effective_band = 21;
  EXPECT_EQ(rows(story), row + "b:210 | overridden by the system\nexit 1\n");
}

TEST(Status, HeldWhateverTheSystemChooses) {
  HeldStory story({{"MemLimitInactive", -1}});
  story.device.jetsam_table.records.at(101).effective_band = 40;
  EXPECT_EQ(rows(story),
            "alpha | 101 | alpha | system > 40 | 0 | system > 1450 / system > 1450 | yes | - | - | "
            "101 n:0 b:0 | held\n");
}

TEST(Status, JudgedByTheStatusFileUnprivileged) {
  HeldStory story(with(kAlphaSettings, "StripManaged", true));
  story.device.kernel.caller_is_privileged = false;
  const std::string row =
      "alpha | 101 | alpha | 100 > - | -7 | 1500 > - / 1000 > - | no > - | - | - | 101 n:-7 ";
  EXPECT_EQ(rows(story), row + "b:100 | held\n");
  story.device.kernel.caller_is_privileged = true;
  story.device.find(101)->overriding_band = 40;
  story.Story::run(1800s);
  story.device.kernel.caller_is_privileged = false;
  EXPECT_EQ(rows(story), row + "b:40 | overridden by the system\nexit 1\n");
}

TEST(Status, HeldWhicheverProcessIsChosen) {
  WatchedAppStory story(with(kAlphaSettings, "CheckInterval", 5));
  const std::string held = " | 100 | -7 | 1500 / 1000 | no | 5s | - | ";
  EXPECT_EQ(rows(story), "org.app | 101 | App" + held + "101 n:-7 b:100 | held\n");
  story.Story::run(5s);
  EXPECT_EQ(rows(story), "org.app | 102 | Helper" + held + "102 n:-7 b:100 | held\n");
}

TEST(Status, ShowsOnlyNamedTargets) {
  ControlStory story;
  EXPECT_EQ(story.answer("status"), "switched off, the daemon does not run\nno targets\nexit 1\n");
  story.writeTargets({{"alpha", kLeftAlone}, {"beta", kLeftAlone}, {"gamma", kLeftAlone}});
  EXPECT_EQ(rowsOf(story.answer("status gamma alpha"), 2),
            "alpha | - | - | - | - | - | - | - | - | - | not running\n"
            "gamma | - | - | - | - | - | - | - | - | - | not running\nexit 1\n");
  EXPECT_EQ(story.answer("status alhpa"),
            "err: vorlatchctl: no target alhpa is configured; did you mean alpha?\nexit 2\n");
}

// The overridden alpha is no finding when only beta is asked for.
TEST(Status, ColoursVerdicts) {
  HeldStory story;
  story.device.find(101)->nice_value = 3;
  story.writeTargets({{"alpha", kAlphaSettings}, {"beta", kLeftAlone}});
  EXPECT_EQ(story.run({"status", "beta"}).status, 0);
  story.has_colour = true;
  EXPECT_EQ(rows(story),
            "alpha | 101 | alpha | 100 | -7 > 3 | 1500 / 1000 | no | - | - | 101 n:-7 b:100 | "
            "\x1b[31moverridden by the system\x1b[0m\n"
            "beta | - | - | - | - | - | - | - | - | - | \x1b[2mnot running\x1b[0m\nexit 1\n");
}

// The nice value is all that a user without privilege is told of the process 101.
TEST(Status, AsJson) {
  HeldStory story({{"NiceValue", -7}, {"JetsamPriority", 100}, {"StripManaged", true}});
  story.writeTargets(dictionary(R"({"alpha": {"NiceValue": -7, "JetsamPriority": 100,
      "MemLimitActive": 1500, "StripManaged": true}, "beta": {"CheckInterval": 30}})"));
  story.postAndRun();
  const auto json = [](const std::string& told) {
    return pretty(R"({"enabled": true, "daemon_pids": [100], "targets": [
    {"target": "alpha", "display_name": null, "verdict": "held", "verdict_text": "held",
     "wanted": {"interval_s": 0, "band": 100, "active_limit_mb": 1500, "inactive_limit_mb": 0,
                "nice": -7, "strip_managed": true},
     "daemon_wrote": {"pid": 101, "nice": -7, "band": 100},
     "now": {"pid": 101, "name": "alpha", )" +
                  told + R"(, "memory": null}, "last_kill": null},
    {"target": "beta", "display_name": null, "verdict": "not-running",
     "verdict_text": "not running",
     "wanted": {"interval_s": 30, "band": 0, "active_limit_mb": 0, "inactive_limit_mb": 0,
                "nice": 0, "strip_managed": null},
     "daemon_wrote": null, "now": null, "last_kill": null}], "findings": []})");
  };
  EXPECT_EQ(story.answer("status --json"), json(R"("band": 100, "nice": -7,
      "active_limit_mb": 1500, "inactive_limit_mb": 1450, "managed": false)"));
  story.device.kernel.caller_is_privileged = false;
  EXPECT_EQ(story.answer("status --json"), json(R"("band": null, "nice": -7,
      "active_limit_mb": null, "inactive_limit_mb": null, "managed": null)"));
}

// The lines as they are sent to a terminal.
std::string drawn(const std::string& picture) {
  std::string text = "\x1b[?7l\x1b[H";
  for (std::size_t begin = 0; begin < picture.size(); begin = picture.find('\n', begin) + 1) {
    text += "\x1b[K" + picture.substr(begin, picture.find('\n', begin) + 1 - begin);
  }
  return text + "\x1b[J\x1b[?7h";
}

TEST(StatusWatch, DrawsOverUntilInterrupted) {
  HeldStory story(kLeftAlone);
  const std::string held = story.answer("status");
  story.is_interrupted = [&story](int waits) {
    if (waits == 2) story.device.find(101)->nice_value = 3;
    return waits == 3;
  };
  story.columns = 200;
  story.rows = 24;
  const std::uint64_t begin_ns = story.device.scheduler.nowNs();
  const std::string watched = story.answer("status --watch --interval 5");
  EXPECT_EQ(story.device.scheduler.nowNs() - begin_ns, 3 * 5'000'000'000U);
  std::string overridden = story.answer("status");
  overridden.erase(overridden.find("exit"));
  EXPECT_EQ(watched, "\x1b[2J" + drawn(held) + drawn(held) + drawn(overridden) + "exit 1\n");
}

// Each of the two looks takes 40 ms, and each wait 100 times as long.
TEST(StatusWatch, TakesAHundredthOfTheTimeAtMost) {
  HeldStory story(kLeftAlone);
  const std::string picture = story.answer("status");
  story.is_interrupted = [](int waits) { return waits == 2; };
  story.device.script({.function = "getpriority", .takes_ns = 40'000'000});
  const std::uint64_t begin_ns = story.device.scheduler.nowNs();
  EXPECT_EQ(story.answer("status --watch --interval 3"), picture + picture);  // into a pipe
  EXPECT_EQ(story.device.scheduler.nowNs() - begin_ns, 8'080'000'000U);
}

TEST(StatusWatch, DrawsNoMoreLinesThanFit) {
  ControlStory story;
  story.writeTargets({{"a", kLeftAlone}, {"b", kLeftAlone}, {"c", kLeftAlone}, {"d", kLeftAlone}});
  story.columns = 40;
  story.rows = 5;
  story.is_interrupted = [](int) { return true; };
  EXPECT_EQ(story.answer("status --watch"),
            "\x1b[2J" +
                drawn("switched on, the daemon does not run\n"
                      "not running  a\nnot running  b\nnot running  c\n") +
                "exit 1\n");
}

// The second line and the third are one line, which the terminal wraps.
TEST(StatusWatch, WrapsNamesThatAreTooLong) {
  ControlStory story;
  story.writeTargets({{"a-name-of-30-characters-in-all", kLeftAlone}, {"b", kLeftAlone}});
  story.columns = 40;
  story.is_interrupted = [](int) { return true; };
  const std::string begin =
      "\x1b[2J\x1b[?7l\x1b[H\x1b[Kswitched on, the daemon does not run\n"
      "\x1b[J\x1b[?7hnot running  a-name-of-30-characters-in-all\x1b[?7l\n";
  const std::string end = "\x1b[J\x1b[?7hexit 1\n";
  EXPECT_EQ(story.answer("status --watch"), begin + "\x1b[Knot running  b\n" + end);
  story.rows = 4;
  EXPECT_EQ(story.answer("status --watch"), begin + end);
}

// A pipe gets numbers, a terminal a bar, too.
TEST(Status, ShowsMemoryAgainstTheLimit) {
  HeldStory story(kAlphaSettings, {.name = "alpha"});
  constexpr std::uint64_t kMegabyte = 1 << 20;
  story.device.find(101)->memory = {
      {.footprint_bytes = 600 * kMegabyte + 1, .peak_bytes = 1200 * kMegabyte}};
  const std::string row = "alpha | 101 | alpha | 100 | -7 | 1500 / 1000 | no | - | ";
  EXPECT_EQ(rows(story), row + "601, peak 1200, 40 % | 101 n:-7 b:100 | held\n");
  story.columns = 200;
  EXPECT_EQ(rows(story), row + "601, peak 1200, 40 % ####...... | 101 n:-7 b:100 | held\n");
  EXPECT_NE(story.answer("status --json").find(R"("memory": {
          "used_bytes": 629145601,
          "peak_bytes": 1258291200,
          "limit_mb": 1500,
          "used_percent": 40
        })"),
            std::string::npos);
}

TEST(Status, IsABlockPerTargetOnANarrowScreen) {
  HeldStory story;
  story.writeTargets({{"alpha", kAlphaSettings}, {"a target of quite a long name", kLeftAlone}});
  story.columns = 48;
  EXPECT_EQ(story.answer("status"),
            "switched on, the daemon runs as 100\n"
            "not running  a target of quite a long name\n"
            "held  alpha\n"
            "  PID 101  NAME alpha  BAND 100  NICE -7\n"
            "  LIMITS MB 1500 / 1000  MANAGED no\n"
            "  DAEMON WROTE 101 n:-7 b:100\n");
}

// A table of 100 columns would cut the verdict.
TEST(Status, IsNoTableThatWouldBeCut) {
  HeldStory story;
  story.writeTargets({{"alpha", kAlphaSettings}, {"a target of quite a long name", kLeftAlone}});
  story.columns = 100;
  EXPECT_TRUE(
      story.answer("status").starts_with("switched on, the daemon runs as 100\n"
                                         "not running  a target of quite a long name\n"
                                         "held  alpha\n"));
  story.columns = 200;
  EXPECT_TRUE(story.answer("status").starts_with("switched on, the daemon runs as 100\nTARGET "));
}

TEST(Status, NamesTargetsThatAreOneProcess) {
  ControlStory story;
  const auto app = story.installApp("App.app", Dictionary{{"CFBundleIdentifier", "org.app"}});
  story.device.launch({.name = "App", .executable_path = app});
  story.writeTargets({{"App", kLeftAlone}, {"org.app", kLeftAlone}});
  const std::string status = story.answer("status");
  EXPECT_NE(status.find("App and org.app are the same process: the daemon applies both, one after "
                        "the other\n"),
            std::string::npos)
      << status;
  EXPECT_TRUE(story.answer("status --json")
                  .ends_with("      \"code\": \"same-process\",\n"
                             "      \"message\": \"App and org.app are the same process: the "
                             "daemon applies both, one after the other\"\n"
                             "    }\n  ]\n}\nexit 1\n"));
}

}  // namespace
}  // namespace vorlatch::tests
