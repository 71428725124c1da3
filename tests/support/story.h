// A story on the simulated device: a jailbreak root in a temporary directory, the daemon in it, and
// what a test asks afterwards. One story a process.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "base/plist_value.h"
#include "tests/simulated/device.h"
#include "tests/support/files.h"

namespace vorlatch::tests {

using Lines = std::vector<std::string>;
using namespace std::chrono_literals;

inline const std::string kTargetRule(40, '-');
inline const std::string kChapterRule(40, '=');

class Story {
 public:
  Story();
  Story(const Story&) = delete;
  Story& operator=(const Story&) = delete;
  ~Story();

  simulated::Device& device;

  // The path of something under the jailbreak root, and of one of the daemon's files.
  [[nodiscard]] std::string rootPath(std::string_view path) const;
  [[nodiscard]] std::string file(std::string_view name) const;
  [[nodiscard]] std::string preferencesFile() const { return file("com.zel.vorlatch.plist"); }
  [[nodiscard]] std::string statusFile() const { return file("com.zel.vorlatch.status.plist"); }
  [[nodiscard]] std::string logFile() const { return file("Vorlatch.log"); }

  void writePreferences(const plist::Dictionary& preferences) const;
  // Switched on, with these targets.
  void writeTargets(const plist::Dictionary& targets) const;
  // An app on the device: a bundle directory with its Info.plist. Gives the executable's path.
  [[nodiscard]] std::string installApp(const std::string& bundle, const plist::Value& info) const;

  // Points the log at its file without starting the daemon.
  static void openLog();
  // Starts the daemon as its main does and lets 0 ms pass.
  void start() const;
  // Starts it, lets the first pass run, and forgets the log and the calls up to then.
  void startAndSettle();
  // Lets so much of the device's time pass.
  void run(std::chrono::nanoseconds duration) const;
  // Another program posts that the preferences changed.
  void post() const;
  // Likewise, and the pass runs that it brings about.
  void postAndRun() const;

  // The log's lines since the last time, without their stamps; a line without one fails the test.
  Lines takeLog();
  // All of its lines.
  Lines rereadLog();
  [[nodiscard]] Lines takeCalls() const;  // memory status and priority calls
  [[nodiscard]] plist::Dictionary status() const;

 private:
  std::string root_;
  std::size_t log_read_ = 0;
};

// How many descriptors this process has open.
std::size_t openFiles();

}  // namespace vorlatch::tests
