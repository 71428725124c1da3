#include "config/status_file.h"

#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

#include <gtest/gtest.h>

#include "base/files.h"
#include "tests/support/story.h"

namespace vorlatch {
namespace {

using plist::Dictionary;
using tests::Story;

TEST(StatusFile, TheFirstCallDropsWhatAnEarlierRunLeft) {
  Story story;
  tests::writeAll(story.statusFile(), "left by an earlier run");
  updateStatusFile("backboardd", 100, -20, 210);
  EXPECT_EQ(story.status(),
            (Dictionary{{"backboardd", Dictionary{{"pid", 100}, {"n", -20}, {"p", 210}}}}));
}

TEST(StatusFile, AFirstRemovalLeavesAnEmptyFile) {
  Story story;
  tests::writeAll(story.statusFile(), "left by an earlier run");
  updateStatusFile("backboardd", 0, 0, 0);
  EXPECT_NE(tests::readAll(story.statusFile()).find("<dict/>"), std::string::npos);
}

TEST(StatusFile, AnEntryReplacesTheEarlierOneOfItsKey) {
  Story story;
  updateStatusFile("a", 100, -20, 210);
  updateStatusFile("b", 101, 0, -999);
  updateStatusFile("a", 102, 5, 160);
  EXPECT_EQ(story.status(), (Dictionary{{"a", Dictionary{{"pid", 102}, {"n", 5}, {"p", 160}}},
                                        {"b", Dictionary{{"pid", 101}, {"n", 0}, {"p", -999}}}}));
}

TEST(StatusFile, PidZeroRemovesTheEntryTwiceSafely) {
  Story story;
  updateStatusFile("a", 100, -20, 210);
  updateStatusFile("b", 101, 0, 0);
  updateStatusFile("a", 0, 0, 0);
  updateStatusFile("a", 0, 0, 0);
  EXPECT_EQ(story.status(), (Dictionary{{"b", Dictionary{{"pid", 101}, {"n", 0}, {"p", 0}}}}));
}

TEST(StatusFile, RemovingUnknownKeyStillRewritesTheFile) {
  Story story;
  updateStatusFile("a", 100, -20, 210);
  const std::string before = tests::readAll(story.statusFile());
  tests::writeAll(story.statusFile(), "overwritten by another program");
  std::filesystem::permissions(story.statusFile(), std::filesystem::perms(0600));
  updateStatusFile("unknown", 0, 0, 0);
  EXPECT_EQ(tests::readAll(story.statusFile()), before);
  EXPECT_EQ(tests::modeOf(story.statusFile()), 0666U);
}

TEST(StatusFile, IsForEveryoneWhateverTheUmask) {
  Story story;
  const mode_t umask_before = umask(077);
  updateStatusFile("a", 100, -20, 210);
  umask(umask_before);
  EXPECT_EQ(tests::modeOf(story.statusFile()), 0666U);
}

TEST(StatusFile, AFailedWriteIsMadeUpForByTheNext) {
  Story story;
  updateStatusFile("a", 100, -20, 210);
  std::filesystem::rename(story.file(""), story.rootPath("/elsewhere"));
  updateStatusFile("b", 101, 0, 0);
  std::filesystem::rename(story.rootPath("/elsewhere"), story.file(""));
  EXPECT_EQ(story.status(), (Dictionary{{"a", Dictionary{{"pid", 100}, {"n", -20}, {"p", 210}}}}));
  updateStatusFile("c", 102, 1, 1);
  EXPECT_EQ(story.status().size(), 3U);
}

TEST(StatusFile, LeavesNoTemporaryFileBehind) {
  Story story;
  updateStatusFile("a", 100, -20, 210);
  std::filesystem::remove(story.statusFile());
  std::filesystem::create_directory(story.statusFile());  // no file can replace it
  updateStatusFile("a", 100, -20, 210);
  const std::filesystem::directory_iterator entries(story.file(""));
  EXPECT_EQ(std::distance(begin(entries), end(entries)), 1);
}

TEST(StatusFile, KeysAreWrittenAsTheyAre) {
  Story story;
  const std::string long_key(10000, 'k');
  updateStatusFile("%s %n <&> \"微信\"\nnext/../path", 1, 2, 3);
  updateStatusFile("", 4, 5, 6);
  updateStatusFile(long_key, 7, 8, 9);
  EXPECT_EQ(
      story.status(),
      (Dictionary{{"%s %n <&> \"微信\"\nnext/../path", Dictionary{{"pid", 1}, {"n", 2}, {"p", 3}}},
                  {"", Dictionary{{"pid", 4}, {"n", 5}, {"p", 6}}},
                  {long_key, Dictionary{{"pid", 7}, {"n", 8}, {"p", 9}}}}));
}

TEST(AtomicWrite, KeepsTheOldFileWhenReplacingIsVetoed) {
  const Story story;
  const std::string path = story.file("some.file");
  ASSERT_TRUE(writeFileAtomically(path, "old"));
  errno = 0;
  EXPECT_FALSE(writeFileAtomically(path, "new", [] { return false; }));
  EXPECT_EQ(errno, ESTALE);
  EXPECT_EQ(tests::readAll(path), "old");
  const std::filesystem::directory_iterator files(
      story.rootPath("/var/mobile/Library/Preferences"));
  EXPECT_EQ(std::distance(begin(files), end(files)), 1);
  EXPECT_TRUE(writeFileAtomically(path, "new", [] { return true; }));
  EXPECT_EQ(tests::readAll(path), "new");
}

}  // namespace
}  // namespace vorlatch
