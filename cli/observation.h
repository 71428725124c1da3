// One look at everything that a command shows: the preferences, the processes, what the daemon
// wrote, and what the kernel says.
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

namespace vorlatch::cli {

// An entry of the status file.
struct DaemonWrote {
  std::int32_t pid;
  std::int32_t nice_value;
  std::optional<std::int32_t> band;  // nothing when the kernel's list did not hold the process
};

// What the kernel says of one process; nothing where it does not say it to this user.
struct KernelSays {
  std::optional<std::int32_t> nice_value;
  std::optional<std::int32_t> band;
  std::optional<std::int32_t> limit_mb;  // in force now; -1 without one
};

// Beside these, what takes two more calls.
struct KernelDetails {
  std::optional<std::int32_t> active_limit_mb;
  std::optional<std::int32_t> inactive_limit_mb;
  std::optional<bool> is_managed;
};

class Observation {
 public:
  // Looks, with one scan of the processes and one list from the kernel. The preferences are those
  // given, or what the daemon would read: nothing where the file cannot be read.
  static Observation now(plist::Dictionary preferences);
  static Observation now();

  plist::Dictionary preferences;
  bool preferences_are_newer_than_status = false;
  Targets targets;
  std::vector<RunningProcess> processes;
  std::map<std::string, DaemonWrote, std::less<>> status;
  std::vector<std::int32_t> daemon_pids;  // of this jailbreak root

  [[nodiscard]] bool isSwitchedOn() const { return isEnabled(preferences); }
  // The process that a pass finds under a key, and the one that a watch timer finds; 0 for none.
  [[nodiscard]] std::int32_t pidForPass(const std::string& key) const;
  [[nodiscard]] std::int32_t pidForWatchTimer(const std::string& key) const;
  // The process in question for a target: the one the daemon holds when it is one of the two that
  // may be meant, otherwise the one that a pass finds.
  [[nodiscard]] std::int32_t pidOf(const std::string& key, const TargetSettings& settings) const;
  [[nodiscard]] const RunningProcess* process(std::int32_t pid) const;
  [[nodiscard]] const DaemonWrote* written(const std::string& key) const;

  [[nodiscard]] KernelSays kernelSays(std::int32_t pid) const;
  // 21 or 210, by what the kernel's list shows; nothing when it does not show it.
  [[nodiscard]] std::optional<std::int32_t> highestBand() const;

 private:
  struct ListEntry {
    std::int32_t band;
    std::int32_t limit_mb;
  };
  void readPriorityList();
  void readStatus();

  RunningProcessMap running_;
  std::unordered_map<std::int32_t, std::size_t> index_by_pid_;
  std::unordered_map<std::int32_t, ListEntry> list_;
};

KernelDetails kernelDetails(std::int32_t pid);

// Where the daemon's program is installed.
std::string daemonProgram();

}  // namespace vorlatch::cli
