// A daemon of a user who may not do what it is asked to do.
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

const Launch kAsNobody{.user = kNobody};

void giveToNobody(const std::string& path) {
  EXPECT_EQ(chown(path.c_str(), kNobody, kNobody), 0);
}

TEST(PrivilegedUnprivilegedDaemon, LogsRefusalsAndGoesOn) {
  Installation installation;
  const Program program = programNamed(installation.path(""), ownName("others"));
  const Target target(program);
  installation.writePreferences(preferencesWith(
      {{program.key, plist::Dictionary{{"JetsamPriority", 160}, {"NiceValue", 5}}}}));
  // The daemon's root is its own, as it is on a device; only what it asks of the kernel is refused.
  giveToNobody(installation.path(""));
  giveToNobody(installation.path("var"));
  for (const auto& entry : fs::recursive_directory_iterator(installation.path("var"))) {
    giveToNobody(entry.path());
  }
  installation.start(kAsNobody);

  const std::string pid = std::to_string(target.pid());
  Lines expected = startLines(installation.daemon(), false) +
                   startedLines(program.key, target.pid()) +
                   Lines{"[内存限制] 目标 Act:0 Inact:0 -> [失败] err:1",
                         "[内核] ：失败",
                         "[进程优先级] 当前:0 目标:5 -> [失败] err:1",
                         "[内核] ：失败",
                         "[环境适配] 目标 160 -> 实际 16",
                         "[系统] 内存优先级:16 -> [内核: 失败]",
                         "[内存优先级] 未在内核优先级列表中找到 PID:" + pid,
                         "[内核] ：失败",
                         doneLine(program.key, target.pid())};
  EXPECT_EQ(installation.logBehind(0, expected.size()), expected);
  EXPECT_EQ(target.nice(), 0);
  const std::string status = "{" + statusOf(program.key, target.pid(), 0, -999) + "}";
  EXPECT_EQ(installation.statusOnce(status), status);

  // Preferences that it may not read switch it off.
  EXPECT_EQ(chown(installation.preferencesPath().c_str(), 0, 0), 0);
  fs::permissions(installation.preferencesPath(), fs::perms(0600));
  installation.post();
  expected = expected + switchedOffLines() + restoredLines(program.key, target.pid());
  EXPECT_EQ(installation.logBehind(0, expected.size()), expected);
  EXPECT_EQ(installation.statusOnce("{}"), "{}");
}

TEST(PrivilegedUnprivilegedDaemon, ChangesNoFileThatItMayNot) {
  Installation installation;
  const Program program = programNamed(installation.path(""), ownName("sealed"));
  const Target target(program);
  installation.writePreferences(preferencesWith({{program.key, plist::Dictionary{}}}));
  tests::writeAll(installation.logPath(), "[06-01 12:00:00] [守护] an earlier line\n");
  tests::writeAll(installation.statusPath(), "an earlier status");
  for (const std::string& path : {installation.logPath(), installation.statusPath()}) {
    fs::permissions(path, fs::perms(0644));
  }
  giveToNobody(installation.path("var"));  // where posts are made
  installation.start(kAsNobody);
  EXPECT_TRUE(installation.pass());
  EXPECT_TRUE(installation.waitForQuiet());

  EXPECT_EQ(installation.log(), Lines{"[守护] an earlier line"});
  EXPECT_EQ(tests::readAll(installation.statusPath()), "an earlier status");
  for (const std::string& path : {installation.logPath(), installation.statusPath()}) {
    EXPECT_EQ(tests::modeOf(path), 0644U);
  }
  EXPECT_EQ(filesIn(installation.preferencesDirectory()),
            (Lines{"Vorlatch.log", "com.zel.vorlatch.plist", "com.zel.vorlatch.status.plist"}));
  EXPECT_EQ(target.nice(), 0);
}

}  // namespace
}  // namespace vorlatch
