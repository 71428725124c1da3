// An installed tree of its own under the temporary directory, the daemon that runs from it, and
// what another program sees of both.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "base/plist_value.h"
#include "tests/blackbox/directory_watch.h"
#include "tests/blackbox/processes.h"
#include "tests/support/temporary_directory.h"

namespace vorlatch {

using Lines = std::vector<std::string>;

// Longer than any wait of the daemon's that a post could still have under way.
inline constexpr std::chrono::milliseconds kQuiet{600};

// One jailbreak root, with preferences that name no target: the daemon's preset names processes
// that the machine may have. Nothing of it is left behind; a daemon that has died by itself or that
// a sanitizer has complained about fails the test when the object goes.
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

  // Makes the daemon's files lie in another directory, for a test that has arranged for that.
  void useFilesIn(const std::string& directory);
  // Watches the directory of the files; again after it was replaced.
  void watchFiles() { watch_ = std::make_unique<DirectoryWatch>(files_); }

  // Starts the daemon and waits until its first pass is over and it hears posts.
  void start(const Launch& launch = {});
  // Starts the daemon and waits for nothing; the other waits until it hears posts.
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

  // Replaces the preferences file as editors do: a file beside it, moved into place.
  void writePreferences(const plist::Value& value) const;
  void writePreferencesBytes(const std::string& bytes) const;

  // The whole lines of the log without their stamps; a line whose stamp has not the right form is
  // given with a complaint in front.
  [[nodiscard]] Lines log() const;
  // The log behind the first `count` lines, once it has as many lines more as are expected or will
  // not get them.
  Lines logBehind(std::size_t count, std::size_t expected);
  // Whether a line that holds the text comes into the log behind the first `count` lines.
  bool waitForLog(std::size_t count, std::string_view text);

  // The status file as text; or why there is none.
  [[nodiscard]] std::string status() const;
  // The same once it is as expected or will not be.
  std::string statusOnce(const std::string& expected);

  // How many passes have read the preferences file since the files are watched.
  int passes();
  // Waits until there have been so many; false when they do not come.
  bool waitForPasses(int count);
  // Posts, and waits for the pass; false when it does not come.
  bool pass();
  // Waits until a file whose name begins so has been removed.
  bool waitForRemoval(const std::string& prefix);
  // Waits until nothing has happened to the files for longer than the daemon waits before a pass;
  // false when something always does.
  bool waitForQuiet();
  DirectoryWatch& watch() { return *watch_; }

 private:
  bool waitUntil(const std::function<bool()>& happened);
  [[nodiscard]] int daemonEnd() const { return daemon_ ? daemon_->endDescriptor() : -1; }
  // A sanitizer would write to standard error, and so into the log.
  [[nodiscard]] Launch withReportsBeside(Launch launch) const;

  const tests::TemporaryDirectory root_;
  std::string files_;
  std::unique_ptr<DirectoryWatch> watch_;
  std::unique_ptr<ChildProcess> daemon_;
};

// The names in a directory, sorted.
Lines filesIn(const std::string& directory);

}  // namespace vorlatch
