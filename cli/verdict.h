// Whether the daemon's work on a target holds.
#pragma once

#include "cli/observation.h"

namespace vorlatch::cli {

enum class Verdict {
  Held,
  Overridden,  // the system made something else of it
  NotRunning,
  NotAppliedYet,  // it runs, but as the daemon has not yet seen it or its settings
  StaleStatus,    // what the daemon wrote is of another process, or no daemon runs
  SwitchedOff,
};

// Everything about one target.
struct TargetView {
  std::string key;
  TargetSettings wanted;
  std::int32_t pid = 0;
  const RunningProcess* process = nullptr;  // of the observation
  const DaemonWrote* written = nullptr;     // likewise
  KernelSays now;
  KernelDetails details;
  Verdict verdict = Verdict::NotRunning;
};

// By the daemon's own judgement: a limit that the kernel chose for 0 holds, and so does the band
// that the daemon adapts a refused one to. The managed state is shown but not judged, as the daemon
// does not judge it either. Where the kernel says nothing to this user, what the daemon wrote
// counts.
TargetView viewOf(const Observation& observation, const std::string& key,
                  const TargetSettings& wanted);

const char* verdictText(Verdict verdict);

}  // namespace vorlatch::cli
