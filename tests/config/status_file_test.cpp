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

TEST(StatusFile, KeysAreWrittenAsTheyAre) {
  Story story;
  Dictionary all;
  for (const std::string& key :
       {std::string("%s %n <&> \"微信\"\nnext/../path"), std::string(), std::string(10000, 'k')}) {
    updateStatusFile(key, 1, 2, 3);
    all.insert_or_assign(key, Dictionary{{"pid", 1}, {"n", 2}, {"p", 3}});
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
  const fs::directory_iterator files(story.file(""));
  EXPECT_EQ(std::distance(begin(files), end(files)), 1);
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
