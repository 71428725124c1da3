// vorlatchctl undo: what an edit replaced comes back byte for byte. EditStory expects of every edit
// that it keeps what it replaces.
#include <sys/resource.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>

#include <gtest/gtest.h>

#include "platform/property_list.h"
#include "tests/cli/edit_story.h"

namespace vorlatch::tests {
namespace {

namespace fs = std::filesystem;

constexpr const char* kNothingToTakeBack = "there is no edit to take back\n";
// An edit that writes XML anew would drop the remark.
constexpr const char* kRemarked =
    "<plist version=\"1.0\"><!-- mine --><dict><key>Enabled</key><true/></dict></plist>";

// The time 2026-11-22 15:15:28 in the zone UTC+8.
void setTime(const std::string& path) {
  fs::last_write_time(path,
                      fs::file_time_type::clock::from_sys(std::chrono::sys_seconds(1795331728s)));
}

TEST(Undo, PutsBackEveryByteAndTakesItselfBack) {
  EditStory story;
  writeAll(story.preferencesFile(), kRemarked);
  const std::string off = writes({{"Enabled", false}});
  const std::string remarked = writes(kRemarked);
  ASSERT_EQ(story.edit("disable"), "Enabled: true -> false\n" + (kApplied + off));
  const std::string back = "Enabled: false -> true\n";
  EXPECT_EQ(story.edit("undo --dry-run"), back + "nothing was written\n");
  EXPECT_EQ(story.edit("undo --no-apply"), back + remarked);
  EXPECT_EQ(story.edit("undo"), "Enabled: true -> false\n" + (kApplied + off));
  EXPECT_EQ(story.edit("undo --json"),
            pretty(R"({"changes": [{"path": ["Enabled"], "before": false, "after": true}],
                       "written": true, "applied": true})") +
                kApplied + remarked);
  story.writePreferences({{"Enabled", true}});  // without the remark
  EXPECT_EQ(story.edit("undo 2"),
            "only the form of the file changes, no value in it\n" + (kApplied + remarked));
  EXPECT_EQ(story.edit("undo 3"), "nothing to change\n");
}

TEST(Undo, TakesBackTheLastTenEdits) {
  EditStory story;
  story.writePreferences({{"Enabled", true}});
  for (int i = 0; i <= 11; ++i) {
    const std::string line = "set alpha NiceValue=" + std::to_string(i);
    EXPECT_TRUE(story.edit(line).ends_with(
        writes({{"Enabled", true},
                {"AppConfigs",
                 Dictionary{{"alpha", Dictionary{{"JetsamPriority", -1}, {"NiceValue", i}}}}}})));
  }
  EXPECT_EQ(story.copies().begin()->first, 3);
  const std::string changed = "AppConfigs / alpha / NiceValue: ";
  EXPECT_TRUE(story.edit("undo 4").starts_with(changed + "11 -> 7\n"));
  EXPECT_TRUE(story.edit("undo 10").starts_with(changed + "7 -> 2\n"));
  EXPECT_EQ(story.edit("undo 11"),
            "err: vorlatchctl: N takes a number from 1 to 10, not \"11\"\nexit 2\n");
}

// A file without a dictionary comes back, too.
TEST(Undo, PutsBackADamagedFile) {
  EditStory story;
  writeAll(story.preferencesFile(), "damaged");
  ASSERT_EQ(story.run({"preset", "--replace-file"}).status, 0);
  EXPECT_TRUE(story.edit("undo").ends_with(kApplied + writes("damaged")));
}

// Only a whole number without a zero before it is a copy's.
TEST(Undo, ListsTheEdits) {
  setenv("TZ", "CST-8", 1);
  EditStory story;
  for (const char* end : {".undo.07", ".undo.8x", ".undo.", ".undo.0", ".undo.1000000000"}) {
    writeAll(story.preferencesFile() + end, xml({}));
  }
  EXPECT_EQ(story.answer("undo --list"), kNothingToTakeBack);
  EXPECT_EQ(story.answer("undo --list --json"), pretty(R"({"edits": []})"));
  writeAll(story.preferencesFile(), "damaged");
  for (const char* line : {"preset --replace-file", "disable",
                           "set kbd NiceValue=1 CheckInterval=2 Remark=x MemLimitActive=5"}) {
    ASSERT_EQ(story.run(wordsOf(line)).status, 0);
  }
  for (int number = 1; number <= 3; ++number) setTime(story.copyPath(number));
  EXPECT_EQ(story.answer("undo --list"), R"(1: 2026-11-22 15:15:28, changes: 4
  AppConfigs / kbd / CheckInterval: 0 -> 2
  AppConfigs / kbd / MemLimitActive: 0 -> 5
  AppConfigs / kbd / NiceValue: -18 -> 1
  and 1 more
2: 2026-11-22 15:15:28, changes: 1
  Enabled: true -> false
3: 2026-11-22 15:15:28, not to be compared: the file before it or after it holds no dictionary
)");
  EXPECT_EQ(story.answer("undo --list --json"), pretty(R"({"edits": [
      {"number": 1, "time": "2026-11-22T15:15:28+08:00", "file": "{preferences}.undo.3",
       "changes": [
         {"path": ["AppConfigs", "kbd", "CheckInterval"], "before": 0, "after": 2},
         {"path": ["AppConfigs", "kbd", "MemLimitActive"], "before": 0, "after": 5},
         {"path": ["AppConfigs", "kbd", "NiceValue"], "before": -18, "after": 1}], "count": 4},
      {"number": 2, "time": "2026-11-22T15:15:28+08:00", "file": "{preferences}.undo.2",
       "changes": [{"path": ["Enabled"], "before": true, "after": false}], "count": 1},
      {"number": 3, "time": "2026-11-22T15:15:28+08:00", "file": "{preferences}.undo.1",
       "changes": [], "count": null}]})"));
}

