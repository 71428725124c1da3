// Secrets that root and an ordinary user share: whose files each of them accepts.
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "base/files.h"
#include "tests/support/temporary_directory.h"

namespace vorlatch::tests {
namespace {

constexpr uid_t kOwner = 65533;
constexpr uid_t kStranger = 65534;
constexpr std::size_t kLimitBytes = 100;

// A folder of an ordinary user.
struct SecretStory {
  const TemporaryDirectory folder;
  const std::string path = folder / "secret";

  SecretStory() { giveFolderTo(kOwner); }

  void giveFolderTo(uid_t user) const { EXPECT_EQ(chown(folder.path().c_str(), user, user), 0); }

  void put(const std::string& text, uid_t owner) const {
    std::ofstream(path) << text;
    EXPECT_EQ(chmod(path.c_str(), 0600), 0);
    EXPECT_EQ(chown(path.c_str(), owner, owner), 0);
  }

  [[nodiscard]] std::string ownerAndMode() const {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) return "none";
    return std::to_string(status.st_uid) +
           (status.st_mode == (S_IFREG | 0600) ? " 0600" : " other");
  }

  [[nodiscard]] std::optional<std::string> read() const {
    return readSecretFile(path, kLimitBytes);
  }

  // Runs the work as another user, and returns its result.
  template <typename Work>
  static auto as(uid_t user, Work work) {
    EXPECT_EQ(seteuid(user), 0);
    auto result = work();
    EXPECT_EQ(seteuid(0), 0);
    return result;
  }
};

TEST(PrivilegedSecretFile, OfRootIsForTheFoldersOwner) {
  const SecretStory story;
  ASSERT_TRUE(writeSecretFile(story.path, "a"));
  EXPECT_EQ(story.ownerAndMode(), "65533 0600");
  EXPECT_EQ(story.read(), "a");
  EXPECT_EQ(SecretStory::as(kOwner, [&] { return story.read(); }), "a");
  EXPECT_EQ(SecretStory::as(kStranger, [&] { return story.read(); }), std::nullopt);
}

TEST(PrivilegedSecretFile, OfTheFoldersOwnerIsForRoot) {
  const SecretStory story;
  ASSERT_TRUE(SecretStory::as(kOwner, [&] { return writeSecretFile(story.path, "a"); }));
  EXPECT_EQ(story.ownerAndMode(), "65533 0600");
  EXPECT_EQ(story.read(), "a");
  ASSERT_TRUE(writeSecretFile(story.path, "b"));
  EXPECT_EQ(SecretStory::as(kOwner, [&] { return story.read(); }), "b");
}

TEST(PrivilegedSecretFile, IsNoneIfTheFoldersOwnerCannotRead) {
  const SecretStory story;
  for (const uid_t owner : {uid_t{0}, kStranger}) {
    story.put("a", owner);
    EXPECT_EQ(story.read(), std::nullopt) << owner;
  }
  ASSERT_TRUE(writeSecretFile(story.path, "b"));
  EXPECT_EQ(story.ownerAndMode(), "65533 0600");
}

TEST(PrivilegedSecretFile, InAFolderOfRootIsRoots) {
  const SecretStory story;
  story.giveFolderTo(0);
  ASSERT_TRUE(writeSecretFile(story.path, "a"));
  EXPECT_EQ(story.ownerAndMode(), "0 0600");
  EXPECT_EQ(story.read(), "a");
  story.put("a", kOwner);
  EXPECT_EQ(story.read(), std::nullopt);
}

TEST(PrivilegedSecretFile, OfAnotherUserIsTheirOwn) {
  const SecretStory story;
  const auto write_and_read = [&] {
    return writeSecretFile(story.path, "a") ? story.read() : "not written";
  };
  EXPECT_EQ(SecretStory::as(kStranger, write_and_read), "not written");
  ASSERT_EQ(chmod(story.folder.path().c_str(), 0777), 0);
  EXPECT_EQ(SecretStory::as(kStranger, write_and_read), "a");
  EXPECT_EQ(story.ownerAndMode(), "65534 0600");
  EXPECT_EQ(story.read(), std::nullopt);
}

}  // namespace
}  // namespace vorlatch::tests
