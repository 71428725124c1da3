// The settings that are held in the kernel, each in a file of its own, as lists.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "kernel/jetsam_band.h"
#include "kernel/managed_state.h"
#include "kernel/memory_limits.h"
#include "kernel/nice_value.h"

namespace vorlatch {

// In the order in which they are applied: a band is set on a process whose managed state it first
// changes, so that the state that the user asked for comes last.
inline constexpr std::array kHoldInOrder = {holdMemoryLimits, holdNiceValue, holdJetsamBand,
                                            holdManagedState};

// In the order in which they are handed back.
inline constexpr std::array kReturnInOrder = {returnNiceValue, returnMemoryLimits,
                                              returnManagedState, returnJetsamBand};

// What the kernel says of one process beside its band, which stands in the list of all. A member is
// empty where the kernel does not answer this user.
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

}  // namespace vorlatch
