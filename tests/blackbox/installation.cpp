#include "tests/blackbox/installation.h"

#include <poll.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <sstream>
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

constexpr int kReadsOfAPass = 2;  // for the size cap and for the targets
constexpr int kBetweenLooksMs = 5;

}  // namespace

Installation::Installation() : files_(path("var/mobile/Library/Preferences")) {
  fs::permissions(root_.path(), fs::perms(0755));  // a daemon of another user has to get in
  const std::pair<const char*, const char*> installed[] = {
      {VORLATCH_DAEMON, kDaemon},
      {VORLATCH_CONTROL, kControl},
      {VORLATCH_WEB, "usr/libexec/vorlatchweb"},
      {VORLATCH_LIBROOT, "usr/lib/libroot.so"}};
  for (const auto& [built, place] : installed) {
    fs::create_directories(fs::path(path(place)).parent_path());
    fs::copy_file(built, path(place));
  }
  fs::create_directories(files_);
  watch_ = std::make_unique<DirectoryWatch>(files_);
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

void Installation::start(const Launch& launch) {
  const int passes_before = passes();
  startWithoutWaiting(launch);
  EXPECT_TRUE(waitUntil([&] { return passes() > passes_before; })) << "no first pass";
  waitUntilPostsAreHeard();
}

void Installation::startWithoutWaiting(const Launch& launch) {
  daemon_ = std::make_unique<ChildProcess>(path(kDaemon), withReportsBeside(launch));
}

void Installation::waitUntilPostsAreHeard() const {
  ASSERT_TRUE(waitUntil([this] { return watchesSomething(daemon()); })) << "it does not listen";
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
  // Beside the file, because a file cannot be moved to another file system.
  const std::string temporary = preferencesPath() + ".edited";
  tests::writeAll(temporary, platform::writeXmlPropertyList(value));
  fs::rename(temporary, preferencesPath());
}

Lines Installation::linesLeft() const {
  std::istringstream log(tests::readAll(logPath()));
  Lines lines;
  std::size_t count = 0;
  for (std::string line; std::getline(log, line) && !log.eof();) {
    if (++count <= lines_taken_) continue;
    lines.push_back(isStamped(line) ? line.substr(kStampLength) : "(no stamp) " + line);
  }
  return lines;
}

Lines Installation::nextLines(std::size_t count) {
  waitUntil([&] { return linesLeft().size() >= count; });
  Lines lines = linesLeft();
  lines.resize(std::min(lines.size(), count));
  lines_taken_ += lines.size();
  return lines;
}

bool Installation::skipLogTo(const std::string& line) {
  for (Lines next = nextLines(1); !next.empty(); next = nextLines(1)) {
    if (next[0] == line) return true;
  }
  return false;
}

std::string Installation::status() const {
  if (!fs::exists(statusPath())) return "missing";
  const auto value = platform::parsePropertyList(tests::readAll(statusPath()));
  return value ? test::describe(*value) : "unparsable";
}

void Installation::expectStatus(const std::string& entries) const {
  waitUntil([&] { return status() == "{" + entries + "}"; });
  EXPECT_EQ(status(), "{" + entries + "}");
}

int Installation::passes() {
  return watch_->readsOf(kPreferencesFileName) / kReadsOfAPass;
}

bool Installation::pass() {
  const int passes_before = passes();
  post();
  return waitUntil([&] { return passes() > passes_before; });
}

bool Installation::waitUntil(const std::function<bool()>& happened) const {
  const auto deadline = Clock::now() + kPatience;
  pollfd end{.fd = daemon_ ? daemon_->endDescriptor() : -1, .events = POLLIN, .revents = 0};
  while (!happened()) {
    if (poll(&end, 1, kBetweenLooksMs) != 0 || Clock::now() > deadline) return happened();
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
