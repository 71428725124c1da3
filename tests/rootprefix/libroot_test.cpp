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

struct InBuffer {
  char bytes[kPathBufferBytes];
};

TEST(RootPrefixWithoutLibrary, GettersGiveTheFallbacks) {
  EXPECT_STREQ(libroot_get_root_prefix(), "");
  EXPECT_STREQ(libroot_get_jbroot_prefix(), "/var/jb");
  EXPECT_STREQ(libroot_get_boot_uuid(), "00000000-0000-0000-0000-000000000000");
}

TEST(RootPrefixWithoutLibrary, AnAbsolutePathIsPutUnderVarJb) {
  InBuffer buffer{};
  EXPECT_EQ(libroot_jbrootpath("/var/mobile/x", buffer.bytes), buffer.bytes);
  EXPECT_STREQ(buffer.bytes, "/var/jb/var/mobile/x");
  EXPECT_EQ(inOwnBlock(libroot_jbrootpath("/var/mobile/x", nullptr)), "/var/jb/var/mobile/x");
}

TEST(RootPrefixWithoutLibrary, ARelativePathIsUnchangedByBothBuilders) {
  EXPECT_EQ(inOwnBlock(libroot_jbrootpath("usr/lib", nullptr)), "usr/lib");
  EXPECT_EQ(inOwnBlock(libroot_rootfspath("usr/lib", nullptr)), "usr/lib");
  EXPECT_EQ(inOwnBlock(libroot_jbrootpath("", nullptr)), "");
  EXPECT_EQ(inOwnBlock(libroot_rootfspath("", nullptr)), "");
}

TEST(RootPrefixWithoutLibrary, RootBuilderCutsAnyMatchingPrefix) {
  InBuffer buffer{};
  EXPECT_EQ(libroot_rootfspath("/var/jb/usr/lib", buffer.bytes), buffer.bytes);
  EXPECT_STREQ(buffer.bytes, "/usr/lib");
  EXPECT_EQ(inOwnBlock(libroot_rootfspath("/etc/hosts", nullptr)), "/etc/hosts");
  EXPECT_EQ(inOwnBlock(libroot_rootfspath("/var/jbx", nullptr)), "x");
  EXPECT_EQ(inOwnBlock(libroot_rootfspath("/var/jb", nullptr)), "");
}

TEST(RootPrefixWithoutLibrary, ANullPathGivesANullResult) {
  EXPECT_EQ(libroot_jbrootpath(nullptr, nullptr), nullptr);
  EXPECT_EQ(libroot_rootfspath(nullptr, nullptr), nullptr);
  InBuffer buffer{"untouched"};
  EXPECT_EQ(libroot_jbrootpath(nullptr, buffer.bytes), nullptr);
  EXPECT_EQ(libroot_rootfspath(nullptr, buffer.bytes), nullptr);
  EXPECT_STREQ(buffer.bytes, "untouched");
}

TEST(RootPrefixWithoutLibrary, ALongPathIsCutShort) {
  const std::string path = "/" + std::string(2000, 'x');
  const std::string mapped = inOwnBlock(libroot_jbrootpath(path.c_str(), nullptr));
  EXPECT_EQ(mapped, ("/var/jb" + path).substr(0, 1023));
  EXPECT_EQ(inOwnBlock(libroot_rootfspath(path.c_str(), nullptr)), path.substr(0, 1023));
  EXPECT_EQ(inOwnBlock(libroot_jbrootpath(path.c_str() + 1, nullptr)), path.substr(1, 1023));
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

TEST(RootPrefixWithoutLibrary, TheDaemonsFilesAreUnderVarJb) {
  EXPECT_EQ(getPrefPath("Vorlatch.log"), "/var/jb/var/mobile/Library/Preferences/Vorlatch.log");
}

TEST(RootPrefixWithLibrary, EveryFunctionIsTheLibrarys) {
  simulated::Device::get().root_prefix_library = VORLATCH_WHOLE_LIBROOT;
  EXPECT_STREQ(libroot_get_root_prefix(), "/rootfs");
  EXPECT_STREQ(libroot_get_jbroot_prefix(), "/jailbreak");
  EXPECT_STREQ(libroot_get_boot_uuid(), "11111111-2222-3333-4444-555555555555");
  EXPECT_STREQ(libroot_jbrootpath("/x", nullptr), "jbrootpath of the library");
  EXPECT_STREQ(libroot_rootfspath("/x", nullptr), "rootfspath of the library");
  EXPECT_EQ(getPrefPath("Vorlatch.log"), "jbrootpath of the library");
}

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

TEST(RootPrefixWithLibrary, APathThatTheLibraryCannotResolveIsNone) {
  simulated::Device::get().root_prefix_library = VORLATCH_REFUSING_LIBROOT;
  EXPECT_EQ(getPrefPath("Vorlatch.log"), std::nullopt);
}

TEST(RootPrefixWithLibrary, APathThatIsNoTextIsNone) {
  simulated::Device::get().root_prefix_library = VORLATCH_GARBLING_LIBROOT;
  EXPECT_EQ(getPrefPath("Vorlatch.log"), std::nullopt);
}

}  // namespace
}  // namespace vorlatch
