// Whole Info.plist files through both look-ups.
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "proc/process_lookup.h"
#include "tests/support/story.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static vorlatch::tests::Story& story = *new vorlatch::tests::Story;
  // A bundle is read once in the daemon's life, so each input is a bundle of its own.
  static int bundles = 0;
  const std::filesystem::path directory = story.rootPath("/X" + std::to_string(++bundles) + ".app");
  std::filesystem::create_directory(directory);
  vorlatch::tests::writeAll(directory / "Info.plist",
                            std::string_view(reinterpret_cast<const char*>(data), size));
  const auto pid =
      story.device.launch({.name = "X", .executable_path = (directory / "X").string()});
  story.device.is_tracing = false;
  vorlatch::getPIDForBundleID("com.example");
  vorlatch::getRunningProcessMap();
  story.device.exit(pid);
  std::filesystem::remove_all(directory);
  return 0;
}
