// A process's nice value, which setpriority(2) and getpriority(2) set and read.
#pragma once

#include <cstdint>
#include <optional>

#include "config/target_settings.h"

namespace vorlatch {

// Returns 0, or -1 and errno.
int setNiceValue(std::int32_t pid, std::int32_t nice_value);

// Returns -1 both for that nice value and on failure, which sets errno.
int getNiceValue(std::int32_t pid);

// Sets the nice value unless the process has it, and logs the outcome.
void holdNiceValue(const TargetSettings& settings, std::int32_t pid);

// Gives the process nice value 0, whatever the kernel answers.
void returnNiceValue(std::int32_t pid);

// Returns std::nullopt where the kernel does not answer, as the process is gone.
std::optional<std::int32_t> observeNiceValue(std::int32_t pid);

}  // namespace vorlatch
