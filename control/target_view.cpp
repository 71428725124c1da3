#include "control/target_view.h"

#include <array>

#include "control/translation.h"
#include "platform/jetsam_bands.h"

namespace vorlatch::control {
namespace {

struct VerdictWords {
  const char* code;
  const char* text;
};
constexpr std::array<VerdictWords, 6> kVerdicts = {{
    {"held", english("held")},
    {"overridden", english("overridden by the system")},
    {"not-running", english("not running")},
    {"not-applied-yet", english("not applied yet")},
    {"stale-status", english("stale status")},
    {"switched-off", english("switched off")},
}};

bool isWanted(const TargetSettings& wanted, std::int32_t nice_value,
              std::optional<std::int32_t> band, std::int32_t highest_band) {
  return nice_value == wanted.nice_value && band && jetsamBandHolds(wanted, *band, highest_band);
}

Verdict judgeApplied(const Observation& observation, const TargetView& target) {
  // If this user may not read the kernel's list, every adapted band counts as held.
  const std::int32_t highest = observation.highestBand().value_or(platform::kHighestBandToIOS15);
  const StatusEntry& written = *target.written;
  const bool holds_now =
      isWanted(target.wanted, target.state.nice_value.value_or(written.nice_value),
               target.band ? target.band : written.band, highest);
  if (holds_now && reportedValuesHold(target.wanted, target.state)) return Verdict::Held;
  // The daemon read the wanted values back once, so the cause of the change is not an edit.
  const bool held_once = isWanted(target.wanted, written.nice_value, written.band, highest);
  if (held_once && !holds_now) return Verdict::Overridden;
  return observation.preferences_are_newer_than_status ? Verdict::NotAppliedYet
                                                       : Verdict::Overridden;
}

Verdict judge(const Observation& observation, const TargetView& target) {
  if (!observation.isSwitchedOn()) return Verdict::SwitchedOff;
  if (target.pid == 0) {
    return target.written == nullptr ? Verdict::NotRunning : Verdict::StaleStatus;
  }
  if (target.written == nullptr) return Verdict::NotAppliedYet;
  if (target.written->pid != target.pid || observation.daemon_pids.empty()) {
    return Verdict::StaleStatus;
  }
  return judgeApplied(observation, target);
}

}  // namespace

TargetView viewOf(const Observation& observation, const std::string& key,
                  const TargetSettings& wanted) {
  TargetView target{.key = key, .wanted = wanted, .band = {}, .state = {}, .memory = {}};
  target.pid = observation.pidOf(key, wanted);
  target.process = observation.process(target.pid);
  target.written = observation.statusEntry(key);
  if (target.pid != 0) {
    target.band = observation.band(target.pid);
    target.state = observeProcess(target.pid);
    target.memory = memoryOf(observation, target.pid);
  }
  target.verdict = judge(observation, target);
  return target;
}

const char* verdictCode(Verdict verdict) {
  return kVerdicts.at(static_cast<std::size_t>(verdict)).code;
}

std::string verdictText(Verdict verdict) {
  return translated(kVerdicts.at(static_cast<std::size_t>(verdict)).text);
}

}  // namespace vorlatch::control
