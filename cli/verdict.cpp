#include "cli/verdict.h"

#include <array>

#include "cli/bands.h"
#include "kernel/judgement.h"

namespace vorlatch::cli {
namespace {

bool bandHolds(std::int32_t wanted, std::int32_t actual, std::int32_t highest) {
  if (wanted == 0 || wanted == -1 || actual == wanted) return true;
  const std::optional<std::int32_t> adapted = wanted > highest ? adaptedBand(wanted) : std::nullopt;
  return adapted == actual;
}

bool limitHolds(std::int32_t wanted_mb, const std::optional<std::int32_t>& actual_mb) {
  return !actual_mb || memoryLimitHolds(wanted_mb, *actual_mb);
}

bool isWanted(const TargetSettings& wanted, std::int32_t nice_value,
              std::optional<std::int32_t> band, std::int32_t highest_band) {
  return nice_value == wanted.nice_value && band &&
         bandHolds(wanted.jetsam_priority, *band, highest_band);
}

Verdict judgeApplied(const Observation& observation, const TargetView& target) {
  // A user to whom the kernel shows no list: every adapted band counts.
  const std::int32_t highest = observation.highestBand().value_or(kHighestBandToIOS15);
  const DaemonWrote& written = *target.written;
  const bool holds_now = isWanted(target.wanted, target.now.nice_value.value_or(written.nice_value),
                                  target.now.band ? target.now.band : written.band, highest);
  const bool limits_hold =
      limitHolds(target.wanted.active_limit_mb, target.details.active_limit_mb) &&
      limitHolds(target.wanted.inactive_limit_mb, target.details.inactive_limit_mb);
  if (holds_now && limits_hold) return Verdict::Held;
  // What the daemon saw in place and what is no longer so was changed since, by no edit.
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
  TargetView target{.key = key, .wanted = wanted, .now = {}, .details = {}};
  target.pid = observation.pidOf(key, wanted);
  target.process = observation.process(target.pid);
  target.written = observation.written(key);
  if (target.pid != 0) {
    target.now = observation.kernelSays(target.pid);
    target.details = kernelDetails(target.pid);
  }
  target.verdict = judge(observation, target);
  return target;
}

const char* verdictText(Verdict verdict) {
  static constexpr std::array<const char*, 6> kTexts = {"held",         "overridden by the system",
                                                        "not running",  "not applied yet",
                                                        "stale status", "switched off"};
  return kTexts.at(static_cast<std::size_t>(verdict));
}

}  // namespace vorlatch::cli
