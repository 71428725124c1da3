#include "config/status_file.h"

#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

#include <gtest/gtest.h>

#include "base/files.h"
#include "tests/support/story.h"

namespace vorlatch {
namespace {

namespace fs = std::filesystem;
using plist::Dictionary;
using tests::Story;

Dictionary entry(int pid, int nice_value, int band) {
  return {{"pid", pid}, {"n", nice_value}, {"p", band}};
}

std::ptrdiff_t filesOf(const Story& story) {
  return std::distance(fs::directory_iterator(story.file("")), fs::directory_iterator());
}

TEST(StatusFile, HoldsTheLatestEntryOfEachKey) {
  Story story;
  tests::writeAll(story.statusFile(), "left by an earlier run");
  updateStatusFile("a", 0, 0, 0);
  EXPECT_NE(tests::readAll(story.statusFile()).find("<dict/>"), std::string::npos);
  updateStatusFile("a", 100, -20, 210);
  EXPECT_EQ(story.status(), (Dictionary{{"a", entry(100, -20, 210)}}));
  updateStatusFile("b", 101, 0, -999);
  updateStatusFile("a", 102, 5, 160);
  EXPECT_EQ(story.status(), (Dictionary{{"a", entry(102, 5, 160)}, {"b", entry(101, 0, -999)}}));
  for (int time = 0; time < 2; ++time) {
    updateStatusFile("a", 0, 0, 0);
    EXPECT_EQ(story.status(), (Dictionary{{"b", entry(101, 0, -999)}}));
  }
}

TEST(StatusFile, RemovingUnknownKeyStillRewritesTheFile) {
  Story story;
  const mode_t umask_before = umask(077);
  updateStatusFile("a", 100, -20, 210);
  umask(umask_before);
  EXPECT_EQ(tests::modeOf(story.statusFile()), 0666U);
  const std::string before = tests::readAll(story.statusFile());
  tests::writeAll(story.statusFile(), "overwritten by another program");
  updateStatusFile("unknown", 0, 0, 0);
  EXPECT_EQ(tests::readAll(story.statusFile()), before);
}

TEST(StatusFile, AFailedWriteIsMadeUpForByTheNext) {
  Story story;
  updateStatusFile("a", 100, -20, 210);
  fs::rename(story.file(""), story.rootPath("/elsewhere"));
  updateStatusFile("b", 101, 0, 0);
  fs::rename(story.rootPath("/elsewhere"), story.file(""));
  EXPECT_EQ(story.status(), (Dictionary{{"a", entry(100, -20, 210)}}));
  updateStatusFile("c", 102, 1, 1);
  EXPECT_EQ(story.status().size(), 3U);
  fs::remove(story.statusFile());
  fs::create_directory(story.statusFile());  // no file can replace it
  updateStatusFile("a", 100, -20, 210);
  EXPECT_EQ(filesOf(story), 1);  // no temporary file is left
}

TEST(StatusFile, KeysAreWrittenAsTheyAre) {
  Story story;
  Dictionary all;
  for (const std::string& key :
       {std::string("%s %n <&> \"微信\"\nnext/../path"), std::string(), std::string(10000, 'k')}) {
    updateStatusFile(key, 1, 2, 3);
    all.insert_or_assign(key, entry(1, 2, 3));
  }
  EXPECT_EQ(story.status(), all);
}

TEST(AtomicWrite, KeepsTheOldFileWhenReplacingIsVetoed) {
  const Story story;
  const std::string path = story.file("some.file");
  ASSERT_TRUE(writeFileAtomically(path, "old"));
  errno = 0;
  EXPECT_FALSE(writeFileAtomically(path, "new", [] { return false; }));
  EXPECT_EQ(errno, ESTALE);
  EXPECT_EQ(tests::readAll(path), "old");
  EXPECT_EQ(filesOf(story), 1);
  EXPECT_TRUE(writeFileAtomically(path, "new", [] { return true; }));
  EXPECT_EQ(tests::readAll(path), "new");
}

// Whatever size the file reports.
TEST(ReadFile, ReadsUpToExactlyTheLimit) {
  const Story story;
  const std::string path = story.file("some.file");
  for (const std::string bytes : {"12345", ""}) {
    tests::writeAll(path, bytes);
    for (const std::size_t limit : {0U, 4U, 5U, 6U}) {
      errno = EINTR;  // left by an earlier call
      const auto expected = bytes.size() <= limit ? std::optional(bytes) : std::nullopt;
      EXPECT_EQ(readFile(path, limit), expected) << limit;
    }
  }
  // Files in /proc report size 0, like a file that grows while it is read.
  const std::string whole = tests::readAll("/proc/version");
  ASSERT_GT(whole.size(), 20U);
  EXPECT_EQ(readFile("/proc/version", whole.size()), whole);
  EXPECT_EQ(readFile("/proc/version", whole.size() - 1), std::nullopt);
  EXPECT_EQ(readFile("/proc/self/mem", SIZE_MAX), std::nullopt);  // its first page is not mapped
}

}  // namespace
}  // namespace vorlatch
