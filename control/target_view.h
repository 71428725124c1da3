// Everything about one target: what is wanted, what the daemon wrote, what the kernel says, and
// whether the daemon's work on it holds.
#pragma once

#include "control/observation.h"
#include "kernel/held_settings.h"

namespace vorlatch::control {

enum class Verdict {
  Held,
  Overridden,  // the system made something else of it
  NotRunning,
  NotAppliedYet,  // it runs, but as the daemon has not yet seen it or its settings
  StaleStatus,    // what the daemon wrote is of another process, or no daemon runs
  SwitchedOff,
};

struct TargetView {
  std::string key;
  TargetSettings wanted;
  std::int32_t pid = 0;
  const RunningProcess* process = nullptr;  // of the observation
  const StatusEntry* written = nullptr;     // of the observation
  std::optional<std::int32_t> band;         // empty where the kernel's list is closed to this user
  ProcessState state;
  Verdict verdict = Verdict::NotRunning;
};

// Judges as the daemon does: a limit that the kernel chose for 0 holds, and so does the band that
// the daemon adapts a refused one to. The managed state is shown and not judged, as the daemon does
// not judge it. Where the kernel does not answer this user, what the daemon wrote counts.
TargetView viewOf(const Observation& observation, const std::string& key,
                  const TargetSettings& wanted);

const char* verdictText(Verdict verdict);

}  // namespace vorlatch::control
