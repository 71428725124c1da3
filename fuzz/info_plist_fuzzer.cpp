// Feeds whole Info.plist files to each process look-up.
#include <unistd.h>

#include <filesystem>

#include <gtest/gtest.h>

#include "fuzz/support/fuzzer.h"
#include "fuzz/support/scene.h"
#include "proc/process_lookup.h"
#include "tests/support/story.h"

namespace vorlatch::fuzz {
namespace {

struct EmptyDevice : tests::Story {
  EmptyDevice() {
    device.is_tracing = false;
    device.exit(getpid());
  }
};

// Like the daemon, does not care whether the values of other keys are readable.
std::string identifierIn(std::string_view bytes) {
  constexpr const char* kKey = "CFBundleIdentifier";
  const plist::Dictionary info = dictionaryIn(bytes, kKey).value_or(plist::Dictionary());
  const plist::Value* value = plist::find(info, kKey);
  const auto* text = value != nullptr ? value->as<std::string>() : nullptr;
  return text != nullptr ? *text : std::string();
}

// Expects to find the process by its identifier and its name, and by nothing else.
void expectFound(std::int32_t pid, const std::string& identifier) {
  RunningProcessMap expected{{"X", pid}};
  if (!identifier.empty()) expected.insert_or_assign(identifier, pid);
  EXPECT_EQ(getRunningProcessMap(), expected);
  EXPECT_EQ(runningProcessMapOf(listRunningProcesses()), expected);
  EXPECT_EQ(getPIDForBundleID("X"), pid);
  if (!identifier.empty()) EXPECT_EQ(getPIDForBundleID(identifier), pid);
  EXPECT_EQ(getPIDForBundleID("none such"), identifier == "none such" ? pid : 0);
}

}  // namespace

const Words& vocabulary() {
  static const Words words{"CFBundleIdentifier",
                           "CFBundleName",
                           "com.example.app",
                           "none such",
                           "X",
                           "",
                           "a.b",
                           "中文",
                           "\x1b[2J"};
  return words;
}

void feed(std::string_view input) {
  static EmptyDevice& story = *new EmptyDevice;
  // The daemon caches identifiers for its lifetime, so each input gets a new bundle.
  static int bundles = 0;
  const std::filesystem::path bundle = story.rootPath("/X" + std::to_string(++bundles) + ".app");
  const std::string info = bundle / "Info.plist";
  std::filesystem::create_directory(bundle);
  const std::int32_t pid =
      story.device.launch({.name = "X", .executable_path = bundle / "X", .pid = 100});
  tests::writeAll(info, input);
  const std::string identifier = identifierIn(input);
  expectFound(pid, identifier);
  // An identifier that was found is cached; a file without one is read again.
  tests::writeAll(
      info, "<plist><dict><key>CFBundleIdentifier</key><string>mended</string></dict></plist>");
  expectFound(pid, identifier.empty() ? "mended" : identifier);
  story.device.exit(pid);
  std::filesystem::remove_all(bundle);
}

}  // namespace vorlatch::fuzz
