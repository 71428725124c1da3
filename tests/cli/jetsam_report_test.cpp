// Reading one report of ended processes: of every version of the system, damaged, and hostile.
#include "control/jetsam_report.h"

#include <gtest/gtest.h>

#include "tests/cli/kill_reports.h"

namespace vorlatch::tests {
namespace {

using control::jetsamReportIn;
using control::ReportedProcess;

std::string shown(const std::optional<std::int32_t>& number) {
  return number ? std::to_string(*number) : "-";
}

std::string described(const ReportedProcess& process) {
  std::string text = process.name + " " + process.reason + " pid " + shown(process.pid) + " band " +
                     shown(process.band);
  for (const std::string& state : process.states) text += " " + state;
  for (const auto& bytes_used : {process.memory_bytes, process.highest_bytes}) {
    text += " " + (bytes_used ? std::to_string(*bytes_used) : "-");
  }
  return text;
}

// Describes all that was read, or "none".
std::string readFrom(const std::string& bytes,
                     control::WantedProcesses wanted = control::WantedProcesses::Killed) {
  const auto report = jetsamReportIn(bytes, wanted);
  if (!report) return "none";
  std::string text = report->time ? control::isoTextOf(*report->time) : "no time";
  text += " " + report->incident + ", lowest left " + shown(report->lowest_band_left);
  if (report->has_tenfold_bands) text += ", tenfold";
  if (!report->is_whole) text += ", not whole";
  for (const ReportedProcess& process : report->killed) text += "\n" + described(process);
  if (wanted == control::WantedProcesses::Killed) {
    EXPECT_TRUE(report->left.empty());
    return text;
  }
  text += ", free " + (report->free_bytes ? std::to_string(*report->free_bytes) : "-");
  for (const ReportedProcess& process : report->left) text += "\nleft: " + described(process);
  return text;
}

const std::string kTime = "2026-03-04T04:00:00+08:00 A, lowest left ";

TEST(JetsamReport, OfIOS16) {
  EXPECT_EQ(readFrom(reportWith(R"([
      {"uuid": "u", "states": ["daemon", "idle"], "lifetimeMax": 90, "rpages": 80, "priority": 40,
       "physicalPages": {"internal": [1, 2]}, "freeze_skip_reason:": "none", "pid": 7,
       "cpuTime": 0.5, "name": "left"},
      {"pid": 0, "name": "kernel_task", "priority": 0},
      {"states": ["frontmost", "resume"], "killDelta": 4680, "genCount": 0, "age": 123456789012,
       "lifetimeMax": 100, "reason": "per-process-limit", "rpages": 96000, "priority": 100,
       "pid": 8, "name": "alpha"}])")),
            kTime +
                "40, tenfold\nalpha per-process-limit pid 8 band 100 frontmost resume "
                "1572864000 1572864000");
}

// Old reports have pages of 4 kB and no bands.
TEST(JetsamReport, OfIOS13) {
  EXPECT_EQ(readFrom(reportWith(R"([{"name": "left", "rpages": 3},
      {"reason": "vm-pageshortage", "rpages": 10, "lifetimeMax": 20, "name": "alpha"}])",
                                R"({"memoryStatus": {"pageSize": 4096}})")),
            kTime + "-\nalpha vm-pageshortage pid - band - 40960 81920");
}

// Also when the size of a page comes behind the processes.
TEST(JetsamReport, AllProcesses) {
  const auto read = [](const std::string& report) {
    return readFrom(report, control::WantedProcesses::All);
  };
  const std::string processes = R"([{"name": "l", "states": ["idle"], "rpages": 3, "pid": 4},
      {"name": "a", "reason": "r", "rpages": 2}, {"pid": 0, "priority": 0, "lifetimeMax": 1}, {}])";
  EXPECT_EQ(read(kReportHeading + R"({"date": "2026-03-04 04:00:00 +0800", "processes": )" +
                 processes + R"(, "memoryStatus": {"memoryPages": {"active": 1, "free": 5,
                 "x": {"free": 6}}, "free": 7, "pageSize": 4096}, "free": 8})"),
            kTime +
                "-\na r pid - band - 8192 8192, free 20480\nleft: l  pid 4 band - idle 12288 12288"
                "\nleft:   pid 0 band 0 - 4096\nleft:   pid - band - - -");
  for (const char* unknown : {"{}", R"({"memoryPages": [{"free": 5}], "pageSize": 4096})",
                              R"({"memoryPages": {"free": "5"}, "pageSize": 4096})",
                              R"({"memoryPages": {"free": -1}, "pageSize": 4096})",
                              R"({"memoryPages": {"free": 4294967297}, "pageSize": 4096})",
                              R"({"memoryPages": {"free": 5}})"}) {
    EXPECT_EQ(read(reportWith("[]", R"({"memoryStatus": )" + std::string(unknown) + "}")),
              kTime + "-, free -")
        << unknown;
  }
  // What was left counts only with its end.
  const std::string all = reportWith(R"([{"name": "l"}, {"name": "m"}])");
  EXPECT_EQ(read(all.substr(0, all.rfind("\"m\"") + 4)),
            kTime + "-, not whole, free 114688\nleft: l  pid - band - - -");
}

