#include "control/guards.h"

#include <algorithm>
#include <array>
#include <set>

#include "base/utf8.h"
#include "config/preferences.h"
#include "control/failure.h"
#include "control/memory_view.h"
#include "control/name_search.h"
#include "control/nearest.h"
#include "control/translation.h"
#include "platform/memory_use.h"

namespace vorlatch::control {
namespace {

// A limit leaves this much room above the most that a process has used.
constexpr std::int64_t kRoomNumerator = 5;
constexpr std::int64_t kRoomDenominator = 4;

// Processes whose end restarts the home screen or the whole phone, and why.
struct VitalProcess {
  std::string_view name;
  const char* reason;
};
constexpr const char* kOfTheKernel = english("the system restarts without it");
constexpr const char* kOfApps = english("no app starts or stays alive without it");
constexpr const char* kOfEverything = english("most other processes wait for it");
constexpr std::array<VitalProcess, 13> kVitalProcesses = {{
    {"SpringBoard", english("without it there is no home screen")},
    {"backboardd", english("without it there is no touch and no picture")},
    {"launchd", kOfTheKernel},
    {"watchdogd", kOfTheKernel},
    {"thermalmonitord", kOfTheKernel},
    {"runningboardd", kOfApps},
    {"installd", kOfApps},
    {"containermanagerd", kOfApps},
    {"notifyd", kOfEverything},
    {"logd", kOfEverything},
    {"configd", kOfEverything},
    {"cfprefsd", kOfEverything},
    {"securityd", kOfEverything},
}};

struct Limit {
  const char* key;
  std::int32_t TargetSettings::*value;
};
constexpr std::array<Limit, 2> kLimits = {
    {{keys::kMemLimitActive, &TargetSettings::active_limit_mb},
     {keys::kMemLimitInactive, &TargetSettings::inactive_limit_mb}}};

// Returns true if the target is the process, by its name or its bundle identifier.
bool isTargetOf(const Observation& observation, const std::string& target,
                std::string_view process_name) {
  return target == process_name ||
         std::ranges::any_of(observation.processes, [&](const RunningProcess& process) {
           return process.name == process_name && isIdentifiedBy(process, target);
         });
}

void refuseLimit(const Observation& observation, const std::string& target, const char* key,
                 std::int32_t limit_mb) {
  for (const VitalProcess& vital : kVitalProcesses) {
    if (!isTargetOf(observation, target, vital.name)) continue;
    failWrongUsage(tr("%s of %s is refused: a limit can end it, and %s; --force sets it", key,
                      target, translated(vital.reason)));
  }
  if (const auto machine = platform::memoryOfMachine();
      machine && limit_mb > megabytesOf(machine->total_bytes)) {
    failWrongUsage(tr("%s of %s MB is refused: the device has %s MB; --force sets it", key,
                      limit_mb, megabytesOf(machine->total_bytes)));
  }
  for (const RunningProcess& process : observation.processes) {
    if (!isFoundBy(process, target)) continue;
    const auto memory = observation.memoryOf(process.pid);
    if (!memory) continue;
    const std::int64_t peak_mb = megabytesOf(memory->peak_bytes);
    const std::int64_t least_mb =
        (peak_mb * kRoomNumerator + kRoomDenominator - 1) / kRoomDenominator;
    if (limit_mb >= least_mb) continue;
    failWrongUsage(
        tr("%s of %s MB is refused: %s uses %s MB now and has used %s MB, and the system ends it "
           "above the limit; set at least %s MB, or --force",
           key, limit_mb, target, megabytesOf(memory->footprint_bytes), peak_mb, least_mb));
  }
}

// Says that nothing bears this name, and which one was probably meant; empty if something does.
std::string unknownTargetWarning(const Observation& observation, const std::string& target) {
  const NameSearch search = searchNames(observation, target);
  std::set<std::string> meant;
  for (const FoundName& found : search.found) {
    if (found.isExact()) return {};
    if (found.rule != NameRule::SameInAnotherCase) break;
    if (found.pid != 0) meant.insert(found.name);
    if (!found.bundle_identifier.empty()) meant.insert(found.bundle_identifier);
  }
  std::string names;
  for (const std::string& name : meant) names += (names.empty() ? "" : ", ") + name;
  return tr("no running process and no installed app is called %s", target) +
         (names.empty() ? suggestion(target, search.known) : tr("; did you mean %s?", names));
}

}  // namespace

void refuseHarm(const plist::Dictionary& before, const plist::Dictionary& after) {
  const Targets old_targets = configuredTargets(before);
  std::optional<Observation> observation;  // only if there is a limit to judge
  for (const auto& [key, target] : configuredTargets(after)) {
    const auto old_target = old_targets.find(key);
    for (const Limit& limit : kLimits) {
      const std::int32_t limit_mb = target.settings.*limit.value;
      const bool was_set =
          old_target != old_targets.end() && old_target->second.settings.*limit.value == limit_mb;
      if (limit_mb < 1 || was_set) continue;
      if (!observation) observation = Observation::now(after);
      refuseLimit(*observation, key, limit.key, limit_mb);
    }
  }
}

void refuseImpossibleTarget(const std::string& target) {
  if (target.empty() || !isValidUtf8(target) || target.find('\0') != target.npos) {
    failWrongUsage(tr("a target is a bundle identifier or a process name"));
  }
  // Blanks and line breaks of ASCII, blanks without a break, and those of full width.
  for (const std::string_view blank : {" ", "\t", "\n", "\r", "\u00a0", "\u3000"}) {
    if (target.starts_with(blank) || target.ends_with(blank)) {
      failWrongUsage(tr("\"%s\" begins or ends with a blank; leave it out", target));
    }
  }
  for (const std::string_view quote : {"“", "”", "‘", "’", "「", "」"}) {
    if (target.find(quote) != target.npos) {
      failWrongUsage(tr("%s has typographic quotes; leave them out, or type ' or \"", target));
    }
  }
}

std::vector<Finding> warningsOnTarget(const std::string& target,
                                      const plist::Dictionary& preferences) {
  const Observation observation = Observation::now(preferences);
  const std::vector<std::string> path{keys::kAppConfigs, target};
  std::vector<Finding> warnings;
  if (std::string warning = unknownTargetWarning(observation, target); !warning.empty()) {
    warnings.push_back({path, "no-match", std::move(warning)});
  }
  const std::int32_t pid = observation.pidForPass(target);
  for (const auto& [key, other] : observation.targets) {
    if (pid == 0 || key == target || observation.pidForPass(key) != pid) continue;
    warnings.push_back(
        {path, "same-process",
         tr("%s and %s are the same process: the daemon applies both, one after the other", key,
            target)});
  }
  return warnings;
}

}  // namespace vorlatch::control
