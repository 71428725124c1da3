#include "rootprefix/libroot.h"

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "rootprefix/pref_path.h"
#include "tests/simulated/device.h"
#include "tests/support/scarce_memory.h"

namespace vorlatch {
namespace {

// What a path is mapped to in a block of the function's own.
std::string inOwnBlock(const char* resolved) {
  const std::unique_ptr<const char, void (*)(const char*)> block(
      resolved, [](const char* text) { std::free(const_cast<char*>(text)); });
  return block != nullptr ? block.get() : "(null)";
}

TEST(RootPrefixWithoutLibrary, GettersGiveTheFallbacks) {
  EXPECT_STREQ(libroot_get_root_prefix(), "");
  EXPECT_STREQ(libroot_get_jbroot_prefix(), "/var/jb");
  EXPECT_STREQ(libroot_get_boot_uuid(), "00000000-0000-0000-0000-000000000000");
  EXPECT_EQ(getPrefPath("Vorlatch.log"), "/var/jb/var/mobile/Library/Preferences/Vorlatch.log");
}

TEST(RootPrefixWithoutLibrary, BuildersMapAbsolutePathsUpToTheBuffer) {
  const std::string long_path = "/" + std::string(2000, 'x');
  struct Case {
    const char* (*build)(const char* path, char* resolved);
    std::string path;
    std::string resolved;
  };
  const Case cases[] = {
      {libroot_jbrootpath, "/var/mobile/x", "/var/jb/var/mobile/x"},
      {libroot_jbrootpath, "usr/lib", "usr/lib"},
      {libroot_jbrootpath, "", ""},
      {libroot_jbrootpath, long_path, ("/var/jb" + long_path).substr(0, 1023)},
      {libroot_jbrootpath, long_path.substr(1), long_path.substr(1, 1023)},
      {libroot_rootfspath, "/var/jb/usr/lib", "/usr/lib"},
      {libroot_rootfspath, "/etc/hosts", "/etc/hosts"},
      {libroot_rootfspath, "/var/jbx", "x"},  // any path that begins with the prefix is cut
      {libroot_rootfspath, "/var/jb", ""},
      {libroot_rootfspath, "usr/lib", "usr/lib"},
      {libroot_rootfspath, "", ""},
      {libroot_rootfspath, long_path, long_path.substr(0, 1023)},
  };
  for (const auto& [build, path, resolved] : cases) {
    EXPECT_EQ(inOwnBlock(build(path.c_str(), nullptr)), resolved) << path;
    char buffer[kPathBufferBytes] = "untouched";
    EXPECT_EQ(build(nullptr, buffer), nullptr);
    EXPECT_EQ(build(nullptr, nullptr), nullptr);
    EXPECT_STREQ(buffer, "untouched");
    EXPECT_EQ(build(path.c_str(), buffer), buffer);
    EXPECT_EQ(buffer, resolved);
  }
}

#ifndef VORLATCH_SANITIZED
TEST(RootPrefixWithoutLibrary, WithoutMemoryForABlockThereIsNoPath) {
  libroot_get_root_prefix();  // everything is loaded
  struct Block {
    void* next;
    char rest[kPathBufferBytes - sizeof(void*)];
  };
  void* taken = nullptr;
  const char* resolved = "a path";
  {
    const tests::ScarceMemory memory(0);
    while (void* const last = std::malloc(sizeof(Block))) taken = new (last) Block{taken, {}};
    resolved = libroot_jbrootpath("/x", nullptr);
  }
  while (taken != nullptr) std::free(std::exchange(taken, static_cast<Block*>(taken)->next));
  EXPECT_EQ(resolved, nullptr);
}
#endif

TEST(RootPrefixWithLibrary, MissingFunctionAloneUsesItsFallback) {
  simulated::Device::get().root_prefix_library = VORLATCH_PARTIAL_LIBROOT;
  EXPECT_STREQ(libroot_get_root_prefix(), "/rootfs");
  EXPECT_STREQ(libroot_get_jbroot_prefix(), "/jailbreak");
  EXPECT_STREQ(libroot_get_boot_uuid(), "00000000-0000-0000-0000-000000000000");
  EXPECT_EQ(inOwnBlock(libroot_jbrootpath("/x", nullptr)), "/jailbreak/x");
  EXPECT_EQ(inOwnBlock(libroot_rootfspath("/jailbreak/x", nullptr)), "/x");
  EXPECT_EQ(inOwnBlock(libroot_rootfspath("/x", nullptr)), "/rootfs/x");
  EXPECT_EQ(inOwnBlock(libroot_jbrootpath("x", nullptr)), "x");
  EXPECT_EQ(inOwnBlock(libroot_rootfspath("x", nullptr)), "x");
}

TEST(RootPrefixWithLibrary, APathThatItCannotResolveIsNone) {
  simulated::Device::get().root_prefix_library = VORLATCH_REFUSING_LIBROOT;
  EXPECT_STREQ(libroot_get_boot_uuid(), "11111111-2222-3333-4444-555555555555");
  EXPECT_STREQ(libroot_rootfspath("/x", nullptr), "rootfspath of the library");
  EXPECT_EQ(libroot_jbrootpath("/x", nullptr), nullptr);
  EXPECT_EQ(getPrefPath("Vorlatch.log"), std::nullopt);
}

TEST(RootPrefixWithLibrary, APathThatIsNoTextIsNone) {
  simulated::Device::get().root_prefix_library = VORLATCH_GARBLING_LIBROOT;
  EXPECT_EQ(getPrefPath("Vorlatch.log"), std::nullopt);
}

}  // namespace
}  // namespace vorlatch
