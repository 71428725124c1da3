// An installed daemon amid everything that other programs, processes and the disk can do to it at
// once, and the checks that nothing of it left a trace.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/plist_value.h"
#include "config/preferences.h"
#include "tests/blackbox/installation.h"
#include "tests/blackbox/memory_file_system.h"
#include "tests/blackbox/resource_use.h"
#include "tests/soak/crowd.h"
#include "tests/soak/editing.h"
#include "tests/soak/onlooker.h"
#include "tests/support/dice.h"

namespace vorlatch {

// What a round of chaos has beside processes that start and exit, edits by vorlatchctl, bursts of
// posts and a disk that is full at times.
struct Round {
  std::chrono::milliseconds duration;
  bool has_foreign_editors;
  bool kills_the_daemon;
};

class Chaos {
 public:
  // Starts the daemon and all processes.
  explicit Chaos(std::uint64_t seed);

  // Ends undisturbed: all editors are through, and the disk has room.
  void rage(const Round& round);
  // Edits every target once more, and expects that the daemon then holds what the preferences say.
  void expectCalm();
  // Expects that the daemon takes no more of the machine than in the first calm of its life.
  void expectNoGrowth();
  // Ends everything but the daemon, and expects what has to hold of the whole time.
  void finish();

  // How many calms the daemon that runs has seen.
  [[nodiscard]] int calmsOfThisLife() const { return calms_of_this_life_; }
  // What happened, to be shown.
  [[nodiscard]] std::vector<std::pair<std::string, std::string>> figures() const;

 private:
  using Times = std::vector<Clock::time_point>;

  void writeOldLog();
  void start();
  void killAndStart();
  void burst(std::chrono::milliseconds duration);
  void finishBurst();
  void editAtRandom(const Round& round);
  void changeDisk(bool to_full);
  Times someTimes(Clock::time_point begin, Clock::time_point end, int count);
  void finishEditors(const Round& round);

  // Looks at what the daemon wrote last: no entry may be of an earlier daemon's time.
  void lookAtStatus();
  void lookAtLog();

  void editAllTargets();
  void expectHeld();
  void expectTicks();
  [[nodiscard]] std::string kernelStateOf(pid_t pid) const;
  [[nodiscard]] pid_t heldProcess(const std::string& key) const;
  [[nodiscard]] TargetSettings settingsOf(const std::string& key) const;
  [[nodiscard]] std::string fillerPath() const;
  [[nodiscard]] int refusedEdits() const;

  tests::Dice dice_;
  Installation installation_;
  const MemoryFileSystem disk_;
  Crowd crowd_;
  // The preferences as vorlatchctl's edits have to leave them.
  plist::Dictionary expected_;
  std::vector<ControlEditor> editors_;
  std::vector<ForeignEditor> foreigners_;
  Onlooker onlooker_;
  std::unique_ptr<ChildProcess> poster_;

  Clock::time_point started_;
  std::string status_before_start_;
  std::optional<ResourceUse> first_use_;
  ResourceUse last_use_{};
  bool disk_is_full_ = false;
  std::size_t log_size_ = 0;

  int remark_ = 0;
  int calms_of_this_life_ = 0;
  int calms_ = 0;
  int kills_ = 0;
  int posts_ = 0;
  int full_disks_ = 0;
  int log_clearings_ = 0;
  int status_looks_ = 0;
};

}  // namespace vorlatch