TEST(JetsamReport, SeveralKilled) {
  EXPECT_EQ(readFrom(reportWith(R"([{"name": "a", "reason": "highwater", "priority": 3},
      {"name": "left", "priority": 10}, {"name": "b", "reason": "new-one", "priority": 0}])")),
            kTime + "10\na highwater pid - band 3 - -\nb new-one pid - band 0 - -");
}

TEST(JetsamReport, WithoutMostKeys) {
  EXPECT_EQ(readFrom("{}\n{}"), "no time , lowest left -");
  EXPECT_EQ(readFrom(kReportHeading + R"({"processes": [{"reason": "x"}, {}]})"),
            "2026-03-04T04:00:00+08:00 A, lowest left -\n x pid - band - - -");
  // Without its first line it still is a report.
  EXPECT_EQ(readFrom("\n"
                     R"({"date": "2025-05-28 01:35:47 -0530", "incident": "B"})"),
            "2025-05-28T01:35:47-05:30 B, lowest left -");
  for (const char* none : {"", "\n", "{}", "{}\n", "{}\n[]", "{}\n7", "text\ntext"}) {
    EXPECT_EQ(readFrom(none), "none") << none;
  }
}

// Whatever is missing, the report says that it is not whole, and claims no lowest band.
TEST(JetsamReport, CutShortAnywhere) {
  const std::string killed = R"({"name": "a", "reason": "highwater", "priority": 3})";
  const std::string all =
      reportWith("[" + killed + R"(, {"name": "left", "priority": 10}])", R"({"pad": [1, "x"]})");
  const std::string whole = readFrom(all);
  EXPECT_EQ(whole, kTime + "10\na highwater pid - band 3 - -");
  const std::size_t end = all.rfind('}');
  std::size_t with_kill = 0;
  for (std::size_t length = 0; length <= end; ++length) {
    const std::string part = readFrom(all.substr(0, length));
    if (part == "none") continue;
    EXPECT_NE(part.find(" left -, not whole"), part.npos) << length << " bytes: " << part;
    if (part.find("\na highwater") != part.npos) ++with_kill;
  }
  // From the quote behind the reason on.
  EXPECT_EQ(with_kill, end + 1 - (all.find("highwater\"") + 10));
}

TEST(JetsamReport, NestedTooDeeply) {
  const auto nested = [](std::size_t levels) {
    return reportWith(R"([{"name": "a", "reason": "r", "x": )" + std::string(levels, '[') +
                      std::string(levels, ']') + R"(}, {"name": "b", "reason": "r"}])");
  };
  const std::string a = "\na r pid - band - - -";
  // The report, its processes and the process are three levels.
  EXPECT_EQ(readFrom(nested(13)), kTime + "-" + a + "\nb r pid - band - - -");
  EXPECT_EQ(readFrom(nested(14)), kTime + "-, not whole" + a);
  EXPECT_EQ(readFrom("{}\n{\"x\":" + std::string(3'000'000, '[')),
            "no time , lowest left -, not whole");
  EXPECT_EQ(readFrom("{\"x\":" + std::string(3'000'000, '{') + "\n{}"), "no time , lowest left -");
}

TEST(JetsamReport, CutsLongTexts) {
  std::string name(255, 'n');
  EXPECT_EQ(readFrom(reportOf(R"({"name": ")" + name + R"(é and more", "reason": "r"})")),
            kTime + "-\n" + name + " r pid - band - - -");
  std::string states = "\"s\"";
  for (int i = 1; i < 20; ++i) states += ", \"s\"";
  EXPECT_EQ(readFrom(reportOf(R"({"name": "a", "reason": "r", "states": [)" + states + "]}")),
            kTime + "-\na r pid - band - s s s s s s s s s s s s s s s s - -");
}

