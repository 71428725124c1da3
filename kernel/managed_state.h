// Sets whether the system manages a process's memory state.
#pragma once

#include <cstdint>
#include <optional>

#include "config/target_settings.h"

namespace vorlatch {

// Returns 0, or -1 and sets errno.
int setManaged(std::int32_t pid, bool managed);

// StripManaged true: makes the process unmanaged, not freezable, elevated while inactive, and
// scheduled like the foreground app. StripManaged false: undoes this except for the scheduling
// role, which the system sets again by itself. Without the key, does nothing. Logs the outcome.
void holdManagedState(const TargetSettings& settings, std::int32_t pid);

// Makes the process managed again. Ignores failures.
void returnManagedState(std::int32_t pid);

// Returns std::nullopt if the kernel does not answer.
std::optional<bool> observeManagedState(std::int32_t pid);

}  // namespace vorlatch
