#include "tests/blackbox/installation.h"

#include <poll.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <utility>

#include "config/preferences.h"
#include "config/status_file.h"
#include "log/log_file.h"
#include "platform/property_list.h"
#include "tests/base/describe.h"
#include "tests/support/files.h"
#include "tests/support/stamp.h"

namespace vorlatch {
namespace {

namespace fs = std::filesystem;

constexpr const char* kDaemon = "usr/libexec/vorlatchd";
constexpr const char* kControl = "usr/bin/vorlatchctl";
constexpr const char* kSanitizerReport = "sanitizer-report";

// Once for the size cap and once for the targets.
constexpr int kReadsOfAPass = 2;

std::string withoutStamp(const std::string& line) {
  return isStamped(line) ? line.substr(kStampLength) : "(no stamp) " + line;
}

}  // namespace

Installation::Installation() : files_(path("var/mobile/Library/Preferences")) {
  fs::permissions(root_.path(), fs::perms(0755));  // a daemon of another user has to get in
  const std::pair<const char*, const char*> installed[] = {
      {VORLATCH_DAEMON, kDaemon},
      {VORLATCH_CONTROL, kControl},
      {VORLATCH_LIBROOT, "usr/lib/libroot.so"}};
  for (const auto& [built, place] : installed) {
    fs::create_directories(fs::path(path(place)).parent_path());
    fs::copy_file(built, path(place));
  }
  fs::create_directories(files_);
  watchFiles();
  writePreferences(plist::Dictionary{{"Enabled", true}, {"AppConfigs", plist::Dictionary{}}});
}

Installation::~Installation() {
  EXPECT_TRUE(daemon_ == nullptr || isRunning()) << "the daemon died by itself";
  daemon_.reset();
  for (const std::string& name : filesIn(root_.path())) {
    if (name.starts_with(kSanitizerReport)) ADD_FAILURE() << tests::readAll(path(name));
  }
}

std::string Installation::preferencesPath() const {
  return files_ + "/" + kPreferencesFileName;
}
std::string Installation::statusPath() const {
  return files_ + "/" + kStatusFileName;
}
std::string Installation::logPath() const {
  return files_ + "/" + kLogFileName;
}

void Installation::useFilesIn(const std::string& directory) {
  files_ = directory;
  watchFiles();
}

void Installation::start(const Launch& launch) {
  const int passes_before = passes();
  startWithoutWaiting(launch);
  EXPECT_TRUE(waitForPasses(passes_before + 1)) << "no first pass";
  waitUntilPostsAreHeard();
}

void Installation::startWithoutWaiting(const Launch& launch) {
  daemon_ = std::make_unique<ChildProcess>(path(kDaemon), withReportsBeside(launch));
}

// No event tells of it: between two looks only the daemon's end is waited for.
void Installation::waitUntilPostsAreHeard() const {
  constexpr int kBetweenLooksMs = 5;
  const auto deadline = Clock::now() + kPatience;
  while (!watchesSomething(daemon())) {
    pollfd end{.fd = daemonEnd(), .events = POLLIN, .revents = 0};
    ASSERT_EQ(poll(&end, 1, kBetweenLooksMs), 0) << "the daemon died by itself";
    ASSERT_LT(Clock::now(), deadline) << "the daemon does not listen";
  }
}

void Installation::stop() {
  EXPECT_TRUE(isRunning()) << "the daemon died by itself";
  daemon_.reset();
}

pid_t Installation::daemon() const {
  EXPECT_NE(daemon_, nullptr);
  return daemon_ ? daemon_->pid() : -1;
}

std::unique_ptr<ChildProcess> Installation::startControl(Launch launch) const {
  launch.gives_output = true;
  return std::make_unique<ChildProcess>(path(kControl), withReportsBeside(std::move(launch)));
}

Launch Installation::withReportsBeside(Launch launch) const {
  for (const char* name : {"ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"}) {
    const char* options = std::getenv(name);
    launch.environment[name] = (options != nullptr ? std::string(options) + ":" : "") +
                               "log_path=" + path(kSanitizerReport);
  }
  return launch;
}

void Installation::writePreferences(const plist::Value& value) const {
  writePreferencesBytes(platform::writeXmlPropertyList(value));
}

void Installation::writePreferencesBytes(const std::string& bytes) const {
  // Within one file system: between two a file cannot be moved into place.
  const std::string temporary = preferencesPath() + ".edited";
  tests::writeAll(temporary, bytes);
  fs::rename(temporary, preferencesPath());
}

Lines Installation::log() const {
  const std::string text = tests::readAll(logPath());
  Lines lines;
  std::size_t start = 0;
  for (std::size_t end = text.find('\n'); end != text.npos; end = text.find('\n', start)) {
    lines.push_back(withoutStamp(text.substr(start, end - start)));
    start = end + 1;
  }
  return lines;
}

Lines Installation::logBehind(std::size_t count, std::size_t expected) {
  Lines lines;
  waitUntil([&] {
    lines = log();
    return lines.size() >= count + expected;
  });
  return {lines.begin() + static_cast<std::ptrdiff_t>(std::min(count, lines.size())), lines.end()};
}

bool Installation::waitForLog(std::size_t count, std::string_view text) {
  return waitUntil([&] {
    const Lines lines = log();
    return std::any_of(lines.begin() + static_cast<std::ptrdiff_t>(std::min(count, lines.size())),
                       lines.end(),
                       [&](const std::string& line) { return line.find(text) != line.npos; });
  });
}

std::string Installation::status() const {
  if (!fs::exists(statusPath())) return "missing";
  const auto value = platform::parsePropertyList(tests::readAll(statusPath()));
  return value ? test::describe(*value) : "unparsable";
}

std::string Installation::statusOnce(const std::string& expected) {
  std::string seen;
  waitUntil([&] {
    seen = status();
    return seen == expected;
  });
  return seen;
}

int Installation::passes() {
  return watch_->readsOf(kPreferencesFileName) / kReadsOfAPass;
}

bool Installation::waitForPasses(int count) {
  const auto deadline = Clock::now() + kPatience;
  while (passes() < count) {
    if (!watch_->waitForRead(deadline, daemonEnd())) return passes() >= count;
  }
  return true;
}

bool Installation::pass() {
  const int passes_before = passes();
  post();
  return waitForPasses(passes_before + 1);
}

bool Installation::waitForRemoval(const std::string& prefix) {
  return waitUntil([&] { return watch_->removalsOf(prefix) > 0; });
}

bool Installation::waitForQuiet() {
  const auto deadline = Clock::now() + kPatience;
  while (Clock::now() < deadline) {
    if (watch_->staysQuietFor(kQuiet)) return true;
  }
  return false;
}

bool Installation::waitUntil(const std::function<bool()>& happened) {
  const auto deadline = Clock::now() + kPatience;
  while (!happened()) {
    if (!watch_->waitForChange(deadline, daemonEnd())) return happened();
  }
  return true;
}

Lines filesIn(const std::string& directory) {
  Lines names;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(directory, error)) {
    names.push_back(entry.path().filename());
  }
  EXPECT_FALSE(error) << directory << ": " << error.message();
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace vorlatch
