// One look at everything that vorlatchctl shows: the preferences, the processes, what the daemon
// wrote, and the kernel's list of jetsam bands.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "config/preferences.h"
#include "proc/process_lookup.h"

namespace vorlatch::control {

// An entry of the status file.
struct StatusEntry {
  std::int32_t pid;
  std::int32_t nice_value;
  std::optional<std::int32_t> band;  // empty when the kernel's list did not hold the process
};

// An entry of the kernel's list.
struct JetsamEntry {
  std::int32_t band;
  std::int32_t limit_mb;  // in force now; -1 without one
};

class Observation {
 public:
  // Looks, with one walk over the processes and one list from the kernel. The preferences are those
  // given, or what the daemon would read: empty where the file cannot be read.
  static Observation now(plist::Dictionary preferences);
  static Observation now();

  plist::Dictionary preferences;
  bool preferences_are_newer_than_status = false;
  Targets targets;
  std::vector<RunningProcess> processes;
  std::map<std::string, StatusEntry, std::less<>> status;
  std::vector<std::int32_t> daemon_pids;  // of this jailbreak root

  [[nodiscard]] bool isSwitchedOn() const { return isEnabled(preferences); }
  // The process that a pass finds under a key, and the one that a watch timer finds; 0 for none.
  [[nodiscard]] std::int32_t pidForPass(const std::string& key) const;
  [[nodiscard]] std::int32_t pidForWatchTimer(const std::string& key) const;
  // The target's process: the one that the daemon holds when a pass or a watch timer would find it,
  // otherwise the one that a pass finds; 0 for none.
  [[nodiscard]] std::int32_t pidOf(const std::string& key, const TargetSettings& settings) const;
  // Null for a process or an entry that is not there.
  [[nodiscard]] const RunningProcess* process(std::int32_t pid) const;
  [[nodiscard]] const StatusEntry* statusEntry(const std::string& key) const;
  [[nodiscard]] const JetsamEntry* jetsamEntry(std::int32_t pid) const;
  [[nodiscard]] std::optional<std::int32_t> band(std::int32_t pid) const;
  // The kernel's highest band, 21 or 210, as far as its list shows it.
  [[nodiscard]] std::optional<std::int32_t> highestBand() const;

 private:
  void readPriorityList();
  void readStatus();

  RunningProcessMap running_;
  std::unordered_map<std::int32_t, std::size_t> index_by_pid_;
  std::unordered_map<std::int32_t, JetsamEntry> list_;
};

// Where the daemon's program is installed.
std::string daemonProgram();

}  // namespace vorlatch::control
