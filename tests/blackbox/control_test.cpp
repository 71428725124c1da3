// The installed vorlatchctl beside the installed daemon, on real processes.
#include <csignal>
#include <filesystem>
#include <memory>
#include <regex>

#include <gtest/gtest.h>

#include "config/preferences.h"
#include "platform/property_list.h"
#include "tests/base/describe.h"
#include "tests/blackbox/expected_log.h"
#include "tests/blackbox/installation.h"
#include "tests/blackbox/target.h"
#include "tests/support/files.h"
#include "tests/support/text.h"

namespace vorlatch {
namespace {

using tests::readAll;
using tests::text;

// A daemon at work, and a target of it at nice -7 and band 160.
class PrivilegedControl : public testing::Test {
 protected:
  PrivilegedControl() {
    installation_.start();
    EXPECT_EQ(control({"set", key_, "JetsamPriority=home", "NiceValue=-7"}),
              (Output{0,
                      text("AppConfigs / ", key_, " / JetsamPriority: (none) -> 160\n",
                           "AppConfigs / ", key_, " / NiceValue: (none) -> -7\n"),
                      ""}));
    EXPECT_TRUE(installation_.skipLogTo(doneLine(key_, target_.pid())));
    EXPECT_EQ(target_.nice(), -7);
  }

  [[nodiscard]] Output control(const Lines& arguments) const {
    return installation_.control({.arguments = arguments});
  }
  // Expects this status of the target, whose nice value and verdict vary.
  void expectStatus(const Output& status, int exit_status, const std::string& kernels,
                    const std::string& verdict) const {
    EXPECT_EQ(status.status, exit_status);
    // The memory that the target uses varies.
    static const std::regex& memory = *new std::regex(R"(\| \d+, peak \d+(, \d+ %)? \|)");
    EXPECT_EQ(std::regex_replace(tests::rowsOf(status.out, 2), memory, "| memory |"),
              text(key_, " | ", target_.pid(), " | ", key_, " | ", kernels, " | - | memory | ",
                   target_.pid(), " n:-7 b:160 | ", verdict, "\n"));
  }

  Installation installation_;
  const std::string key_ = ownName("kept");
  const Target target_{programNamed(installation_.path(""), key_)};
};

TEST_F(PrivilegedControl, SetsShowsFollowsAndReleases) {
  const Output status = control({"status"});
  expectStatus(status, 0, "160 | -7 | system > 2048 / system > 2048 | no", "held");
  EXPECT_TRUE(status.out.starts_with(
      text("switched on, the daemon runs as ", installation_.daemon(), "\n")));
  const Output strangers = installation_.control({.arguments = {"status"}, .user = kNobody});
  expectStatus(strangers, 0, "160 > - | -7 | system > - / system > - | -", "held");
  // To a stranger the kernel does not say which root a daemon is of.
  EXPECT_NE(strangers.out.find(", the daemon runs as "), std::string::npos);
  setNice(target_.pid(), 3);
  expectStatus(control({"status"}), 1, "160 | -7 > 3 | system > 2048 / system > 2048 | no",
               "overridden by the system");

  const auto log = installation_.startControl({.arguments = {"log", "-f", "--target", key_}});
  EXPECT_TRUE(log->waitForOutput(" 完成\n"));
  EXPECT_EQ(control({"set", key_, "NiceValue=4"}).status, 0);
  EXPECT_TRUE(log->waitForOutput("目标:4 -> [成功]"));
  kill(log->pid(), SIGINT);
  EXPECT_EQ(log->output().status, 0);

  const std::string preferences = readAll(installation_.preferencesPath());
  EXPECT_EQ(control({"release", "--keep-preferences"}),
            (Output{0, "handed back: " + key_ + "\n", ""}));
  EXPECT_EQ(target_.nice(), 0);
  EXPECT_EQ(installation_.status(), "{}");
  EXPECT_EQ(readAll(installation_.preferencesPath()), preferences);
}

TEST_F(PrivilegedControl, PutsPreferencesBackWhenInterrupted) {
  const std::string preferences = readAll(installation_.preferencesPath());
  kill(installation_.daemon(), SIGSTOP);
  const auto release = installation_.startControl({.arguments = {"release", "--keep-preferences"}});
  EXPECT_TRUE(installation_.waitUntil(
      [this] { return std::filesystem::exists(installation_.preferencesPath() + ".released"); }));
  kill(release->pid(), SIGTERM);
  EXPECT_EQ(release->output(), (Output{3, "", "vorlatchctl: interrupted\n"}));
  kill(installation_.daemon(), SIGCONT);
  EXPECT_EQ(readAll(installation_.preferencesPath()), preferences);
}

// The lock on the file is for all vorlatchctl at once.
// A finding is exit status 1, unless nobody could read it.
TEST(FullOutput, IsAFailureOfAFindingToo) {
  const Installation installation;
  tests::writeAll(installation.preferencesPath(), "damaged");
  const std::string check = installation.path("usr/bin/vorlatchctl") + " check ";
  const auto said = [&check](const std::string& redirected) {
    const Launch launch{.arguments = {"-c", check + redirected + "; exit $?"},
                        .gives_output = true};
    return ChildProcess("/bin/sh", launch).output();
  };
  EXPECT_EQ(said(">/dev/null"), (Output{1, "", ""}));
  EXPECT_EQ(said(">/dev/full"),
            (Output{3, "",
                    "vorlatchctl: standard output: No space left on device; make room on the "
                    "disk\n"}));
}

TEST(ConcurrentEdits, LoseNothing) {
  Installation installation;
  plist::Dictionary all;
  for (int round = 0; round < 25; ++round) {
    std::vector<std::unique_ptr<ChildProcess>> editors;
    for (int nice = -4; nice < 4; ++nice) {
      const std::string target = text("target", nice, " of ", round);
      all.emplace(target, plist::Dictionary{{"JetsamPriority", -1}, {"NiceValue", nice}});
      editors.push_back(
          installation.startControl({.arguments = {"set", target, text("NiceValue=", nice)}}));
    }
    for (const auto& editor : editors) EXPECT_EQ(editor->exitCode(), 0);
  }
  const auto edited = platform::parsePropertyList(readAll(installation.preferencesPath()));
  ASSERT_TRUE(edited);
  EXPECT_EQ(test::describe(*edited), test::describe(preferencesWith(all)));
  EXPECT_EQ(tests::modeOf(installation.preferencesPath()), 0666U);
  Lines files{kPreferencesFileName};
  for (int edit = 191; edit <= 200; ++edit) {
    files.push_back(text(kPreferencesFileName, ".undo.", edit));
  }
  EXPECT_EQ(filesIn(installation.preferencesDirectory()), files);
}

}  // namespace
}  // namespace vorlatch
