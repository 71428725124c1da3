// Targets on real processes, with every line of the log and the whole status file: of a daemon that
// may do everything, and of one whose user may not.
#include <unistd.h>

#include <filesystem>

#include <gtest/gtest.h>

#include "tests/blackbox/expected_log.h"
#include "tests/blackbox/installation.h"
#include "tests/blackbox/target.h"
#include "tests/support/files.h"

namespace vorlatch {
namespace {

namespace fs = std::filesystem;
using plist::Dictionary;

constexpr int kDefaultBand = 180;

// The test looks at each line of the log once, in order.
class PrivilegedTargets : public testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(installation_.linesLeft(), Lines{}); }

  void start() {
    installation_.start();
    EXPECT_EQ(niceOf(installation_.daemon()), -20);
    installation_.expectLog(startLines(installation_.daemon()));
  }
  void apply(const Dictionary& targets, bool enabled = true) {
    installation_.writePreferences(Dictionary{{"Enabled", enabled}, {"AppConfigs", targets}});
    installation_.post();
  }
  // Expects the lines, and the status entries afterwards.
  void expect(const Lines& lines, const std::string& status) {
    installation_.expectLog(lines);
    installation_.expectStatus(status);
  }
  Program program(const std::string& name) {
    return programNamed(installation_.path(""), ownName(name));
  }

  Installation installation_;
};

TEST_F(PrivilegedTargets, OfEachKindAreHeldFromStartToExit) {
  const std::string root = installation_.path("");
  const std::vector<Program> kinds{program("name"), programNamed(root, ownName("long", 25)),
                                   program("%s%n"),
                                   appIdentified(root, "org.example." + ownName("app"))};
  Dictionary targets;
  for (const Program& kind : kinds) {
    targets.emplace(kind.key, Dictionary{{"JetsamPriority", 160},
                                         {"NiceValue", -7},
                                         {"MemLimitActive", 300},
                                         {"StripManaged", true}});
  }
  start();
  apply(targets);
  for (const Program& kind : kinds) {
    SCOPED_TRACE(kind.key);
    Target target(kind);
    installation_.post();
    expect(startedLines(kind.key, target.pid()) +
               appliedLines(kind.key, target.pid(),
                            {.memory_limit_mb = 300, .nice = -7, .band = 160, .stripped = true}),
           statusOf(kind.key, target.pid(), -7, 160));
    EXPECT_EQ(target.nice(), -7);
    target.kill();
    installation_.post();
    expect({kTargetSeparator, "[进程] 目标: " + kind.key + " 已退出"}, "");
  }
}

TEST_F(PrivilegedTargets, AreHandedBackAndTakenUpAgain) {
  const Program programs[] = {program("leaves"), program("stays")};
  const auto& [leaving, staying] = std::pair(programs[0].key, programs[1].key);
  const Target leaver(programs[0]);
  const Target stayer(programs[1]);
  const Dictionary settings{{"JetsamPriority", 100}, {"NiceValue", -3}};
  const Dictionary untouched{{"JetsamPriority", -1}};
  const Lines taken_up = startedLines(leaving, leaver.pid()) +
                         appliedLines(leaving, leaver.pid(), {.nice = -3, .band = 100});
  const std::string leaves = statusOf(leaving, leaver.pid(), -3, 100);
  const std::string stays = statusOf(staying, stayer.pid(), 0, kDefaultBand);
  start();
  apply({{leaving, settings}, {staying, untouched}});
  expect(taken_up + startedLines(staying, stayer.pid()) + appliedLines(staying, stayer.pid(), {}),
         leaves + stays);

  apply({{staying, untouched}});
  expect(Lines{kTargetSeparator, "[配置] 已有进程从列表移除，已恢复默认"} +
             restoredLines(leaving, leaver.pid()),
         stays);
  EXPECT_EQ(leaver.nice(), 0);

  // The kernel's values are those that the restore left, because this applies none.
  apply({{leaving, untouched}, {staying, untouched}});
  expect(startedLines(leaving, leaver.pid()) + appliedLines(leaving, leaver.pid(), {}),
         statusOf(leaving, leaver.pid(), 0, 0) + stays);

  apply({{leaving, settings}, {staying, untouched}});
  expect(Lines{kTargetSeparator, tests::text("[配置] 目标: ", leaving, " PID: ", leaver.pid())} +
             appliedLines(leaving, leaver.pid(), {.nice = -3, .band = 100}),
         leaves + stays);
  apply({}, false);
  expect(kSwitchedOffLines + restoredLines(leaving, leaver.pid()) +
             restoredLines(staying, stayer.pid()),
         "");
  apply({{leaving, settings}});
  expect(taken_up, leaves);

  // A daemon's death leaves everything as it is.
  installation_.stop();
  EXPECT_EQ(leaver.nice(), -3);
  tests::writeAll(installation_.statusPath(), "an old status");
  start();
  expect(startedLines(leaving, leaver.pid()) +
             appliedLines(leaving, leaver.pid(), {.nice = -3, .nice_before = -3, .band = 100}),
         leaves);
}