TEST(JetsamReport, IgnoresNumbersBeyondRange) {
  for (const char* number : {"-1", "99999999999999", "18446744073709551615", "1e30", "0.5",
                             "36893488147419103232", "-9223372036854775808"}) {
    const std::string process = std::string(R"({"name": "a", "reason": "r", "pid": )") + number +
                                R"(, "priority": )" + number + R"(, "rpages": )" + number +
                                R"(, "lifetimeMax": )" + number + "}";
    EXPECT_EQ(readFrom(reportOf(process)), kTime + "-\na r pid - band - - -") << number;
    const std::string page = std::string(R"({"memoryStatus": {"pageSize": )") + number + "}}";
    EXPECT_EQ(readFrom(reportOf(R"({"name": "a", "reason": "r", "rpages": 1})", page)),
              kTime + "-\na r pid - band - - -")
        << number;
  }
  EXPECT_EQ(readFrom(reportOf(R"({"name": "a", "reason": "r", "rpages": 4294967296})",
                              R"({"memoryStatus": {"pageSize": 1048576}})")),
            kTime + "-\na r pid - band - 4503599627370496 4503599627370496");
  // The parser gives up at this number.
  EXPECT_EQ(
      readFrom(kReportHeading + R"({"processes": [{"name": "a", "reason": "r", "x": 1e999}]})"),
      "2026-03-04T04:00:00+08:00 A, lowest left -, not whole\na r pid - band - - -");
}

TEST(JetsamReport, IgnoresWrongTypes) {
  for (const char* value : {"null", "true", "[\"a\"]", "{\"name\": \"b\"}", "[[1], {}]"}) {
    const std::string wrong = value;
    EXPECT_EQ(readFrom(reportOf(R"({"reason": "r", "name": )" + wrong + R"(, "pid": )" + wrong +
                                    R"(, "priority": "7", "rpages": )" + wrong + "}",
                                R"({"memoryStatus": )" + wrong + "}")),
              kTime + "-\n r pid - band - - -")
        << value;
    EXPECT_EQ(readFrom(reportWith(R"([{"name": "a", "reason": )" + wrong + "}, 7, \"x\", [{}]]",
                                  R"({"date": )" + wrong + R"(, "incident": 5})")),
              kTime + "-")
        << value;
    EXPECT_EQ(readFrom(reportWith(wrong)), kTime + "-") << value;
  }
}

TEST(JetsamReport, StopsAfter4000Processes) {
  const auto many = [](int count) {
    std::string processes = R"([{"name": "a", "reason": "r", "priority": 1})";
    for (int i = 1; i < count; ++i) processes += R"(,{"priority": 2})";
    return readFrom(reportWith(processes + "]"));
  };
  EXPECT_EQ(many(4000), kTime + "2\na r pid - band 1 - -");
  EXPECT_EQ(many(4001), kTime + "-, not whole\na r pid - band 1 - -");
}

TEST(Moment, OfReports) {
  const std::vector<std::pair<const char*, const char*>> cases = {
      {"2025-05-28 01:35:47.63 -0500", "2025-05-28T01:35:47-05:00"},
      {"2024-02-29 23:59:60 +0000", "2024-03-01T00:00:00+00:00"},
      {"1970-01-01 00:00:00 +1400", "1970-01-01T00:00:00+14:00"},
      {"2026-03-04 05:06:07", "2026-03-04T05:06:07+08:00"},  // in the local zone
      {"2025-02-29 00:00:00 +0000", ""},
      {"2025-13-01 00:00:00 +0000", ""},
      {"2025-01-01 24:00:00 +0000", ""},
      {"2025-01-01 00:00:00 +0000 and more", ""},
      {"2025-01-01 00:00:00 0000", ""},
      {"2025-01-01T00:00:00Z", ""},
      {"99999-01-01 00:00:00 +0000", ""},
      {"", ""}};
  setenv("TZ", "UTC-8", 1);
  for (const auto& [text, iso] : cases) {
    const auto moment = control::momentIn(text);
    EXPECT_EQ(moment ? control::isoTextOf(*moment) : "", iso) << text;
  }
  // On the day on which summer time begins.
  setenv("TZ", "EST5EDT,M3.2.0,M11.1.0", 1);
  EXPECT_EQ(control::isoTextOf(*control::momentIn("2026-03-08 01:59:59")),
            "2026-03-08T01:59:59-05:00");
  EXPECT_EQ(control::isoTextOf(*control::momentIn("2026-03-08 03:00:00")),
            "2026-03-08T03:00:00-04:00");
}

}  // namespace
}  // namespace vorlatch::tests
