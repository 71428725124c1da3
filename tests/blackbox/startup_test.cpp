#include <filesystem>

#include <gtest/gtest.h>

#include "tests/blackbox/expected_log.h"
#include "tests/blackbox/installation.h"
#include "tests/blackbox/target.h"
#include "tests/support/files.h"

namespace vorlatch {
namespace {

std::string oldLog(std::size_t bytes) {
  std::string log;
  while (log.size() < bytes) log += "[06-01 12:00:00] [守护] an earlier line\n";
  return log;
}

TEST(Startup, KeepsAnOldLogOfSeveralMegabytesAndLetsEveryoneWriteIt) {
  Installation installation;
  const std::string old_log = oldLog(5'000'000);
  tests::writeAll(installation.logPath(), old_log);
  std::filesystem::permissions(installation.logPath(), std::filesystem::perms(0600));
  installation.writePreferences(plist::Dictionary{{"Enabled", false}, {"LogSizeLimit", 0}});
  installation.start();

  EXPECT_EQ(tests::modeOf(installation.logPath()), 0666U);
  EXPECT_TRUE(tests::readAll(installation.logPath()).starts_with(old_log));
  const Lines lines = installation.log();
  const Lines banner = startLines(installation.daemon());
  ASSERT_GT(lines.size(), banner.size());
  EXPECT_EQ(Lines(lines.end() - static_cast<std::ptrdiff_t>(banner.size()), lines.end()), banner);
  EXPECT_EQ(lines[lines.size() - banner.size() - 1], "[守护] an earlier line");
}

TEST(Startup, ClearsALogOverTheCapAtTheFirstPass) {
  Installation installation;
  tests::writeAll(installation.logPath(), oldLog(3'000'000));
  std::filesystem::permissions(installation.logPath(), std::filesystem::perms(0600));
  installation.writePreferences(plist::Dictionary{{"Enabled", false}});
  installation.start();

  EXPECT_EQ(installation.log(), Lines{"[守护] 日志大小超过设定限制(2.0MB)，已自动清空。"});
  EXPECT_EQ(tests::modeOf(installation.logPath()), 0666U);
}

TEST(Startup, LeavesAnEmptyPreferencesFileAloneAndRunsSwitchedOff) {
  Installation installation;
  installation.writePreferencesBytes("");
  installation.start();
  EXPECT_EQ(installation.log(), startLines(installation.daemon()));
  EXPECT_EQ(tests::readAll(installation.preferencesPath()), "");
}

TEST(Startup, RunsWithoutAPreferencesDirectoryAndUsesItOnceItIsThere) {
  Installation installation;
  const std::string directory = installation.preferencesDirectory();
  std::filesystem::remove_all(installation.path("var"));
  installation.startWithoutWaiting();
  installation.waitUntilPostsAreHeard();
  installation.post();

  std::filesystem::create_directories(directory);
  installation.watchFiles();
  installation.writePreferences(preferencesWith({{ownName("absent"), plist::Dictionary{}}}));
  installation.post();
  EXPECT_TRUE(installation.waitForPasses(1));
  installation.writePreferences(plist::Dictionary{{"Enabled", false}});
  installation.post();
  EXPECT_EQ(installation.statusOnce("{}"), "{}");
  EXPECT_EQ(filesIn(directory), (Lines{"com.zel.vorlatch.plist", "com.zel.vorlatch.status.plist"}));
}

TEST(PrivilegedStartup, RunsAtTheHighestPriority) {
  Installation installation;
  installation.start();
  EXPECT_EQ(niceOf(installation.daemon()), -20);
}

}  // namespace
}  // namespace vorlatch
