// The key file: who may read it, and what counts as none.
#include "control/access_key.h"

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <future>
#include <thread>

#include <gtest/gtest.h>

#include "control/failure.h"
#include "control/preferences_edit.h"
#include "tests/cli/control_run.h"

namespace vorlatch::tests {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr uid_t kOtherUser = 65534;

struct KeyStory : ControlStory {
  const std::string path = file(control::kAccessKeyFileName);
  const std::string known = "0123456789abcdef0123456789abcdef";

  void put(const std::string& contents, mode_t mode = 0600) const {
    writeAll(path, contents);
    chmod(path.c_str(), mode);
  }
};

TEST(AccessKey, IsMadeOnceAndOnlyForItsOwner) {
  KeyStory story;
  EXPECT_EQ(control::storedAccessKey(), std::nullopt);
  const std::string key = control::accessKey();
  EXPECT_EQ(key.size(), 32U);
  EXPECT_EQ(key.find_first_not_of("0123456789abcdef"), key.npos);
  EXPECT_EQ(readAll(story.path), key + "\n");
  EXPECT_EQ(modeOf(story.path), 0600U);
  EXPECT_EQ(control::accessKey(), key);
  EXPECT_EQ(control::storedAccessKey(), key);
}

std::ptrdiff_t openDescriptors() {
  return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
}

TEST(AccessKey, IsTheOneThatAnotherProgramMakes) {
  KeyStory story;
  std::future<std::string> key;
  {
    const Descriptor lock = control::lockPreferences();
    const std::ptrdiff_t before = openDescriptors();
    key = std::async(std::launch::async, control::accessKey);
    // Who waits for the lock has the folder open.
    const auto is_done = [&key] { return key.wait_for(0s) == std::future_status::ready; };
    while (openDescriptors() == before && !is_done()) std::this_thread::yield();
    story.put(story.known + "\n");
  }
  EXPECT_EQ(key.get(), story.known);
  EXPECT_EQ(control::storedAccessKey(), story.known);
}

TEST(AccessKey, IsReplacedByAnotherOne) {
  KeyStory story;
  const std::string first = control::accessKey();
  const std::string second = control::replaceAccessKey();
  EXPECT_NE(second, first);
  EXPECT_EQ(control::storedAccessKey(), second);
  EXPECT_EQ(modeOf(story.path), 0600U);
}

TEST(AccessKey, IsNoneInAFileOfAnotherForm) {
  KeyStory story;
  story.put(story.known + "\n");
  EXPECT_EQ(control::storedAccessKey(), story.known);
  for (const std::string& contents :
       {std::string(), story.known, story.known + "0\n", story.known + "\n\n",
        std::string("0123456789ABCDEF0123456789ABCDEF\n"),
        std::string("0123456789abcdef0123456789abcde \n"), std::string(32, '\0') + "\n"}) {
    story.put(contents);
    EXPECT_EQ(control::storedAccessKey(), std::nullopt) << contents;
  }
  EXPECT_NE(control::accessKey(), story.known);
}

TEST(AccessKey, IsNoneWhereOthersMayKnowIt) {
  KeyStory story;
  for (const mode_t mode : {0640U, 0604U, 0666U, 0620U, 0602U, 0610U}) {
    story.put(story.known + "\n", mode);
    EXPECT_EQ(control::storedAccessKey(), std::nullopt) << std::oct << mode;
  }
  story.put(story.known + "\n");
  fs::create_hard_link(story.path, story.rootPath("/second name"));
  EXPECT_EQ(control::storedAccessKey(), std::nullopt);
}

TEST(AccessKey, IsNoneBehindALinkOrInAFifo) {
  KeyStory story;
  const std::string elsewhere = story.rootPath("/elsewhere");
  writeAll(elsewhere, story.known + "\n");
  chmod(elsewhere.c_str(), 0600);
  fs::create_symlink(elsewhere, story.path);
  EXPECT_EQ(control::storedAccessKey(), std::nullopt);
  const std::string key = control::accessKey();
  EXPECT_EQ(readAll(elsewhere), story.known + "\n");
  EXPECT_EQ(fs::symlink_status(story.path).type(), fs::file_type::regular);
  fs::remove(story.path);
  ASSERT_EQ(mkfifo(story.path.c_str(), 0600), 0);
  EXPECT_EQ(control::storedAccessKey(), std::nullopt);
  EXPECT_NE(control::accessKey(), key);
  EXPECT_EQ(modeOf(story.path), 0600U);
}

TEST(AccessKey, CannotBeMadeOverAFolder) {
  KeyStory story;
  fs::create_directory(story.path);
  try {
    control::accessKey();
    FAIL() << "a key was made";
  } catch (const control::Failure& failure) {
    EXPECT_EQ(failure.status, control::kCouldNot);
    EXPECT_EQ(failure.message, story.path + ": Is a directory");
  }
  EXPECT_TRUE(fs::is_empty(story.path));
}

TEST(PrivilegedAccessKey, BelongsToTheFoldersOwner) {
  KeyStory story;
  ASSERT_EQ(chown(story.file("").c_str(), kOtherUser, kOtherUser), 0);
  const std::string key = control::accessKey();
  struct stat status {};
  ASSERT_EQ(stat(story.path.c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, kOtherUser);
  EXPECT_EQ(control::storedAccessKey(), key);
  ASSERT_EQ(chown(story.path.c_str(), kOtherUser - 1, 0), 0);
  EXPECT_EQ(control::storedAccessKey(), std::nullopt);
}

TEST(AccessKey, IsComparedAsAWhole) {
  EXPECT_TRUE(control::isSameKey("abc", "abc"));
  for (const char* other : {"", "ab", "abcd", "bbc", "abd", "ABC"}) {
    EXPECT_FALSE(control::isSameKey("abc", other)) << other;
    EXPECT_FALSE(control::isSameKey(other, "abc")) << other;
  }
}

}  // namespace
}  // namespace vorlatch::tests
