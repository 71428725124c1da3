// A snapshot of everything that vorlatchctl shows: the preferences, the processes, the status file,
// and the kernel's list of jetsam bands.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "config/preferences.h"
#include "control/jetsam_snapshot.h"
#include "platform/memory_use.h"
#include "proc/process_lookup.h"

namespace vorlatch::control {

// An entry of the status file.
struct StatusEntry {
  std::int32_t pid;
  std::int32_t nice_value;
  std::optional<std::int32_t> band;  // empty if the kernel's list did not contain the process
};

// An entry of the kernel's list.
struct JetsamEntry {
  std::int32_t band;
  std::int32_t limit_mb;  // in force now; -1: no limit
};

class Observation {
 public:
  // Takes a snapshot with one scan of the processes and one fetch of the kernel's list. Without an
  // argument, reads the preferences as the daemon does: empty if the file cannot be read.
  static Observation now(plist::Dictionary preferences);
  static Observation now();

  plist::Dictionary preferences;
  bool preferences_are_newer_than_status = false;
  Targets targets;
  std::vector<RunningProcess> processes;
  std::map<std::string, StatusEntry, std::less<>> status;
  std::vector<std::int32_t> daemon_pids;  // of this jailbreak root

  [[nodiscard]] bool isSwitchedOn() const { return isEnabled(preferences); }
  // Return the process that a pass, or a watch timer, finds for the key; 0 if there is none.
  [[nodiscard]] std::int32_t pidForPass(const std::string& key) const;
  [[nodiscard]] std::int32_t pidForWatchTimer(const std::string& key) const;
  // Returns the target's process id. It is the one in the status file if a pass or the target's
  // watch timer would find it, too; otherwise the one that a pass finds, or 0.
  [[nodiscard]] std::int32_t pidOf(const std::string& key, const TargetSettings& settings) const;
  // Return null or empty if there is no such process or entry.
  [[nodiscard]] const RunningProcess* process(std::int32_t pid) const;
  [[nodiscard]] const StatusEntry* statusEntry(const std::string& key) const;
  [[nodiscard]] const JetsamEntry* jetsamEntry(std::int32_t pid) const;
  [[nodiscard]] std::optional<std::int32_t> band(std::int32_t pid) const;
  // Returns the memory of a process, of another user's, too, if the kernel tells it. Empty if it is
  // hidden, or the process has ended.
  [[nodiscard]] std::optional<platform::ProcessMemory> memoryOf(std::int32_t pid) const;
  // Returns this kernel's highest band. Kernels number their bands up to 21 or up to 210; a band
  // above 21 in the kernel's list means 210. Empty without a list.
  [[nodiscard]] std::optional<std::int32_t> highestBand() const;

 private:
  void readPriorityList();
  void readStatus();

  RunningProcessMap running_;
  std::unordered_map<std::int32_t, std::size_t> index_by_pid_;
  std::unordered_map<std::int32_t, JetsamEntry> list_;
  mutable std::optional<MemoryByPid> jetsam_snapshot_;  // taken for the first hidden process
};

// Returns the path where the daemon's program is installed.
std::string daemonProgram();

// Returns true if a daemon of this jailbreak root runs.
bool daemonRuns();

}  // namespace vorlatch::control
