// The installed vorlatchctl beside the installed daemon, on real processes.
#include <algorithm>
#include <csignal>
#include <filesystem>

#include <gtest/gtest.h>

#include "tests/blackbox/expected_log.h"
#include "tests/blackbox/installation.h"
#include "tests/blackbox/target.h"
#include "tests/support/files.h"
#include "tests/support/text.h"

namespace vorlatch {
namespace {

using tests::text;

// Rows as vorlatchctl prints them into a pipe: columns of ASCII text, of which those named hold
// numbers and stand to the right.
std::string rowsOf(const std::vector<Lines>& rows, const Lines& numeric) {
  std::string all;
  for (const Lines& row : rows) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      std::size_t width = 0;
      for (const Lines& other : rows) width = std::max(width, other[i].size());
      const std::string padding(width - row[i].size(), ' ');
      const bool is_numeric = std::count(numeric.begin(), numeric.end(), rows[0][i]) != 0;
      line += (is_numeric ? padding + row[i] : row[i] + padding) + "  ";
    }
    all += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
  }
  return all;
}

// A daemon at work, and a target of it at nice -7 and band 160.
class PrivilegedControl : public testing::Test {
 protected:
  PrivilegedControl() {
    installation_.start();
    EXPECT_EQ(control({"set", program_.key, "JetsamPriority=home", "NiceValue=-7"}),
              (Output{0,
                      text("AppConfigs / ", program_.key, " / JetsamPriority: (none) -> 160\n",
                           "AppConfigs / ", program_.key, " / NiceValue: (none) -> -7\n"),
                      ""}));
    EXPECT_TRUE(installation_.waitForLog(0, doneLine(program_.key, target_.pid())));
    preferences_ = tests::readAll(installation_.preferencesPath());
  }

  [[nodiscard]] Output control(const Lines& arguments) const {
    return installation_.control({.arguments = arguments});
  }

  // What `status` prints of the target, behind its first line.
  [[nodiscard]] std::string statusWith(const Lines& of_the_kernel) const {
    const std::string pid = std::to_string(target_.pid());
    Lines row{program_.key, pid, program_.key, of_the_kernel[0], "-7"};
    row = row + Lines{of_the_kernel[1], of_the_kernel[2], "-", pid + " n:-7 b:160", "held"};
    Lines numeric{"PID", "NICE"};
    if (of_the_kernel[0] == "160") numeric.emplace_back("BAND");
    return rowsOf({{"TARGET", "PID", "NAME", "BAND", "NICE", "LIMITS MB", "MANAGED", "TIMER",
                    "DAEMON WROTE", "VERDICT"},
                   row},
                  numeric);
  }

  Installation installation_;
  const Program program_ = programNamed(installation_.path(""), ownName("kept"));
  const Target target_{program_};
  std::string preferences_;
};

TEST_F(PrivilegedControl, SetsShowsFollowsAndReleases) {
  EXPECT_EQ(target_.nice(), -7);
  EXPECT_EQ(control({"status"}),
            (Output{0,
                    text("switched on, the daemon runs as ", installation_.daemon(), "\n",
                         statusWith({"160", "system > 2048 / system > 2048", "no"})),
                    ""}));

  const Output strangers = installation_.control({.arguments = {"status"}, .user = kNobody});
  // Without the first line: to a stranger the kernel does not say which root a daemon is of.
  EXPECT_EQ(strangers.out.substr(strangers.out.find('\n') + 1),
            statusWith({"160 > -", "system > - / system > -", "-"}));
  EXPECT_EQ(strangers.status, 0);

  setNice(target_.pid(), 3);
  const Output overridden = control({"status"});
  EXPECT_EQ(overridden.status, 1);
  EXPECT_NE(overridden.out.find("overridden by the system"), std::string::npos);

  const auto log =
      installation_.startControl({.arguments = {"log", "-f", "--target", program_.key}});
  EXPECT_TRUE(log->waitForOutput(" 完成\n"));
  EXPECT_EQ(control({"set", program_.key, "NiceValue=4"}).status, 0);
  EXPECT_TRUE(log->waitForOutput("目标:4 -> [成功]"));
  kill(log->pid(), SIGINT);
  EXPECT_EQ(log->output().status, 0);

  preferences_ = tests::readAll(installation_.preferencesPath());
  EXPECT_EQ(control({"release", "--keep-preferences"}),
            (Output{0, "handed back: " + program_.key + "\n", ""}));
  EXPECT_EQ(target_.nice(), 0);
  EXPECT_EQ(installation_.status(), "{}");
  EXPECT_EQ(tests::readAll(installation_.preferencesPath()), preferences_);
  EXPECT_EQ(tests::modeOf(installation_.preferencesPath()), 0666U);
}

TEST_F(PrivilegedControl, PutsPreferencesBackWhenInterrupted) {
  kill(installation_.daemon(), SIGSTOP);
  const auto release = installation_.startControl({.arguments = {"release", "--keep-preferences"}});
  const auto deadline = Clock::now() + kPatience;
  while (!std::filesystem::exists(installation_.preferencesPath() + ".released") &&
         installation_.watch().waitForChange(deadline, -1)) {
  }
  kill(release->pid(), SIGTERM);
  EXPECT_EQ(release->output(), (Output{3, "", "vorlatchctl: interrupted\n"}));
  kill(installation_.daemon(), SIGCONT);
  EXPECT_EQ(tests::readAll(installation_.preferencesPath()), preferences_);
}

}  // namespace
}  // namespace vorlatch
