// The daemon's log and status file across starts, and where others replace or remove them.
#include "tests/support/files.h"

#include <algorithm>
#include <filesystem>

#include <gtest/gtest.h>

#include "tests/blackbox/expected_log.h"
#include "tests/blackbox/installation.h"
#include "tests/blackbox/target.h"

namespace vorlatch {
namespace {

namespace fs = std::filesystem;

std::string oldLog(std::size_t bytes) {
  std::string log;
  while (log.size() < bytes) log += "[06-01 12:00:00] [守护] an earlier line\n";
  return log;
}

// Makes the daemon hand back a target that does not run: it writes the status file.
void makeItWriteTheStatusFile(Installation& installation) {
  fs::remove(installation.statusPath());
  installation.writePreferences(preferencesWith({{ownName("absent"), plist::Dictionary{}}}));
  ASSERT_TRUE(installation.pass());
  installation.writePreferences(preferencesWith({}));
  installation.post();
  EXPECT_EQ(installation.statusOnce("{}"), "{}");
}

TEST(Files, KeepLogAcrossStarts) {
  Installation installation;
  const std::string old_log = oldLog(5'000'000);
  tests::writeAll(installation.logPath(), old_log);
  fs::permissions(installation.logPath(), fs::perms(0600));
  installation.writePreferences(plist::Dictionary{{"Enabled", false}, {"LogSizeLimit", 0}});
  const std::size_t old_lines = installation.log().size();
  Lines expected;
  for (int start = 0; start < 3; ++start) {
    installation.start();
    EXPECT_EQ(tests::modeOf(installation.logPath()), 0666U);
    EXPECT_TRUE(tests::readAll(installation.logPath()).starts_with(old_log));
    expected = expected + startLines(installation.daemon());
    EXPECT_EQ(installation.logBehind(old_lines, expected.size()), expected);
    installation.stop();
  }
}

TEST(Files, EmptyLogOverCapAtFirstPass) {
  Installation installation;
  tests::writeAll(installation.logPath(), oldLog(3'000'000));
  fs::permissions(installation.logPath(), fs::perms(0600));
  installation.writePreferences(plist::Dictionary{{"Enabled", false}});
  installation.start();
  EXPECT_EQ(installation.log(), Lines{"[守护] 日志大小超过设定限制(2.0MB)，已自动清空。"});
  EXPECT_EQ(tests::modeOf(installation.logPath()), 0666U);
}

TEST(Files, GoOnWithoutDeletedLogUntilNextStart) {
  Installation installation;
  installation.start();
  fs::remove(installation.logPath());
  makeItWriteTheStatusFile(installation);
  EXPECT_FALSE(fs::exists(installation.logPath()));

  installation.stop();
  installation.start();
  EXPECT_EQ(installation.log(), startLines(installation.daemon()));
  EXPECT_EQ(tests::modeOf(installation.logPath()), 0666U);
}

TEST(Files, GoOnWithOldLogBesideDirectory) {
  Installation installation;
  installation.start();
  EXPECT_TRUE(installation.waitForQuiet());
  const std::size_t open_before = resourceUseOf(installation.daemon()).open_files.size();
  fs::rename(installation.logPath(), installation.path("moved.log"));
  fs::create_directory(installation.logPath());

  // Every directory is over this cap.
  installation.writePreferences(plist::Dictionary{{"Enabled", false}, {"LogSizeLimit", 1}});
  ASSERT_TRUE(installation.pass());
  makeItWriteTheStatusFile(installation);

  EXPECT_EQ(filesIn(installation.logPath()), Lines{});
  EXPECT_NE(tests::readAll(installation.path("moved.log")).find(removedLines()[1]),
            std::string::npos);
  EXPECT_TRUE(installation.waitForQuiet());
  EXPECT_EQ(resourceUseOf(installation.daemon()).open_files.size(), open_before);

  installation.stop();
  installation.start();
  EXPECT_EQ(installation.log(), startLines(installation.daemon()));
  const Lines names = filesIn(installation.preferencesDirectory());
  EXPECT_EQ(std::count_if(
                names.begin(), names.end(),
                [](const std::string& name) { return name.starts_with("Vorlatch.log.aside."); }),
            1);
}

TEST(Files, AreUsedOnceTheirDirectoryIsThere) {
  Installation installation;
  const std::string directory = installation.preferencesDirectory();
  fs::remove_all(installation.path("var"));
  installation.startWithoutWaiting();
  installation.waitUntilPostsAreHeard();
  installation.post();

  fs::create_directories(directory);
  installation.watchFiles();
  installation.writePreferences(preferencesWith({{ownName("absent"), plist::Dictionary{}}}));
  installation.post();
  EXPECT_TRUE(installation.waitForPasses(1));
  installation.writePreferences(plist::Dictionary{{"Enabled", false}});
  installation.post();
  EXPECT_EQ(installation.statusOnce("{}"), "{}");
  EXPECT_EQ(filesIn(directory), (Lines{"com.zel.vorlatch.plist", "com.zel.vorlatch.status.plist"}));
}

}  // namespace
}  // namespace vorlatch
