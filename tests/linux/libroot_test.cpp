// The root-prefix library of an installed tree, loaded from copies in trees of its own.
#include <dlfcn.h>

#include <array>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "platform/root_prefix_library.h"
#include "tests/linux/machine.h"
#include "tests/support/files.h"

namespace vorlatch {
namespace {

class Library {
 public:
  // Loads by the name, which may be relative; the copy stands at the path.
  Library(const std::string& path, const std::string& name) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::filesystem::copy_file(VORLATCH_LIBROOT, path);
    handle_ = dlopen(name.c_str(), RTLD_NOW);
    EXPECT_NE(handle_, nullptr) << dlerror();
  }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;
  ~Library() {
    if (handle_ != nullptr) dlclose(handle_);
  }

  template <typename Function>
  [[nodiscard]] Function symbol(const char* name) const {
    const auto function = reinterpret_cast<Function>(dlsym(handle_, name));
    EXPECT_NE(function, nullptr) << name;
    return function;
  }
  [[nodiscard]] const char* get(const char* name) const {
    return symbol<const char* (*)()>(name)();
  }
  // Into a buffer of the caller's, or into a new block.
  [[nodiscard]] char* resolve(const char* name, const char* path, char* buffer) const {
    return symbol<char* (*)(const char*, char*)>(name)(path, buffer);
  }

 private:
  void* handle_ = nullptr;
};

constexpr const char* kJbroot = "libroot_jbrootpath";
constexpr const char* kRootfs = "libroot_rootfspath";

TEST(Libroot, FindsItsTreeAndGivesLastingTexts) {
  std::string boot_id = bootId();
  for (char& c : boot_id) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  const TemporaryDirectory directory;
  std::filesystem::create_directory_symlink("real", directory / "link");
  std::filesystem::create_directories(directory / "moved/usr/lib");
  const auto before = std::filesystem::current_path();
  struct Case {
    const char* copy;
    std::string loaded_as;
    const char* root;
  };
  const Case cases[] = {{"jb/usr/lib/libroot.so", directory / "jb/usr/lib/libroot.so", "jb"},
                        {"lib/libroot.so", directory / "lib/libroot.so", "lib"},
                        {"real/usr/lib/libroot.so", directory / "link/usr/lib/libroot.so", "real"},
                        {"moved/usr/lib/libroot.so", "./lib/libroot.so", "moved"}};
  for (const Case& c : cases) {
    std::filesystem::current_path(directory / "moved/usr");
    const Library library(directory / c.copy, c.loaded_as);
    // It does not matter that the program has changed its directory since.
    std::filesystem::current_path(before);
    EXPECT_EQ(library.get("libroot_get_jbroot_prefix"), directory / c.root);
    EXPECT_STREQ(library.get("libroot_get_root_prefix"), "");
    EXPECT_EQ(library.get("libroot_get_boot_uuid"), boot_id);
    for (const char* name :
         {"libroot_get_root_prefix", "libroot_get_jbroot_prefix", "libroot_get_boot_uuid"}) {
      EXPECT_EQ(static_cast<const void*>(library.get(name)), library.get(name)) << name;
    }
  }
}

TEST(Libroot, MapsPathsIntoItsTreeAndBack) {
  const TemporaryDirectory directory;
  const std::string jb = directory / "jb";
  const Library library(jb + "/usr/lib/libroot.so", jb + "/usr/lib/libroot.so");
  struct Case {
    const char* function;
    std::string path;
    std::string resolved;
  };
  const std::string long_path = "/" + std::string(2000, 'p');
  const Case cases[] = {
      {kJbroot, "/", jb + "/"},
      {kJbroot, "//twice", jb + "//twice"},
      {kJbroot, "relative/x", "relative/x"},
      {kJbroot, "", ""},
      {kRootfs, jb + "/usr/lib", "/usr/lib"},
      {kRootfs, jb, "/"},
      {kRootfs, jb + "x/y", jb + "x/y"},
      {kRootfs, "/etc/hosts", "/etc/hosts"},
      {kRootfs, "relative/x", "relative/x"},
      {kRootfs, "", ""},
      // What does not fit is cut at the buffer's end.
      {kJbroot, long_path, (jb + long_path).substr(0, 1023)},
      {kRootfs, long_path, long_path.substr(0, 1023)},
  };
  for (const Case& c : cases) {
    std::array<char, 1026> buffer{};
    buffer.fill('#');
    EXPECT_EQ(library.resolve(c.function, c.path.c_str(), buffer.data()), buffer.data());
    EXPECT_EQ(buffer.data(), c.resolved) << c.path;
    EXPECT_EQ(buffer[1024], '#');
    const std::unique_ptr<char, decltype(&std::free)> fresh(
        library.resolve(c.function, c.path.c_str(), nullptr), &std::free);
    EXPECT_EQ(fresh.get(), c.resolved);
  }
  for (const char* function : {kJbroot, kRootfs}) {
    EXPECT_EQ(library.resolve(function, nullptr, nullptr), nullptr);
  }
}

TEST(Libroot, ExportsFiveFunctionsUnderItsName) {
  EXPECT_EQ(std::filesystem::path(VORLATCH_LIBROOT).filename(), platform::rootPrefixLibraryName());
  const std::unique_ptr<FILE, decltype(&pclose)> names(
      popen(VORLATCH_NM " -D --defined-only --format=posix " VORLATCH_LIBROOT
                        " | cut -d ' ' -f 1 | sort",
            "r"),
      &pclose);
  ASSERT_TRUE(names);
  std::array<char, 512> text{};
  fread(text.data(), 1, text.size() - 1, names.get());
  EXPECT_STREQ(text.data(),
               "libroot_get_boot_uuid\nlibroot_get_jbroot_prefix\nlibroot_get_root_prefix\n"
               "libroot_jbrootpath\nlibroot_rootfspath\n");
}

}  // namespace
}  // namespace vorlatch