TEST(UndoRefuses, WhatWasNotKept) {
  EditStory story;
  EXPECT_EQ(story.edit("undo"),
            std::string("err: vorlatchctl: ") + kNothingToTakeBack + "exit 3\n");
  story.writePreferences({});
  ASSERT_EQ(story.run({"enable"}).status, 0);
  EXPECT_EQ(
      story.edit("undo 2"),
      "err: vorlatchctl: edits that can be taken back: 1; vorlatchctl undo --list shows them\n"
      "exit 2\n");
  const std::string secret = story.rootPath("/secret.plist");
  writeAll(secret, xml({{"Secret", true}}));
  fs::remove(story.copyPath(1));
  fs::create_symlink(secret, story.copyPath(1));
  EXPECT_EQ(story.answer("undo"),
            "err: vorlatchctl: {preferences}.undo.1: a link, or no file of at most 512 kB; nothing "
            "is changed; vorlatchctl undo --list shows the others\nexit 3\n");
  EXPECT_EQ(story.bytes(), xml({{"Enabled", true}}));
}

// Neither the copy nor the preferences stay half-written, and no copy without an edit.
TEST(EditRefuses, WhatItCannotKeepOrWrite) {
  EditStory story;
  std::signal(SIGXFSZ, SIG_IGN);
  const auto limit_files_to = [](rlim_t bytes) {
    const rlimit limit{.rlim_cur = bytes, .rlim_max = RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  };
  story.writePreferences({{"Enabled", true}, {"Padding", std::string(1000, 'x')}});
  limit_files_to(1000);
  EXPECT_EQ(story.edit("preset --replace-file"),
            "err: vorlatchctl: {preferences}.undo.1: File too large; the old preferences cannot be "
            "kept for vorlatchctl undo, so nothing is changed\nexit 3\n");
  limit_files_to(1500);
  EXPECT_EQ(story.edit("preset --replace-file"),
            "err: vorlatchctl: {preferences}: File too large\nexit 3\n");
  limit_files_to(RLIM_INFINITY);
  writeAll(story.copyPath(999'999'999), "");
  fs::permissions(story.copyPath(999'999'999), fs::perms(0666));
  EXPECT_EQ(story.edit("disable"),
            "err: vorlatchctl: {preferences}.undo.999999999 has the last number that there is; "
            "remove it, then run this again\nexit 3\n");
}

TEST(Release, KeepsNoCopy) {
  EditStory story;
  story.writePreferences({{"Enabled", true}});
  EXPECT_EQ(story.answer("release"), "nothing was held\n");
  EXPECT_EQ(story.bytes(), xml({{"Enabled", false}}));
  story.writeTargets({{"alpha", Dictionary{}}});
  EXPECT_EQ(story.run({"apply", "--again", "alpha"}).status, 0);
  EXPECT_TRUE(story.copies().empty());
}

}  // namespace
}  // namespace vorlatch::tests
