// A scenario on the simulated device: a jailbreak root in a temporary directory, the daemon in it,
// and what tests inspect afterwards. Only one story per process, because the daemon has global
// state.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "base/plist_value.h"
#include "tests/simulated/device.h"
#include "tests/support/files.h"
#include "tests/support/temporary_directory.h"

namespace vorlatch::tests {

using Lines = std::vector<std::string>;
using namespace std::chrono_literals;

inline const std::string kTargetRule(40, '-');
inline const std::string kChapterRule(40, '=');

}  // namespace vorlatch::tests

namespace vorlatch {

// Here, so that tests find it: Lines is a type of the standard library.
inline tests::Lines operator+(tests::Lines first, const tests::Lines& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

}  // namespace vorlatch

namespace vorlatch::tests {

class Story {
 public:
  Story();
  Story(const Story&) = delete;
  Story& operator=(const Story&) = delete;

  simulated::Device& device;

  // The path of a file under the jailbreak root, and of one of the daemon's files.
  [[nodiscard]] std::string rootPath(std::string_view path) const {
    return root_.path() + std::string(path);
  }
  [[nodiscard]] std::string file(std::string_view name) const;
  [[nodiscard]] std::string preferencesFile() const { return file("com.zel.vorlatch.plist"); }
  [[nodiscard]] std::string statusFile() const { return file("com.zel.vorlatch.status.plist"); }
  [[nodiscard]] std::string logFile() const { return file("Vorlatch.log"); }

  void writePreferences(const plist::Dictionary& preferences) const;
  // Writes preferences that are switched on and have these targets.
  void writeTargets(const plist::Dictionary& targets) const;
  // Installs an app: a bundle directory with an Info.plist. Returns the executable's path.
  [[nodiscard]] std::string installApp(const std::string& bundle, const plist::Value& info) const;

  // Redirects the standard streams to the log file without starting the daemon.
  static void openLog();
  // Starts the daemon as its main() does and runs what is due immediately.
  void start() const;
  // Starts the daemon, runs the first pass, and drops the log and the calls so far.
  void startAndSettle();
  // Advances the device's time.
  void run(std::chrono::nanoseconds duration) const;
  // Posts the notification that the preferences changed, as another program would.
  void post() const;
  // Posts the notification and runs the pass that it triggers.
  void postAndRun() const;

  // Returns the log lines since the last call, without stamps; fails the test if a stamp is
  // missing.
  Lines takeLog();
  // Returns all log lines.
  Lines rereadLog();
  [[nodiscard]] Lines takeCalls() const;  // memory status and priority calls
  [[nodiscard]] plist::Dictionary status() const;

 private:
  const TemporaryDirectory root_;
  std::size_t log_read_ = 0;
};

// The number of descriptors that this process has open.
std::size_t openFiles();

}  // namespace vorlatch::tests
