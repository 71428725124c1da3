// Whether the system manages a process's memory state.
#pragma once

#include <cstdint>
#include <optional>

#include "config/target_settings.h"

namespace vorlatch {

// Returns 0, or -1 and errno.
int setManaged(std::int32_t pid, bool managed);

// With StripManaged true, takes the process out of the system's management: unmanaged, never
// frozen, kept elevated while inactive, scheduled like the app in front. With false, undoes this
// but for the scheduling role, which the system sets anew by itself. Without the key, does nothing.
// Logs the outcome.
void holdManagedState(const TargetSettings& settings, std::int32_t pid);

// Makes the process managed again, whatever the kernel answers.
void returnManagedState(std::int32_t pid);

// Returns std::nullopt where the kernel does not answer.
std::optional<bool> observeManagedState(std::int32_t pid);

}  // namespace vorlatch
