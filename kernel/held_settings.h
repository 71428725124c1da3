// Lists of the settings that the daemon holds in the kernel, in the order of each operation.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "kernel/jetsam_band.h"
#include "kernel/managed_state.h"
#include "kernel/memory_limits.h"
#include "kernel/nice_value.h"

namespace vorlatch {

// The order of applying. holdJetsamBand also changes the managed state, so holdManagedState comes
// last: the state that the user asked for remains.
inline constexpr std::array kHoldInOrder = {holdMemoryLimits, holdNiceValue, holdJetsamBand,
                                            holdManagedState};

// The order of restoring the defaults.
inline constexpr std::array kReturnInOrder = {returnNiceValue, returnMemoryLimits,
                                              returnManagedState, returnJetsamBand};

// What the kernel reports about one process. The band is missing because it comes from the kernel's
// list of all processes. A member is empty if the kernel does not answer this user.
struct ProcessState {
  std::optional<std::int32_t> nice_value;
  std::optional<MemoryLimits> memory_limits;
  std::optional<bool> is_managed;
};

inline ProcessState observeProcess(std::int32_t pid) {
  return {.nice_value = observeNiceValue(pid),
          .memory_limits = observeMemoryLimits(pid),
          .is_managed = observeManagedState(pid)};
}

// Returns false if a reported value shows that the system overrode a setting. Leaves out the nice
// value and the band, which vorlatchctl also compares with the status file, and the managed state,
// which it shows without a verdict.
inline bool reportedValuesHold(const TargetSettings& wanted, const ProcessState& state) {
  return !state.memory_limits || memoryLimitsHold(wanted, *state.memory_limits);
}

}  // namespace vorlatch
