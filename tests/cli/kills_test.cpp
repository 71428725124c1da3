// vorlatchctl kills: whose process was ended, the verdicts, and how they are shown; also the last
// kill in status and show.
#include <sstream>

#include <gtest/gtest.h>

#include "platform/property_list.h"
#include "tests/cli/kill_reports.h"

namespace vorlatch::tests {
namespace {

const std::string kAlphaRow =
    "2026-03-04 04:00:00 | alpha | alpha | 1500 | 1510 | 100 | frontmost | it went over its own "
    "hard limit | - | " +
    kReport + " | over the limit that you set (1500 MB)\n";

TEST(Kills, ShowsATable) {
  KillsStory story;
  story.put(reportWith("[" + kAlphaKilled + R"(, {"name": "other", "reason": "new-one"}])"));
  EXPECT_EQ(
      story.answer("kills"),
      "TIME                 PROCESS  TARGET  MEMORY MB  HIGHEST MB  BAND  STATE      REASON   "
      "                        LOG  REPORT                             VERDICT\n"
      "2026-03-04 04:00:00  alpha    alpha        1500        1510   100  frontmost  it went "
      "over its own hard limit  -    JetsamEvent-2026-03-04-040000.ips  over the limit that you "
      "set (1500 MB)\n"
      "2026-03-04 04:00:00  other    -               -           -     -  -          new-one "
      "                         -    JetsamEvent-2026-03-04-040000.ips  no target\n");
  story.has_colour = true;
  const std::string coloured = story.answer("kills");
  EXPECT_NE(coloured.find("\x1b[33mover the limit"), coloured.npos) << coloured;
  EXPECT_NE(coloured.find("\x1b[2mno target"), coloured.npos) << coloured;
}

TEST(Kills, ShowsBlocksOnNarrowScreens) {
  KillsStory story;
  story.put(reportWith("[" + kAlphaKilled + R"(, {"name": "o\u001b", "reason": "new-one"}])"));
  story.columns = 40;
  EXPECT_EQ(story.answer("kills"), R"(2026-03-04 04:00:00  alpha
  memory MB 1500, highest 1510, band
  100, state frontmost
  it went over its own hard limit
  over the limit that you set (1500 MB)
  JetsamEvent-2026-03-04-040000.ips
2026-03-04 04:00:00  o^[
  memory MB -, highest -, band -, state
  -
  new-one
  JetsamEvent-2026-03-04-040000.ips
)");
}

// One kill of alpha per reason, state and band, and what is said of it.
TEST(Kills, Verdicts) {
  struct Case {
    const char* process;  // without its name
    const char* left;     // other processes
    const char* verdict;
  };
  const std::vector<Case> cases = {
      {R"("reason": "per-process-limit", "priority": 100, "rpages": 95937)", "",
       "over-wanted-limit: over the limit that you set (1500 MB)"},
      {R"("reason": "per-process-limit", "priority": 100, "rpages": 95936)", "",
       "over-other-limit: over a lower limit than the one that you set (1500 MB): not held then"},
      {R"("reason": "highwater", "priority": 40, "lifetimeMax": 64000)", "",
       "over-wanted-limit: over the limit that you set (1000 MB)"},
      {R"("reason": "highwater", "states": ["suspended"], "rpages": 64000)", "",
       "over-wanted-limit: over the limit that you set (1000 MB)"},
      {R"("reason": "highwater", "states": ["foreground"], "rpages": 64000)", "",
       "over-other-limit: over a lower limit than the one that you set (1500 MB): not held then"},
      {R"("reason": "per-process-limit", "priority": 100)", "",
       "unknown: the report does not say enough to judge"},
      {R"("reason": "vm-pageshortage", "priority": 0)", "",
       "band-not-held: memory was short; it stood in band 0, though you asked for 100: not held "
       "then"},
      {R"("reason": "vm-pageshortage", "priority": 100)", R"(, {"name": "l", "priority": 100})",
       "held-to-the-last: memory was short; held at 100, everything below had gone already"},
      {R"("reason": "low-swap", "priority": 100)",
       R"(, {"name": "l", "priority": 90}, {"name": "m", "priority": 180})",
       "held: memory was short; held at 100, though lower bands were not empty"},
      {R"("reason": "low-swap", "priority": 100)", R"(, {"name": "l"}, {"priority": 180})",
       "held: memory was short; held at 100"},
      {R"("reason": "vnode-limit", "priority": 100)", R"(, {"name": "l"})", "held: held at 100"},
      // An older kernel has a tenth of the band.
      {R"("reason": "new-one", "priority": 10)", R"(, {"name": "l", "priority": 21})",
       "band-not-held: it stood in band 10, though you asked for 100: not held then"},
      {R"("reason": "idle-exit", "priority": 0)", "",
       "band-not-held: it stood in band 0, though you asked for 100: not held then"},
      {R"("reason": "vm-pageshortage")", "",
       "unknown: memory was short; the report does not say "
       "enough to judge"}};
  KillsStory story;
  for (const Case& each : cases) {
    story.put(reportWith(std::string(R"([{"name": "alpha", )") + each.process + "}" + each.left +
                         R"(, {"name": "springboard", "priority": 210}])"));
    const auto kill = ReportJson::parse(story.answer("kills --json"))["kills"][0];
    EXPECT_EQ(kill["verdict"].get<std::string>() + ": " + kill["verdict_text"].get<std::string>(),
              each.verdict)
        << each.process;
  }
}

TEST(Kills, VerdictsOnWhatIsLeftToTheSystem) {
  KillsStory story;
  story.writeTargets({{"alpha", kLeftAlone}, {"beta", Dictionary{{"JetsamPriority", 210}}}});
  story.put(reportWith("[" + kAlphaKilled + R"(,
      {"name": "alpha", "reason": "jettisoned", "priority": 5},
      {"name": "beta", "reason": "jettisoned", "priority": 21}])"));
  const std::string unknown =
      " | for another reason, which the system does not say | - | " + kReport + " | ";
  EXPECT_EQ(
      killRows(story),
      "2026-03-04 04:00:00 | alpha | alpha | 1500 | 1510 | 100 | frontmost | it went over its "
      "own hard limit | - | " +
          kReport +
          " | over the system's limit; you set none for it\n"
          "2026-03-04 04:00:00 | alpha | alpha | - | - | 5 | -" +
          unknown +
          "it stood in band 5; you left its band to the system\n"
          "2026-03-04 04:00:00 | beta | beta | - | - | 21 | -" +
          unknown + "it stood in band 21, though you asked for 210: not held then\n");
  // Up to iOS 15, 21 is the band that the daemon sets for 210.
  story.put(reportOf(R"({"name": "beta", "reason": "jettisoned", "priority": 21})"));
  EXPECT_EQ(killRows(story),
            "2026-03-04 04:00:00 | beta | beta | - | - | 21 | -" + unknown + "held at 21\n");
}

TEST(Kills, EveryReasonInPlainWords) {
  KillsStory story;
  for (const char* reason :
       {"per-process-limit", "highwater", "vm-pageshortage", "vnode-limit", "fc-thrashing",
        "proc-thrashing", "vm-compressor-thrashing", "vm-compressor-space-shortage", "low-swap",
        "zone-map-exhaustion", "idle-exit", "long-idle-exit", "disk-space-shortage",
        "sustained-memory-pressure", "vm-pageout-starvation", "jettisoned"}) {
    story.put(reportOf(std::string(R"({"name": "alpha", "reason": ")") + reason + "\"}"));
    const auto kill = ReportJson::parse(story.answer("kills --json"))["kills"][0];
    EXPECT_EQ(kill["reason"], reason);
    EXPECT_NE(kill["reason_text"], reason);
  }
}

TEST(Kills, FindsTargetsByNameAndBundle) {
  KillsStory story;
  const std::string long_name = "com.example.a-name-of-more-than-32-characters";
  const auto running = story.installApp("R.app", Dictionary{{"CFBundleIdentifier", "org.running"}});
  story.device.launch({.name = "Running", .executable_path = running});
  story.device.applications = {story.rootPath("/Apps"), story.rootPath("/missing")};
  for (const std::string bundle : {"/Apps/ONE/Inner.app", "/Apps/Outer.app", "/Apps/Odd.app"}) {
    std::filesystem::create_directories(story.rootPath(bundle));
    const std::string name = std::filesystem::path(bundle).stem().string();
    Dictionary info{{"CFBundleIdentifier", "org." + name}};
    if (name != "Odd") info.emplace("CFBundleExecutable", name + "Program");
    writeAll(story.rootPath(bundle + "/Info.plist"),
             platform::writeXmlPropertyList(plist::Value(info)));
  }
  story.writeTargets({{long_name, kLeftAlone},
                      {"org.Inner", kLeftAlone},
                      {"org.Odd", kLeftAlone},
                      {"org.Outer", kLeftAlone},
                      {"org.running", kLeftAlone},
                      {"Running", kLeftAlone},
                      {"微信微信微信微信微信微信微信微信微信微信微信微信", kLeftAlone}});
  const auto target_of = [&story](const std::string& name) {
    story.put(reportNaming(name));
    return ReportJson::parse(story.answer("kills --json"))["kills"][0]["target"].dump();
  };
  EXPECT_EQ(target_of(long_name.substr(0, 32)), '"' + long_name + '"');
  EXPECT_EQ(target_of(long_name.substr(0, 31)), "null");
  EXPECT_EQ(target_of("微信微信微信微信微信微信微信微信微信微信微信微信"),
            "\"微信微信微信微信微信微信微信微信微信微信微信微信\"");
  EXPECT_EQ(target_of("InnerProgram"), "\"org.Inner\"");
  EXPECT_EQ(target_of("OuterProgram"), "\"org.Outer\"");
  EXPECT_EQ(target_of("Odd"), "null");
  EXPECT_EQ(target_of(""), "null");
  EXPECT_EQ(target_of("Running"), "\"Running\"");
  // Asked for by its other key, the same kill is that target's.
  EXPECT_EQ(killRows(story, " org.running"),
            "2026-03-04 04:00:00 | Running | org.running | - | - | - | - | r | - | " + kReport +
                " | the report does "
                "not say enough to judge\n");
}

TEST(Kills, OfOneTarget) {
  KillsStory story;
  story.put(reportWith("[" + kAlphaKilled + R"(, {"name": "other", "reason": "r"}])"));
  EXPECT_EQ(killRows(story, " alpha"), kAlphaRow);
  EXPECT_EQ(killedNames(story, " other"), "other ");
  EXPECT_EQ(story.answer("kills vorlatchd"), "none of 1 reports names vorlatchd in this time\n");
  EXPECT_EQ(story.answer("kills alhpa"),
            "err: vorlatchctl: no target alhpa is configured, and no report of such a process was "
            "found; did you mean alpha?\nexit 2\n");
}

TEST(Kills, AsJson) {
  KillsStory story;
  story.put(reportWith("[" + kAlphaKilled + R"(, {"name": "other", "reason": "new-one"}])"));
  EXPECT_EQ(story.answer("kills --json"), pretty(R"json({"reports": 1, "kills": [
      {"time": "2026-03-04T04:00:00+08:00", "process": "alpha", "display_name": null,
       "pid": 8, "target": "alpha",
       "memory_bytes": 1572864000, "highest_bytes": 1583349760, "band": 100,
       "states": ["frontmost"], "reason": "per-process-limit",
       "reason_text": "it went over its own hard limit", "verdict": "over-wanted-limit",
       "verdict_text": "over the limit that you set (1500 MB)",
       "report": "{root}/CrashReporter/JetsamEvent-2026-03-04-040000.ips", "log_lines": []},
      {"time": "2026-03-04T04:00:00+08:00", "process": "other", "display_name": null,
       "pid": null, "target": null,
       "memory_bytes": null, "highest_bytes": null, "band": null, "states": [],
       "reason": "new-one", "reason_text": "new-one", "verdict": null, "verdict_text": null,
       "report": "{root}/CrashReporter/JetsamEvent-2026-03-04-040000.ips", "log_lines": []}],
      "problems": []})json"));
}

// The report of New Year's Eve, 23:59:55; alpha's exit was noticed in the new year.
TEST(Kills, ShowsTheLogLinesBesideThem) {
  KillsStory story;
  const std::string exited = "[进程] 目标: alpha 已退出\n";
  writeAll(story.logFile(), "[12-31 23:59:44] " + exited + "[12-31 23:59:45] " + exited +
                                "[01-01 00:00:05] " + exited + "[01-01 00:00:06] " + exited +
                                "[12-31 23:59:55] [进程] 目标: beta 已退出\n" +
                                "[12-31 23:59:55] [配置] 目标: alpha PID: 7\n[odd] " + exited);
  story.put(reportOf(kAlphaKilled, R"({"date": "2025-12-31 23:59:55.63 +0800"})"));
  const auto json = ReportJson::parse(story.answer("kills --json"));
  EXPECT_EQ(json["kills"][0]["log_lines"],
            ReportJson::parse(R"(["[12-31 23:59:45] 目标: alpha 已退出",
      "[01-01 00:00:05] 目标: alpha 已退出"])"));
  EXPECT_EQ(
      killRows(story),
      "2025-12-31 23:59:55 | alpha | alpha | 1500 | 1510 | 100 | frontmost | it went over its "
      "own hard limit | [12-31 23:59:45] 目标: alpha 已退出; [01-01 00:00:05] 目标: alpha "
      "已退出 | " +
          kReport + " | over the limit that you set (1500 MB)\n");
}

TEST(Kills, TheLastInStatusAndShow) {
  KillsStory story;
  const std::string before = story.answer("show alpha");
  EXPECT_EQ(ReportJson::parse(story.answer("status --json"))["targets"][0]["last_kill"], nullptr);
  story.put(reportOf(kAlphaKilled));
  story.put(reportOf(R"({"name": "alpha", "reason": "highwater", "priority": 30})",
                     R"({"date": "2026-03-04 05:00:00 +0800"})"),
            "JetsamEvent-2026-03-04-050000.ips");
  const std::string end = "101 n:-7 b:100 | 2026-03-04 05:00:00 highwater | held\n";
  const std::string shown = rowsOf(story.answer("status"), 2);
  EXPECT_TRUE(shown.ends_with(end)) << shown;
  EXPECT_EQ(story.answer("show alpha"),
            before +
                "last kill: 2026-03-04 05:00:00, over its soft limit when memory was short: the "
                "report does not say enough to judge\n");
  const auto kill = ReportJson::parse(story.answer("kills --json"))["kills"][0];
  auto last = ReportJson::parse(story.answer("status --json"))["targets"][0]["last_kill"];
  EXPECT_EQ(last["reason"], "highwater");
  last["log_lines"] = kill["log_lines"];
  EXPECT_EQ(last, kill);
}

// What a report says is read once, and again when it changes.
TEST(Kills, WatchedInStatus) {
  KillsStory story;
  story.put(reportOf(kAlphaKilled));
  story.is_interrupted = [&story](int waits) {
    if (waits == 2) story.put(reportOf(R"({"name": "alpha", "reason": "low-swap", "pid": 9})"));
    if (waits == 3) std::filesystem::remove(story.reportPath("JetsamEvent-2026-03-04-040000.ips"));
    return waits == 4;
  };
  std::istringstream looks(story.answer("status --watch --json"));
  std::string reasons;
  for (std::string look; std::getline(looks, look);) {
    const auto kill = ReportJson::parse(look)["targets"][0]["last_kill"];
    reasons += (kill.is_null() ? "none" : kill["reason"].get<std::string>()) + " ";
  }
  EXPECT_EQ(reasons, "per-process-limit per-process-limit low-swap none ");
}

}  // namespace
}  // namespace vorlatch::tests
