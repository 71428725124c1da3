// A story's stage: the daemon on the simulated device, the oracle beside it, and what steps change.
// Whatever the daemon does is held against the oracle at once; a Mismatch ends the story.
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

// Tells whether a file was replaced by another since it was last looked at. The one seen last is
// kept open, so that its number is not given to the next.
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

  // What programs other than the daemon do.
  void writeDraft(bool as_binary);
  void breakPreferences(const std::string& bytes);
  void removePreferences();
  void installBundle(const std::string& bundle, const plist::Dictionary& info);
  void breakBundle(const std::string& bundle);
  [[nodiscard]] std::string bundleDirectory(const std::string& bundle) const;
  // The process of that name that was launched last; null without one.
  [[nodiscard]] simulated::Process* newest(const std::string& name) const;

  // The kernel refuses nothing and overrides nothing any more.
  void calmKernel();

  void start();
  void post();
  // Lets time pass: less of it when more work than this was done meanwhile.
  void run(std::chrono::nanoseconds duration, int pieces_max = 300);
  // Nothing disturbs the daemon any more, until each watch timer and the patrol had a turn. Then
  // every running target stands as the file says.
  void calmDown();

  [[nodiscard]] const Oracle& oracle() const { return *oracle_; }
  [[nodiscard]] std::uint64_t piecesOfWork() const { return device.scheduler.lastRan().count; }
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
  std::uint64_t compared_ = 0;  // pieces of work
  std::uint64_t compared_until_ns_ = 0;
  int status_writes_ = 0;
};

}  // namespace vorlatch::tests::random
