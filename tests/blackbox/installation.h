// An installed tree in the temporary directory, the daemon that runs from it, and what another
// program sees of both.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/plist_value.h"
#include "tests/blackbox/directory_watch.h"
#include "tests/blackbox/processes.h"
#include "tests/support/temporary_directory.h"

namespace vorlatch {

using Lines = std::vector<std::string>;

// Longer than any wait of the daemon that a post could still cause.
inline constexpr std::chrono::milliseconds kQuiet{600};

// One jailbreak root, with preferences that name no target, because the daemon's preset names
// processes that the machine may have. The destructor removes everything. It fails the test if the
// daemon died by itself or a sanitizer reported something.
class Installation {
 public:
  Installation();
  Installation(const Installation&) = delete;
  Installation& operator=(const Installation&) = delete;
  ~Installation();

  // A path below the root.
  [[nodiscard]] std::string path(const std::string& below) const { return root_ / below; }
  [[nodiscard]] std::string preferencesDirectory() const { return files_; }
  [[nodiscard]] std::string preferencesPath() const;
  [[nodiscard]] std::string statusPath() const;
  [[nodiscard]] std::string logPath() const;

  // Starts the daemon and waits until its first pass is over and it hears posts.
  void start(const Launch& launch = {});
  // Starts the daemon and does not wait.
  void startWithoutWaiting(const Launch& launch = {});
  void waitUntilPostsAreHeard() const;
  // Kills the daemon.
  void stop();
  [[nodiscard]] pid_t daemon() const;
  [[nodiscard]] bool isRunning() const { return daemon_ != nullptr && !daemon_->hasEnded(); }

  // Starts the installed vorlatchctl; runs it to its end.
  [[nodiscard]] std::unique_ptr<ChildProcess> startControl(Launch launch) const;
  [[nodiscard]] Output control(const Launch& launch) const {
    return startControl(launch)->output();
  }
  // Tells the daemon to apply its preferences, as another program would.
  void post() const { EXPECT_EQ(control({.arguments = {"apply"}}).status, 0); }

  // Replaces the preferences file as editors do: moves a new file into its place.
  void writePreferences(const plist::Value& value) const;

  // The next whole lines of the log without their stamps, or fewer if they do not come. A line
  // without a correct stamp has a complaint in front.
  Lines nextLines(std::size_t count);
  void expectLog(const Lines& next) { EXPECT_EQ(nextLines(next.size()), next); }
  [[nodiscard]] Lines linesLeft() const;
  // Skips lines up to this one; false when it does not come.
  bool skipLogTo(const std::string& line);

  // The status file as text; or why there is none.
  [[nodiscard]] std::string status() const;
  // Expects these entries as soon as the daemon has written them.
  void expectStatus(const std::string& entries) const;

  // How many passes have read the preferences file.
  int passes();
  // Posts, and waits for the pass; false when it does not come.
  bool pass();
  DirectoryWatch& watch() { return *watch_; }
  // Waits until nothing has happened to the files for longer than the daemon waits before a pass.
  void waitForQuiet() {
    while (!watch_->staysQuietFor(kQuiet)) {
    }
  }
  // Waits until it is true, the daemon ends, or patience does. Returns whether it is true.
  bool waitUntil(const std::function<bool()>& happened) const;

 private:
  // A sanitizer would write to standard error, and so into the log.
  [[nodiscard]] Launch withReportsBeside(Launch launch) const;

  const tests::TemporaryDirectory root_;
  const std::string files_;
  std::unique_ptr<DirectoryWatch> watch_;
  std::unique_ptr<ChildProcess> daemon_;
  std::size_t lines_taken_ = 0;
};

// The names in a directory, sorted.
Lines filesIn(const std::string& directory);

}  // namespace vorlatch
