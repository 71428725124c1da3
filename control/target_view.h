// Everything about one target: the wanted settings, the daemon's status entry, the kernel's values,
// and the verdict on them.
#pragma once

#include "control/memory_view.h"
#include "control/observation.h"
#include "kernel/held_settings.h"

namespace vorlatch::control {

enum class Verdict {
  Held,
  Overridden,  // the system changed what the daemon set
  NotRunning,
  NotAppliedYet,  // running, but the daemon has not yet handled the process or its settings
  StaleStatus,    // the status entry is of another process, or no daemon runs
  SwitchedOff,
};

struct TargetView {
  std::string key;
  TargetSettings wanted;
  std::int32_t pid = 0;
  const RunningProcess* process = nullptr;  // points into the observation
  const StatusEntry* written = nullptr;     // points into the observation
  std::optional<std::int32_t> band;         // empty if this user may not read the kernel's list
  ProcessState state;
  MemoryView memory;
  Verdict verdict = Verdict::NotRunning;
};

// Judges as the daemon does: a wanted limit of 0 or -1 accepts any limit that the kernel chose, and
// the adapted band counts in place of a refused one. Does not judge the managed state, as the
// daemon does not. Uses the status entry where the kernel does not answer this user.
TargetView viewOf(const Observation& observation, const std::string& key,
                  const TargetSettings& wanted);

// Returns the verdict's word for programs, which never changes: "not-running".
const char* verdictCode(Verdict verdict);
// Returns the verdict for people, in their language.
std::string verdictText(Verdict verdict);

}  // namespace vorlatch::control
