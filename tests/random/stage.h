// The environment of a random story: the daemon on the simulated device, the oracle, and the state
// that steps change. Every action of the daemon is compared with the oracle at once; a difference
// throws Mismatch and ends the story.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "base/descriptor.h"
#include "base/plist_value.h"
#include "tests/oracle/oracle.h"
#include "tests/random/record.h"
#include "tests/simulated/device.h"
#include "tests/support/story.h"

namespace vorlatch::tests::random {

// Detects whether a file was replaced since the last check. Keeps the last file open, so that the
// system cannot reuse its inode number.
class WatchedFile {
 public:
  explicit WatchedFile(std::string path) : path_(std::move(path)) {}
  [[nodiscard]] const std::string& path() const { return path_; }
  bool wasReplaced();

 private:
  std::string path_;
  std::optional<Descriptor> seen_;
};

class Stage {
 public:
  Stage();

  Story story;
  simulated::Device& device;
  Files files;
  plist::Dictionary draft;  // the preferences as an editor keeps them
  WatchedFile status_file;

  // Actions of programs other than the daemon.
  void writeDraft(bool as_binary);
  void breakPreferences(const std::string& bytes);
  void removePreferences();
  void installBundle(const std::string& bundle, const plist::Dictionary& info);
  void breakBundle(const std::string& bundle);
  [[nodiscard]] std::string bundleDirectory(const std::string& bundle) const;
  // The newest process with this name, or null.
  [[nodiscard]] simulated::Process* newest(const std::string& name) const;

  // The kernel stops refusing and overriding.
  void calmKernel();

  void start();
  void post();
  // Advances time, but stops after this number of work items.
  void run(std::chrono::nanoseconds duration, int pieces_max = 300);
  // Stops all disturbances until every watch timer and the patrol have run, then checks that every
  // running target has the settings of the file.
  void calmDown();

  [[nodiscard]] const Oracle& oracle() const { return *oracle_; }
  [[nodiscard]] std::uint64_t workItems() const { return device.scheduler.lastRan().count; }
  [[nodiscard]] std::uint64_t logBytes() const { return record_ ? record_->logBytes() : 0; }
  [[nodiscard]] std::uint64_t linesLogged() const { return record_ ? record_->lineCount() : 0; }

 private:
  void compareLastRan();
  void compareStatusFile();
  void compareTimers();
  void checkStanding();
  void checkTarget(const std::string& key, const plist::Dictionary& settings, std::int32_t pid);
  std::int32_t foundBy(const std::string& key, bool by_tick);

  std::optional<Record> record_;
  std::optional<Oracle> oracle_;
  std::uint64_t compared_ = 0;  // work items
  std::uint64_t compared_until_ns_ = 0;
  int status_writes_ = 0;
};

}  // namespace vorlatch::tests::random