void giveToNobody(const std::string& path) {
  EXPECT_EQ(chown(path.c_str(), kNobody, kNobody), 0);
}

TEST(PrivilegedUnprivilegedDaemon, LogsRefusalsAndGoesOn) {
  Installation installation;
  const std::string key = ownName("others");
  const Target target(programNamed(installation.path(""), key));
  installation.writePreferences(
      preferencesWith({{key, Dictionary{{"JetsamPriority", 160}, {"NiceValue", 5}}}}));
  // The daemon owns its root, as on a device; only the kernel refuses what it asks.
  giveToNobody(installation.path(""));
  giveToNobody(installation.path("var"));
  for (const auto& entry : fs::recursive_directory_iterator(installation.path("var"))) {
    giveToNobody(entry.path());
  }
  installation.start({.user = kNobody});
  installation.expectLog(
      startLines(installation.daemon(), false) + startedLines(key, target.pid()) +
      Lines{"[内存限制] 目标 Act:0 Inact:0 -> [失败] err:1", "[内核] ：失败",
            "[进程优先级] 当前:0 目标:5 -> [失败] err:1", "[内核] ：失败",
            "[环境适配] 目标 160 -> 实际 16", "[系统] 内存优先级:16 -> [内核: 失败]",
            tests::text("[内存优先级] 未在内核优先级列表中找到 PID:", target.pid()),
            "[内核] ：失败", doneLine(key, target.pid())});
  EXPECT_EQ(target.nice(), 0);
  installation.expectStatus(statusOf(key, target.pid(), 0, -999));

  // Preferences that it may not read switch it off.
  EXPECT_EQ(chown(installation.preferencesPath().c_str(), 0, 0), 0);
  fs::permissions(installation.preferencesPath(), fs::perms(0600));
  installation.post();
  installation.expectLog(kSwitchedOffLines + restoredLines(key, target.pid()));
  installation.expectStatus("");
}

TEST(PrivilegedUnprivilegedDaemon, ChangesNoFileThatItMayNot) {
  Installation installation;
  installation.writePreferences(preferencesWith({{ownName("sealed"), Dictionary{}}}));
  const std::string earlier = "[06-01 12:00:00] [守护] an earlier line\n";
  for (const std::string& path : {installation.logPath(), installation.statusPath()}) {
    tests::writeAll(path, earlier);
    fs::permissions(path, fs::perms(0644));
  }
  giveToNobody(installation.path("var"));  // where posts are made
  installation.start({.user = kNobody});
  installation.writePreferences(preferencesWith({}));
  EXPECT_TRUE(installation.pass());
  installation.waitForQuiet();
  for (const std::string& path : {installation.logPath(), installation.statusPath()}) {
    EXPECT_EQ(tests::readAll(path), earlier);
    EXPECT_EQ(tests::modeOf(path), 0644U);
  }
  EXPECT_EQ(filesIn(installation.preferencesDirectory()),
            (Lines{"Vorlatch.log", "com.zel.vorlatch.plist", "com.zel.vorlatch.status.plist"}));
}

}  // namespace
}  // namespace vorlatch
