// vorlatchctl kills: which reports it finds, from which time, and what it says of damaged ones.
#include "tests/cli/kill_reports.h"

#include <sys/stat.h>

#include <gtest/gtest.h>

namespace vorlatch::tests {
namespace {

// The clock shows 2026-03-04 05:06:07.
TEST(KillReports, SinceATime) {
  KillsStory story;
  const auto put = [&story](const std::string& name, const std::string& date,
                            const std::string& file) {
    story.put(reportOf(R"({"name": ")" + name + R"(", "reason": "r"})",
                       R"({"date": ")" + date + R"(.00 +0800"})"),
              "JetsamEvent-" + file + ".ips");
  };
  put("hour", "2026-03-04 04:06:08", "2026-03-04-040608");
  put("day", "2026-03-03 12:00:00", "2026-03-03-120000");
  put("month", "2026-02-03 12:00:00", "2026-02-03-120000");
  const std::vector<std::pair<const char*, const char*>> cases = {
      {"", "hour day month "},
      {"1h", "hour "},
      {"60m", "hour "},
      {"59m", ""},
      {"1d", "hour day "},
      {"999999d", "hour day month "},
      {"2026-03-04", "hour "},
      {"2026-03-03 12:00", "hour day "},
      {"2026-03-03T12:01", "hour "},
      {"2026-03-03 12:00:00", "hour day "},
      {"2027-01-01", ""},
      {"2026-02-01", "hour day month "}};
  for (const auto& [since, names] : cases) {
    Lines words{"kills", "--json"};
    if (*since != '\0') words = words + Lines{"--since", since};
    std::string found;
    const auto json = ReportJson::parse(story.answer(words));
    for (const auto& kill : json["kills"]) {
      found += kill["process"].get<std::string>() + " ";
    }
    EXPECT_EQ(found, names) << since;
  }
  for (const char* wrong : {"h", "2", "2w", "-2h", "2 h", "1000000000d", "yesterday", "2026-02-30",
                            "2026-03-03 25:00", "2026-3-3", "2026-03-03 12"}) {
    EXPECT_EQ(
        story.answer(Lines{"kills", "--since", wrong}),
        "err: vorlatchctl: --since takes 30m, 2h, 3d, 2026-11-20 or \"2026-11-20 18:00\", not "
        "\"" +
            std::string(wrong) + "\"\nexit 2\n");
  }
  EXPECT_EQ(story.answer("kills --since 5m"),
            "none of 3 reports names a process that was ended in this time\n");
}

// Reports with endings, in subfolders, and as copies; other files are none.
TEST(KillReports, FindsReports) {
  KillsStory story;
  const std::string day = "JetsamEvent-2026-03-0";
  story.put(reportNaming("nine"), "Retired/" + day + "9-040000.ips.ca.synced");
  story.put(reportNaming("eight"), day + "8-040000.ips.synced");
  story.put(reportNaming("seven"), day + "7-040000.ips");
  story.put(reportNaming("seven"), "Retired/" + day + "7-040000.ips.synced");
  story.put(reportNaming("six"), "JetsamEvent-.ips");
  for (const char* none :
       {"Retired/Deeper/JetsamEvent-2026-03-01-040000.ips", "JetsamEvent-2026-03-02-040000.txt",
        "JetsamEvent-2026-03-02-040000.ipsx", "Other-2026-03-03-040000.ips",
        ".JetsamEvent-2026-03-04-040000.ips", ".ips", "JetsamEvent"}) {
    story.put(reportNaming("none"), none);
  }
  EXPECT_EQ(killedNames(story), "nine eight seven six ");
}

// A report without a time has that of its name.
TEST(KillReports, TakesTheTimeOfTheName) {
  KillsStory story;
  story.put(
      "\n"
      R"({"processes": [{"name": "a", "reason": "r"}]})",
      "JetsamEvent-2026-03-04-050000.ips");
  story.put(
      "\n"
      R"({"processes": [{"name": "b", "reason": "r"}]})",
      "JetsamEvent-x.ips");
  EXPECT_EQ(killRows(story),
            "2026-03-04 05:00:00 | a | - | - | - | - | - | r | - | "
            "JetsamEvent-2026-03-04-050000.ips | no target\n"
            "- | b | - | - | - | - | - | r | - | JetsamEvent-x.ips | no target\n");
  EXPECT_EQ(killedNames(story, " --since 1d"), "a ");
}

TEST(KillReports, SaysWhatItCouldNotRead) {
  KillsStory story;
  const auto name = [](int i) { return "JetsamEvent-2026-03-0" + std::to_string(i) + ".ips"; };
  story.put(reportNaming("whole"), name(9));
  const std::string report = reportNaming("cut");
  story.put(report.substr(0, report.rfind(']')), name(8));
  story.put("text", name(7));
  EXPECT_EQ(killedNames(story), "whole cut ");
  const std::string cut = "{root}/CrashReporter/" + name(8) +
                          " is cut short or damaged; what comes after that is missing\n";
  const std::string text =
      "{root}/CrashReporter/" + name(7) + " is no report, or a damaged one; it is left out\n";
  const std::string answer = story.answer("kills");
  EXPECT_TRUE(answer.ends_with(cut + text)) << answer;

  std::filesystem::create_symlink(story.reportPath(name(9)), story.reportPath(name(1)));
  ASSERT_EQ(mkfifo(story.reportPath(name(2)).c_str(), 0666), 0);
  std::filesystem::create_directory(story.reportPath(name(3)));
  story.put(std::string(std::size_t{4} * 1024 * 1024, ' ') + " ", name(4));
  std::filesystem::create_symlink("/dev/zero", story.reportPath(name(5)));
  std::filesystem::create_directory_symlink(story.device.crash_reports, story.reportPath("Linked"));
  const auto json = ReportJson::parse(story.answer("kills --json"));
  EXPECT_EQ(json["kills"].size(), 2U);
  std::string problems;
  for (const auto& problem : json["problems"]) {
    const auto path = problem["report"].get<std::string>();
    problems += path.substr(path.size() - 5, 1) + problem["code"].get<std::string>() + " ";
  }
  EXPECT_EQ(problems,
            "8incomplete 7no-report 5unreadable 4unreadable 3unreadable 2unreadable 1unreadable ");
  const std::string many = story.answer("kills");
  EXPECT_NE(many.find(cut + text + "{root}/CrashReporter/" + name(5) + " cannot be read: "),
            many.npos);
  EXPECT_TRUE(many.ends_with(
      "root to read all reports\n4 more reports have such problems; kills --json names them all\n"))
      << many;
}

TEST(KillReports, WithoutReports) {
  KillsStory story;
  const auto none = [&story] {
    return "there are no reports in " + story.device.crash_reports +
           ": the system has ended nothing for its memory, or has removed them\n";
  };
  EXPECT_EQ(story.run({"kills"}).out, none());
  EXPECT_EQ(story.answer("kills --json"), pretty(R"({"reports": 0, "kills": [], "problems": []})"));
  std::filesystem::remove(story.device.crash_reports);
  EXPECT_EQ(story.run({"kills"}).out, none());
  writeAll(story.device.crash_reports, "");
  EXPECT_EQ(story.answer("kills"),
            "err: vorlatchctl: {root}/CrashReporter is no folder; move it away, so that the system "
            "can write its reports there\nexit 3\n");
  std::filesystem::remove(story.device.crash_reports);
  std::filesystem::create_symlink("CrashReporter", story.device.crash_reports);
  EXPECT_EQ(story.answer("kills"),
            "err: vorlatchctl: {root}/CrashReporter: Too many levels of symbolic links\nexit 3\n");
}

TEST(KillReports, Of500Reports) {
  KillsStory story;
  for (int i = 0; i < 500; ++i) {
    const std::string number = std::to_string(1000 + i).substr(1);
    story.put(reportNaming("p" + number), "JetsamEvent-2026-03-04-000" + number + ".ips");
  }
  story.put(reportOf(kAlphaKilled), "JetsamEvent-2026-03-04-000480.ips");
  const std::string names = killedNames(story);
  EXPECT_EQ(names.size(), 499 * 5 + 6U);
  EXPECT_TRUE(names.starts_with("p499 p498 ")) << names;
  // status and show look at the newest 20.
  const auto last_kill = [&story] {
    return ReportJson::parse(story.answer("show alpha --json"))["last_kill"];
  };
  EXPECT_EQ(last_kill()["pid"], 8);
  story.put(reportNaming("later"), "JetsamEvent-2026-03-04-000500.ips");
  EXPECT_EQ(last_kill(), nullptr);
}

}  // namespace
}  // namespace vorlatch::tests
