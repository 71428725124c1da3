#include "tests/support/story.h"

#include <filesystem>

#include <gtest/gtest.h>

#include "config/property_list_file.h"
#include "daemon/startup.h"
#include "log/log_file.h"
#include "platform/property_list.h"
#include "tests/support/stamp.h"

namespace vorlatch::tests {
namespace {

constexpr const char* kApplyNotification = "com.zel.vorlatch/ApplyLimits";

}  // namespace

Story::Story() : device(simulated::Device::get()) {
  std::filesystem::create_directories(rootPath("/usr/lib"));
  std::filesystem::create_directories(rootPath("/var/mobile/Library/Preferences"));
  // Copied, because the library derives its prefix from where it is installed.
  std::filesystem::copy_file(VORLATCH_LIBROOT, rootPath("/usr/lib/libroot.so"));
  device.root_prefix_library = rootPath("/usr/lib/libroot.so");
}

std::string Story::file(std::string_view name) const {
  return rootPath("/var/mobile/Library/Preferences/") + std::string(name);
}

void Story::writePreferences(const plist::Dictionary& preferences) const {
  ASSERT_TRUE(writePropertyList(preferencesFile(), preferences));
}

void Story::writeTargets(const plist::Dictionary& targets) const {
  writePreferences({{"Enabled", true}, {"AppConfigs", targets}});
}

std::string Story::installApp(const std::string& bundle, const plist::Value& info) const {
  const std::string directory = rootPath("/Applications/" + bundle);
  std::filesystem::create_directories(directory);
  writeAll(directory + "/Info.plist", platform::writeXmlPropertyList(info));
  return directory + "/Executable";
}

void Story::openLog() {
  vorlatch::openLog();
}

void Story::start() const {
  ASSERT_EQ(runDaemon(), 0);
  run(0ms);
}

void Story::startAndSettle() {
  start();
  run(150ms);
  takeLog();
  device.takeTrace();
}

void Story::run(std::chrono::nanoseconds duration) const {
  device.runForNs(static_cast<std::uint64_t>(duration.count()));
}

void Story::post() const {
  device.post(kApplyNotification);
}

void Story::postAndRun() const {
  post();
  run(150ms);
}

Lines Story::takeLog() {
  const std::string log = readAll(logFile());
  if (log.size() < log_read_) log_read_ = 0;  // the log was cleared
  std::istringstream unread(log.substr(log_read_));
  log_read_ = log.size();
  Lines lines;
  for (std::string line; std::getline(unread, line);) {
    EXPECT_TRUE(isStamped(line)) << line;
    lines.push_back(line.size() > kStampLength ? line.substr(kStampLength) : line);
  }
  return lines;
}

Lines Story::rereadLog() {
  log_read_ = 0;
  return takeLog();
}

Lines Story::takeCalls() const {
  return device.takeTrace({"memorystatus_control", "getpriority", "setpriority"});
}

plist::Dictionary Story::status() const {
  return readDictionary(statusFile());
}

std::size_t openFiles() {
  const std::filesystem::directory_iterator descriptors("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors)));
}

}  // namespace vorlatch::tests
