// vorlatchctl kills --report: every process of one report.
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "tests/cli/kill_reports.h"

namespace vorlatch::tests {
namespace {

// Processes p1, p2 and so on, of which each has so many MB as its number says.
std::string processesUpTo(int count, const std::string& ended = "") {
  std::string processes;
  for (int i = 1; i <= count; ++i) {
    processes += R"(,{"name": "p)" + std::to_string(i) + R"(", "rpages": )" +
                 std::to_string(i * 64) + R"(, "priority": 40)" + ended + "}";
  }
  return processes;
}

ReportJson wholeReport(ControlStory& story, const std::string& name = kReport) {
  return ReportJson::parse(story.answer("kills --json --report " + name));
}

TEST(ReportView, ShowsATableLargestFirst) {
  KillsStory story;
  story.put(reportWith(R"([{"name": "kernel_task", "pid": 0},
      {"name": "kbd", "rpages": 1, "priority": 40, "states": ["daemon", "idle"]}, )" +
                       kAlphaKilled + "]"));
  EXPECT_EQ(story.answer("kills --report " + kReport),
            "2026-03-04 04:00:00: 3 processes used 1501 MB, 1 MB were free\n"
            "PROCESS      TARGET  MEMORY MB  HIGHEST MB  BAND  STATE         REASON\n"
            "alpha        alpha        1500        1510   100  frontmost     it went over its own "
            "hard limit\n"
            "kbd          -               1           1    40  daemon, idle  -\n"
            "kernel_task  -               -           -     -  -             -\n");
  story.has_colour = true;
  const std::string coloured = story.answer("kills --report " + kReport);
  EXPECT_NE(coloured.find("\x1b[31mit went over"), coloured.npos) << coloured;
  story.has_colour = false;
  story.put(reportWith("[]", R"({"memoryStatus": {"pageSize": 16384}})"));
  EXPECT_EQ(story.answer("kills --report " + kReport),
            "2026-03-04 04:00:00: 0 processes used 0 MB\n");
}

// What was ended is shown though others are larger.
TEST(ReportView, SumsUpTheRest) {
  KillsStory story;
  story.put(reportWith(R"([{"name": "small", "reason": "r", "rpages": 1})" + processesUpTo(30) +
                       R"(, {"name": "smaller"}])"));
  const std::string answer = story.answer("kills --report " + kReport);
  EXPECT_TRUE(answer.starts_with("2026-03-04 04:00:00: 32 processes used 466 MB, 1 MB were free\n"))
      << answer;
  EXPECT_TRUE(answer.ends_with("11 more processes used 55 MB\n")) << answer;
  const ReportJson json = wholeReport(story);
  std::string names;
  for (const auto& row : json["processes"]) {
    names += row["process"].get<std::string>() + " ";
  }
  EXPECT_EQ(names,
            "p30 p29 p28 p27 p26 p25 p24 p23 p22 p21 p20 p19 p18 p17 p16 p15 p14 p13 p12 p11 "
            "small ");
}

TEST(ReportView, ShowsAtMost100) {
  KillsStory story;
  story.put(reportWith("[" + processesUpTo(150, R"(, "reason": "r")").substr(1) + "]"));
  const ReportJson json = wholeReport(story);
  EXPECT_EQ(json["processes"].size(), 100U);
  EXPECT_EQ(json["processes"][99]["process"], "p51");
  EXPECT_EQ(json["rest"], ReportJson::parse(R"({"processes": 50, "memory_bytes": 1336934400})"));
}

TEST(ReportView, AsJson) {
  KillsStory story;
  story.put(reportWith(R"([{"name": "kbd", "pid": 4, "rpages": 1, "priority": 40}, )" +
                       kAlphaKilled + processesUpTo(20) + "]"));
  ReportJson json = wholeReport(story);
  EXPECT_EQ(json["processes"].size(), 20U);
  const ReportJson kill = ReportJson::parse(story.answer("kills --json"))["kills"][0];
  const ReportJson alpha = json["processes"][0];
  for (const auto& [key, value] : alpha.items()) EXPECT_EQ(value, kill[key]) << key;
  EXPECT_EQ(alpha.size(), 10U);
  EXPECT_EQ(json["processes"][1],
            ReportJson::parse(R"({"process": "p20", "display_name": null, "pid": null,
      "target": null, "memory_bytes": 20971520, "highest_bytes": 20971520, "band": 40,
      "states": [], "reason": null, "reason_text": null})"));
  json.erase("processes");
  EXPECT_EQ(json, ReportJson::parse(R"({"schema": 1,
      "report": "{root}/CrashReporter/JetsamEvent-2026-03-04-040000.ips",
      "time": "2026-03-04T04:00:00+08:00", "free_bytes": 114688,
      "all": {"processes": 22, "memory_bytes": 1793081344},
      "rest": {"processes": 2, "memory_bytes": 1064960}, "problems": []})"));
}

// Its name, or its path as kills names it, where two have the same name.
TEST(ReportView, TakesNamesOfReportsAlone) {
  KillsStory story;
  const std::string copy = "Retired/" + kReport;
  story.put(reportNaming("first"));
  story.put(reportNaming("second"), copy);
  story.put(reportNaming("other"), "other.ips");
  writeAll(story.rootPath("/" + kReport), reportNaming("outside"));
  const auto first_of = [&story](const std::string& name) {
    return wholeReport(story, name)["processes"][0]["process"].get<std::string>();
  };
  EXPECT_EQ(first_of(kReport), "second");
  EXPECT_EQ(first_of(story.reportPath(kReport)), "first");
  EXPECT_EQ(first_of(story.reportPath(copy)), "second");
  for (const std::string& name :
       {std::string("other.ips"), copy, "../" + kReport, "CrashReporter/../" + kReport,
        story.rootPath("/" + kReport), story.reportPath("../" + kReport),
        story.reportPath("./" + kReport), std::string("JetsamEvent-2026-03-04-040000"),
        std::string()}) {
    const Output output = story.run({"kills", "--report", name});
    EXPECT_EQ(output.status, 2) << name;
    EXPECT_TRUE(output.err.starts_with("vorlatchctl: there is no report " + name +
                                       "; vorlatchctl kills names the reports"))
        << output.err;
  }
  EXPECT_EQ(story.answer("kills --report JetsamEvent-2026-03-04-040001.ips"),
            "err: vorlatchctl: there is no report JetsamEvent-2026-03-04-040001.ips; vorlatchctl "
            "kills names the reports; did you mean " +
                kReport + "?\nexit 2\n");
}

TEST(ReportView, OfReportsThatCannotBeRead) {
  KillsStory story;
  const std::string name = kReport;
  const std::string path = "{root}/CrashReporter/" + name;
  const std::string report = reportNaming("alpha");
  story.put(report.substr(0, report.rfind(']')));
  const std::string cut = story.answer("kills --report " + name);
  EXPECT_NE(cut.find("alpha    alpha"), cut.npos) << cut;
  EXPECT_TRUE(cut.ends_with(path + " is cut short or damaged; what comes after that is missing\n"))
      << cut;
  EXPECT_EQ(wholeReport(story)["problems"][0]["code"], "incomplete");
  story.put("text");
  EXPECT_EQ(
      story.answer("kills --report " + name),
      "err: vorlatchctl: " + path + " is no report, or a damaged one; it is left out\nexit 3\n");
  std::filesystem::remove(story.reportPath(name));
  writeAll(story.rootPath("/secret"), report);
  std::filesystem::create_symlink(story.rootPath("/secret"), story.reportPath(name));
  EXPECT_TRUE(story.answer("kills --report " + name)
                  .starts_with("err: vorlatchctl: " + path + " cannot be read: it is a link"));
  std::filesystem::remove_all(story.device.crash_reports);
  EXPECT_EQ(story.run({"kills", "--report", name}).status, 2);
  writeAll(story.device.crash_reports, "");
  EXPECT_EQ(story.run({"kills", "--report", name}).status, 3);
}

TEST(ReportView, IsAskedForAlone) {
  KillsStory story;
  story.put(reportOf(kAlphaKilled));
  for (const char* more : {" alpha", " --since 3d"}) {
    EXPECT_EQ(story.answer("kills --report " + kReport + more),
              "err: vorlatchctl: kills takes --report without a target and without --since\n"
              "exit 2\n");
  }
}

TEST(ReportView, CompletesNames) {
  KillsStory story;
  story.put(reportOf(kAlphaKilled));
  story.put(reportOf(kAlphaKilled), "Retired/JetsamEvent-2026-03-05-040000.ips.synced");
  EXPECT_EQ(story.run({"__complete", "--", "kills", "--report", "Jet"}).out,
            "JetsamEvent-2026-03-05-040000.ips.synced\n" + kReport + "\n");
  std::filesystem::remove_all(story.device.crash_reports);
  writeAll(story.device.crash_reports, "");
  EXPECT_EQ(story.run({"__complete", "--", "kills", "--report", ""}).out, "");
}

}  // namespace
}  // namespace vorlatch::tests
