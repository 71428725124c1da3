// Reading a whole file, independently of its reported size.
#include <cerrno>
#include <cstdint>
#include <optional>

#include <gtest/gtest.h>

#include "base/files.h"
#include "tests/support/story.h"

namespace vorlatch {
namespace {

using tests::Story;

TEST(ReadFile, ReadsUpToExactlyTheLimit) {
  const Story story;
  const std::string path = story.file("some.file");
  tests::writeAll(path, "12345");
  EXPECT_EQ(readFile(path, 6), "12345");
  EXPECT_EQ(readFile(path, 5), "12345");
  EXPECT_EQ(readFile(path, 4), std::nullopt);
}

TEST(ReadFile, AnEmptyFileIsEmpty) {
  const Story story;
  const std::string path = story.file("some.file");
  tests::writeAll(path, "");
  EXPECT_EQ(readFile(path, 5), "");
  EXPECT_EQ(readFile(path, 0), "");
}

// Files in /proc report size 0, like a file that grows while it is read.
TEST(ReadFile, ReadsBeyondTheReportedSize) {
  const std::string path = "/proc/version";
  const std::string whole = tests::readAll(path);
  ASSERT_GT(whole.size(), 20U);
  EXPECT_EQ(readFile(path, whole.size()), whole);
  EXPECT_EQ(readFile(path, whole.size() - 1), std::nullopt);
}

TEST(ReadFile, AFileThatCannotBeReadIsNone) {
  EXPECT_EQ(readFile("/proc/self/mem", SIZE_MAX), std::nullopt);  // its first page is not mapped
}

TEST(ReadFile, IgnoresStaleErrno) {
  const Story story;
  const std::string path = story.file("some.file");
  tests::writeAll(path, "12345");
  errno = EINTR;
  EXPECT_EQ(readFile(path, 5), "12345");
}

}  // namespace
}  // namespace vorlatch
