// Reads and sets a process's nice value through getpriority(2) and setpriority(2).
#pragma once

#include <cstdint>
#include <optional>

#include "config/target_settings.h"

namespace vorlatch {

// Returns 0, or -1 and sets errno.
int setNiceValue(std::int32_t pid, std::int32_t nice_value);

// Returns the nice value. On failure returns -1, a valid nice value, and sets errno.
int getNiceValue(std::int32_t pid);

// Sets the nice value unless the process already has it, and logs the outcome.
void holdNiceValue(const TargetSettings& settings, std::int32_t pid);

// Sets the nice value to 0. Ignores failures.
void returnNiceValue(std::int32_t pid);

// Returns std::nullopt and sets errno if the kernel does not answer: the process may have exited.
std::optional<std::int32_t> observeNiceValue(std::int32_t pid);

}  // namespace vorlatch
