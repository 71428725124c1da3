#include "control/observation.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <utility>

#include "config/property_list_file.h"
#include "config/status_file.h"
#include "kernel/jetsam_readback.h"
#include "platform/jetsam_bands.h"
#include "platform/process_table.h"
#include "rootprefix/libroot.h"
#include "rootprefix/pref_path.h"

namespace vorlatch::control {
namespace {

constexpr const char* kDaemonName = "vorlatchd";
constexpr std::uint32_t kPidPathBytes = 4096;

std::string executableOf(std::int32_t pid) {
  std::array<char, kPidPathBytes> path{};
  const int length = platform::proc_pidpath(pid, path.data(), kPidPathBytes);
  path.back() = '\0';
  return length > 0 ? path.data() : "";
}

// Returns the path of the daemon in this program's own tree, wherever the tree was moved.
std::string daemonBesideThisProgram() {
  const std::filesystem::path own = executableOf(getpid());
  return (own.parent_path().parent_path() / "libexec" / kDaemonName).string();
}

std::vector<std::int32_t> findDaemons(const std::vector<RunningProcess>& processes) {
  std::error_code unresolved;
  // The kernel reports paths with symbolic links resolved.
  const std::array<std::string, 3> programs = {
      daemonProgram(), std::filesystem::canonical(daemonProgram(), unresolved).string(),
      daemonBesideThisProgram()};
  std::vector<std::int32_t> found;
  for (const RunningProcess& process : processes) {
    if (process.name != kDaemonName || process.pid == getpid()) continue;
    const std::string path = executableOf(process.pid);
    // If this user may not read the path, the name alone decides.
    const bool is_ours =
        path.empty() || std::find(programs.begin(), programs.end(), path) != programs.end();
    if (is_ours) found.push_back(process.pid);
  }
  return found;
}

bool isNewer(const std::optional<std::string>& path, const std::optional<std::string>& other) {
  if (!path || !other) return false;
  std::error_code missing;
  const auto time = std::filesystem::last_write_time(*path, missing);
  if (missing) return false;
  const auto other_time = std::filesystem::last_write_time(*other, missing);
  return missing || time > other_time;
}

}  // namespace

std::string daemonProgram() {
  std::array<char, kPathBufferBytes> buffer{};
  const char* path = libroot_jbrootpath("/usr/libexec/vorlatchd", buffer.data());
  return path != nullptr ? path : "";
}

bool daemonRuns() {
  return !findDaemons(listRunningProcesses()).empty();
}

Observation Observation::now() {
  return now(loadPreferences());
}

Observation Observation::now(plist::Dictionary preferences) {
  Observation observed;
  observed.preferences = std::move(preferences);
  observed.targets = configuredTargets(observed.preferences);
  observed.preferences_are_newer_than_status =
      isNewer(getPrefPath(kPreferencesFileName), getPrefPath(kStatusFileName));
  observed.readStatus();
  observed.processes = listRunningProcesses();
  observed.running_ = runningProcessMapOf(observed.processes);
  for (std::size_t i = 0; i < observed.processes.size(); ++i) {
    observed.index_by_pid_.emplace(observed.processes[i].pid, i);
  }
  observed.daemon_pids = findDaemons(observed.processes);
  observed.readPriorityList();
  return observed;
}

void Observation::readStatus() {
  const std::optional<std::string> path = getPrefPath(kStatusFileName);
  if (!path) return;
  for (const auto& [key, value] : readDictionary(*path)) {
    const auto* entry = value.as<plist::Dictionary>();
    if (entry == nullptr) continue;
    const auto number = [entry](const char* name) {
      const plist::Value* stored = plist::find(*entry, name);
      return stored != nullptr ? plist::int32Value(*stored) : 0;
    };
    const std::int32_t band = number(status_keys::kJetsamPriority);
    status.insert_or_assign(
        key, StatusEntry{.pid = number(status_keys::kPid),
                         .nice_value = number(status_keys::kNiceValue),
                         .band = band == kNoJetsamPriority ? std::nullopt : std::optional(band)});
  }
}

void Observation::readPriorityList() {
  for (const auto& entry : fetchJetsamPriorityList()) {
    list_.emplace(entry.pid, JetsamEntry{.band = entry.priority, .limit_mb = entry.limit});
  }
}

std::int32_t Observation::pidForPass(const std::string& key) const {
  return pidIn(running_, key);
}

std::int32_t Observation::pidForWatchTimer(const std::string& key) const {
  return pidForBundleIDIn(processes, key);
}

std::int32_t Observation::pidOf(const std::string& key, const TargetSettings& settings) const {
  const std::int32_t for_pass = pidForPass(key);
  const StatusEntry* held = statusEntry(key);
  if (held == nullptr || held->pid == for_pass || settings.check_interval_s == 0) return for_pass;
  return pidForWatchTimer(key) == held->pid ? held->pid : for_pass;
}

const RunningProcess* Observation::process(std::int32_t pid) const {
  const auto entry = index_by_pid_.find(pid);
  return entry == index_by_pid_.end() ? nullptr : &processes[entry->second];
}

const StatusEntry* Observation::statusEntry(const std::string& key) const {
  const auto entry = status.find(key);
  return entry == status.end() ? nullptr : &entry->second;
}

const JetsamEntry* Observation::jetsamEntry(std::int32_t pid) const {
  const auto entry = list_.find(pid);
  return entry == list_.end() ? nullptr : &entry->second;
}

std::optional<std::int32_t> Observation::band(std::int32_t pid) const {
  const JetsamEntry* entry = jetsamEntry(pid);
  return entry != nullptr ? std::optional(entry->band) : std::nullopt;
}

std::optional<platform::ProcessMemory> Observation::memoryOf(std::int32_t pid) const {
  const auto memory = platform::memoryOfProcess(pid);
  if (memory || errno != EPERM) return memory;
  if (!jetsam_snapshot_) jetsam_snapshot_ = takeJetsamSnapshot();
  const auto entry = jetsam_snapshot_->find(pid);
  return entry == jetsam_snapshot_->end() ? std::nullopt : std::optional(entry->second);
}

std::optional<std::int32_t> Observation::highestBand() const {
  if (list_.empty()) return std::nullopt;
  const bool is_times_ten = std::any_of(list_.begin(), list_.end(), [](const auto& entry) {
    return entry.second.band > platform::kHighestBandToIOS15;
  });
  return is_times_ten ? platform::kHighestBandSinceIOS16 : platform::kHighestBandToIOS15;
}

}  // namespace vorlatch::control
