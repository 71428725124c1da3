#include "platform/system_paths.h"

#include <algorithm>
#include <filesystem>

#include <gtest/gtest.h>

#include "base/files.h"
#include "platform/property_list.h"

namespace vorlatch::conformance {
namespace {

namespace fs = std::filesystem;

// Other systems name the same places in the jailbreak root, which a build folder lacks.
#ifdef __APPLE__
constexpr bool kIsDevice = true;
#else
constexpr bool kIsDevice = false;
#endif

// Returns the first language that the user chose; empty if there is none.
std::string firstLanguage() {
  constexpr const char* kLanguages = "AppleLanguages";
  constexpr std::size_t kMostBytes = 1'000'000;
  const auto bytes = readFile(platform::globalPreferencesPath(), kMostBytes);
  const auto root = bytes ? platform::parsePropertyList(*bytes, kLanguages) : std::nullopt;
  const auto* preferences = root ? root->as<plist::Dictionary>() : nullptr;
  if (preferences == nullptr || preferences->empty()) return {};
  const auto* languages = preferences->begin()->second.as<plist::Array>();
  if (languages == nullptr || languages->empty()) return {};
  const auto* first = languages->front().as<std::string>();
  return first != nullptr ? *first : std::string();
}

TEST(SystemPaths, AreAbsolute) {
  std::vector<std::string> paths = platform::applicationDirectories();
  EXPECT_FALSE(paths.empty());
  paths.push_back(platform::crashReportDirectory());
  paths.push_back(platform::globalPreferencesPath());
  for (const std::string& path : paths) {
    EXPECT_TRUE(path.starts_with('/')) << path;
    EXPECT_EQ(fs::path(path).lexically_normal().string(), path);
    EXPECT_EQ(std::ranges::count(paths, path), 1) << path;
  }
}

TEST(SystemPaths, AreThereOnDevice) {
  const auto apps = platform::applicationDirectories();
  const auto is_folder = [](const std::string& path) { return fs::is_directory(path); };
  EXPECT_EQ(std::ranges::any_of(apps, is_folder), kIsDevice);
  EXPECT_EQ(is_folder(platform::crashReportDirectory()), kIsDevice);
  EXPECT_EQ(!firstLanguage().empty(), kIsDevice);
}

}  // namespace
}  // namespace vorlatch::conformance
