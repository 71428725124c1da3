// The installed vorlatchctl beside the installed daemon, on real processes.
#include <csignal>
#include <filesystem>

#include <gtest/gtest.h>

#include "tests/blackbox/control_process.h"
#include "tests/blackbox/directory_watch.h"
#include "tests/blackbox/installation.h"
#include "tests/blackbox/target.h"
#include "tests/support/files.h"

namespace vorlatch {
namespace {

using plist::Dictionary;

// What `status` prints of the target held at nice -7 and band 160, with what the kernel says of its
// band, limits and management.
std::string statusWith(const Installation& installation, const Program& program,
                       const Target& target, const std::string& band, const std::string& limits,
                       const std::string& managed) {
  return "switched on, the daemon runs as " + std::to_string(installation.daemon()) + "\n" +
         rowsOf({{"TARGET", "PID", "NAME", "BAND", "NICE", "LIMITS MB", "MANAGED", "TIMER",
                  "DAEMON WROTE", "VERDICT"},
                 {program.key, std::to_string(target.pid()), program.key, band, "-7", limits,
                  managed, "-", std::to_string(target.pid()) + " n:-7 b:160", "held"}});
}

// A daemon at work, and a target of it.
class PrivilegedControl : public testing::Test {
 protected:
  void hold() {
    installation_.start();
    EXPECT_EQ(control(installation_, {"set", program_.key, "JetsamPriority=home", "NiceValue=-7"}),
              (ControlOutput{0,
                             "AppConfigs / " + program_.key + " / JetsamPriority: (none) -> 160\n" +
                                 "AppConfigs / " + program_.key + " / NiceValue: (none) -> -7\n",
                             ""}));
    EXPECT_TRUE(installation_.waitForLog(
        0, program_.key + " PID:" + std::to_string(target_.pid()) + " 完成"));
  }

  Installation installation_;
  const Program program_ = programNamed(installation_, ownName("kept"));
  Target target_{program_};
};

TEST_F(PrivilegedControl, WhatIsSetIsHeldAndShown) {
  hold();
  EXPECT_EQ(target_.nice(), -7);
  EXPECT_EQ(control(installation_, {"status"}),
            (ControlOutput{0,
                           statusWith(installation_, program_, target_, "160",
                                      "system > 2048 / system > 2048", "no"),
                           ""}));
}

TEST_F(PrivilegedControl, AnOverriddenTargetIsAFinding) {
  hold();
  setNice(target_.pid(), 3);
  const ControlOutput seen = control(installation_, {"status"});
  EXPECT_EQ(seen.status, 1);
  EXPECT_NE(seen.out.find("overridden by the system"), std::string::npos);
}

TEST_F(PrivilegedControl, WithoutRightsTheDaemonsWordIsShown) {
  hold();
  const ControlOutput seen = control(installation_, {"status"}, kNobody);
  const std::string expected =
      statusWith(installation_, program_, target_, "160 > -", "system > - / system > -", "-");
  // Without the first line: to a stranger the kernel does not say which root a daemon is of.
  EXPECT_EQ(seen.out.substr(seen.out.find('\n')), expected.substr(expected.find('\n')));
  EXPECT_EQ(seen.status, 0);
}

TEST_F(PrivilegedControl, ReleaseKeepsThePreferencesAndHandsEverythingBack) {
  hold();
  const std::string before = tests::readAll(installation_.preferencesPath());
  EXPECT_EQ(control(installation_, {"release", "--keep-preferences"}),
            (ControlOutput{0, "handed back: " + program_.key + "\n", ""}));
  EXPECT_EQ(target_.nice(), 0);
  EXPECT_EQ(installation_.status(), "{}");
  EXPECT_EQ(tests::readAll(installation_.preferencesPath()), before);
  EXPECT_EQ(tests::modeOf(installation_.preferencesPath()), 0666U);
}

TEST_F(PrivilegedControl, AnInterruptedReleasePutsThePreferencesBack) {
  hold();
  const std::string before = tests::readAll(installation_.preferencesPath());
  kill(installation_.daemon(), SIGSTOP);
  ControlProcess release(installation_, {"release", "--keep-preferences"});
  const auto deadline = Clock::now() + kPatience;
  while (!std::filesystem::exists(installation_.preferencesPath() + ".released") &&
         installation_.watch().waitForChange(deadline, -1)) {
  }
  kill(release.pid(), SIGTERM);
  EXPECT_EQ(release.wait(), (ControlOutput{3, "", "vorlatchctl: interrupted\n"}));
  kill(installation_.daemon(), SIGCONT);
  EXPECT_EQ(tests::readAll(installation_.preferencesPath()), before);
}

TEST_F(PrivilegedControl, FollowsTheLogUntilItIsInterrupted) {
  hold();
  ControlProcess log(installation_, {"log", "-f", "--target", program_.key});
  EXPECT_TRUE(log.waitForOutput(" 完成\n"));
  EXPECT_EQ(control(installation_, {"set", program_.key, "NiceValue=4"}).status, 0);
  EXPECT_TRUE(log.waitForOutput("目标:4 -> [成功]"));
  kill(log.pid(), SIGINT);
  EXPECT_EQ(log.wait().status, 0);
}

}  // namespace
}  // namespace vorlatch
