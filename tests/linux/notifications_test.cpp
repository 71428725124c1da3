// Notifications on Linux, beyond what the conformance suite holds every platform to.
#include "platform/notifications.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "platform/linux/installation.h"
#include "tests/conformance/ear.h"
#include "tests/linux/machine.h"

namespace vorlatch::conformance {
namespace {

namespace fs = std::filesystem;
using platform::postNotification;
using platform::runtimePath;
using tests::modeOf;

std::string fileOf(const std::string& name) {
  return runtimePath("notifications/") + name;
}

TEST(PrivilegedLinuxNotifications, AreOpenToOtherUsers) {
  const Ear& heard = ear("nobody");
  startMainLoop();
  // Root, too, may write to a file that is another user's.
  for (const uid_t user : {kNobody, uid_t{0}}) {
    const int before = heard.heard();
    const Child poster([&] {
      EXPECT_TRUE(user == geteuid() || setuid(user) == 0);
      EXPECT_TRUE(heard.post());
    });
    EXPECT_TRUE(heard.hearsAtLeast(before + 1));
  }
}

TEST(LinuxNotifications, UseFilesOpenToAll) {
  fs::remove_all(runtimePath(""));
  const mode_t mask = umask(077);
  EXPECT_TRUE(postNotification("linux/open"));
  umask(mask);
  EXPECT_EQ(modeOf(runtimePath(".")), 01777U);
  EXPECT_EQ(modeOf(runtimePath("notifications")), 01777U);
  EXPECT_EQ(modeOf(fileOf("linux%2fopen")), 0666U);
  // A file that was there keeps its mode.
  ASSERT_EQ(chmod(fileOf("linux%2fopen").c_str(), 0600), 0);
  EXPECT_TRUE(postNotification("linux/open"));
  EXPECT_EQ(modeOf(fileOf("linux%2fopen")), 0600U);
}

TEST(LinuxNotifications, OutliveTheirDirectory) {
  const Ear& heard = ear("recover");
  startMainLoop();
  for (int i = 0; i < 20; ++i) {
    fs::remove_all(runtimePath("notifications"));
    // Heard in any case: the observer takes a directory that went away for a post that it missed.
    EXPECT_TRUE(heard.hearsAtLeast(i + 1));
  }
  EXPECT_TRUE(heard.hearsAPost());
}

TEST(LinuxNotifications, RefuseLinksAndPipes) {
  ASSERT_TRUE(postNotification("linux.other"));
  const std::string target = runtimePath("target");
  const std::string path = fileOf("linux.other");
  fs::remove(path);
  tests::writeAll(target, "");
  fs::create_symlink(target, path);
  EXPECT_FALSE(postNotification("linux.other"));
  fs::remove(target);
  EXPECT_FALSE(postNotification("linux.other"));
  EXPECT_FALSE(fs::exists(target));
  fs::remove(path);
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);  // would hold up who opens it to write
  EXPECT_FALSE(postNotification("linux.other"));
  fs::remove(path);
}

TEST(LinuxNotifications, RefuseNamesThatNoFileCanHave) {
  EXPECT_FALSE(postNotification(""));
  EXPECT_FALSE(postNotification(std::string(300, 'n').c_str()));
  EXPECT_TRUE(postNotification(".."));
}

}  // namespace
}  // namespace vorlatch::conformance
