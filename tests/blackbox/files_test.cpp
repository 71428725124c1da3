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

// Makes the daemon hand back a target that does not run: it writes the status file.
void makeItWriteTheStatusFile(Installation& installation) {
  const int passes_before = installation.passes();
  fs::remove(installation.statusPath());
  installation.writePreferences(preferencesWith({{ownName("absent"), plist::Dictionary{}}}));
  installation.post();
  ASSERT_TRUE(installation.waitForPasses(passes_before + 1));
  installation.writePreferences(preferencesWith({}));
  installation.post();
  EXPECT_EQ(installation.statusOnce("{}"), "{}");
}

TEST(Files, GoOnWithoutALogThatWasDeletedUntilTheNextStart) {
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

TEST(Files, GoOnWithTheOldLogWhereADirectoryTookItsPlaceUntilTheNextStart) {
  Installation installation;
  installation.start();
  EXPECT_TRUE(installation.waitForQuiet());
  const std::vector<std::string> open_before = openFiles(installation.daemon());
  fs::rename(installation.logPath(), installation.path("moved.log"));
  fs::create_directory(installation.logPath());

  // Every directory is over this cap.
  installation.writePreferences(plist::Dictionary{{"Enabled", false}, {"LogSizeLimit", 1}});
  const int passes_before = installation.passes();
  installation.post();
  ASSERT_TRUE(installation.waitForPasses(passes_before + 1));
  makeItWriteTheStatusFile(installation);

  EXPECT_EQ(filesIn(installation.logPath()), Lines{});
  EXPECT_NE(tests::readAll(installation.path("moved.log")).find("[配置] 已有进程从列表移除"),
            std::string::npos);
  EXPECT_TRUE(installation.waitForQuiet());
  EXPECT_EQ(openFiles(installation.daemon()).size(), open_before.size());

  installation.stop();
  installation.start();
  EXPECT_EQ(installation.log(), startLines(installation.daemon()));
  const Lines names = filesIn(installation.preferencesDirectory());
  EXPECT_EQ(std::count_if(
                names.begin(), names.end(),
                [](const std::string& name) { return name.starts_with("Vorlatch.log.aside."); }),
            1);
}

TEST(Files, KeepTheEndOfALogThatIsAppendedToAcrossStarts) {
  Installation installation;
  Lines expected;
  for (int start = 0; start < 3; ++start) {
    installation.start();
    expected = expected + startLines(installation.daemon());
    EXPECT_EQ(installation.log(), expected);
    installation.stop();
  }
}

}  // namespace
}  // namespace vorlatch
