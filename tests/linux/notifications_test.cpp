#include "platform/notifications.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "platform/linux/installation.h"
#include "tests/conformance/driver.h"

namespace {

using vorlatch::conformance::changed;
using vorlatch::conformance::runUntil;
using vorlatch::platform::observeNotification;
using vorlatch::platform::postNotification;
using vorlatch::platform::runtimePath;

constexpr std::uint64_t kLong = 60'000'000'000;
constexpr uid_t kNobody = 65534;

int heard_count = 0;

void listen(const char* name) {
  observeNotification(name, [] { changed([] { ++heard_count; }); });
}

bool hearsAtLeast(int count) {
  return runUntil([count] { return heard_count >= count; }, kLong);
}

std::string directory() {
  return runtimePath("notifications");
}

mode_t modeOf(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

// Posts from another process, of the user given; whether that worked.
bool postsFromAnotherProcess(const char* name, uid_t user) {
  const pid_t child = fork();
  if (child == 0) _exit((user == geteuid() || setuid(user) == 0) && postNotification(name) ? 0 : 1);
  int status = -1;
  return waitpid(child, &status, 0) == child && status == 0;
}

TEST(LinuxNotifications, AnotherProcessIsHeard) {
  listen("linux.another");
  vorlatch::conformance::startMainLoop();
  EXPECT_TRUE(postsFromAnotherProcess("linux.another", geteuid()));
  EXPECT_TRUE(hearsAtLeast(1));
}

TEST(LinuxNotifications, TheDirectoryAndItsFilesAreOpenToAll) {
  std::filesystem::remove_all(runtimePath(""));
  const mode_t mask = umask(077);
  EXPECT_TRUE(postNotification("linux/open"));
  umask(mask);
  EXPECT_EQ(modeOf(runtimePath(".")), 01777U);
  EXPECT_EQ(modeOf(directory()), 01777U);
  EXPECT_EQ(modeOf(directory() + "/linux%2fopen"), 0666U);
}

TEST(LinuxNotifications, ThePostsAfterTheDirectoryWasMadeAnewAreHeard) {
  listen("linux.recover");
  vorlatch::conformance::startMainLoop();
  for (int i = 0; i < 20; ++i) {
    std::filesystem::remove_all(directory());
    // Heard in any case: the observer takes a directory that went away for a post that it missed.
    EXPECT_TRUE(hearsAtLeast(i + 1));
  }
  int before = 0;
  changed([&] { before = heard_count; });
  EXPECT_TRUE(postNotification("linux.recover"));
  EXPECT_TRUE(hearsAtLeast(before + 1));
}

TEST(LinuxNotifications, NoLinkIsFollowed) {
  ASSERT_TRUE(postNotification("linux.link"));
  const std::string target = runtimePath("target");
  const std::string link = directory() + "/linux.link";
  ASSERT_GE(creat(target.c_str(), 0600), 0);
  std::filesystem::remove(link);
  std::filesystem::create_symlink(target, link);
  EXPECT_FALSE(postNotification("linux.link"));
  std::filesystem::remove(target);
  EXPECT_FALSE(postNotification("linux.link"));
  EXPECT_FALSE(std::filesystem::exists(target));
  std::filesystem::remove(link);
}

TEST(LinuxNotifications, AFileThatWasThereKeepsItsMode) {
  ASSERT_TRUE(postNotification("linux.mode"));
  const std::string path = directory() + "/linux.mode";
  ASSERT_EQ(chmod(path.c_str(), 0600), 0);
  EXPECT_TRUE(postNotification("linux.mode"));
  EXPECT_EQ(modeOf(path), 0600U);
  std::filesystem::remove(path);
}

TEST(LinuxNotifications, AnotherKindOfFileDoesNotHoldUpAPost) {
  ASSERT_TRUE(postNotification("linux.pipe"));
  const std::string path = directory() + "/linux.pipe";
  std::filesystem::remove(path);
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  EXPECT_FALSE(postNotification("linux.pipe"));
  std::filesystem::remove(path);
}

TEST(LinuxNotifications, ANameThatNoFileCanHaveIsRefused) {
  EXPECT_FALSE(postNotification(""));
  EXPECT_FALSE(postNotification(std::string(300, 'n').c_str()));
  EXPECT_TRUE(postNotification(".."));
}

TEST(PrivilegedLinuxNotifications, AnUnprivilegedUserMayPost) {
  listen("linux.nobody");
  vorlatch::conformance::startMainLoop();
  EXPECT_TRUE(postsFromAnotherProcess("linux.nobody", kNobody));
  EXPECT_TRUE(hearsAtLeast(1));
  // And so may root, with a file that is another user's.
  EXPECT_TRUE(postsFromAnotherProcess("linux.nobody", 0));
  EXPECT_TRUE(hearsAtLeast(2));
}

}  // namespace
