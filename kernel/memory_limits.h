// A process's memory limits, one while it is active and one while it is inactive.
#pragma once

#include <cstdint>
#include <optional>

#include "config/target_settings.h"

namespace vorlatch {

// In MB; -1 for a process without a limit.
struct MemoryLimits {
  std::int32_t active_mb = 0;
  std::int32_t inactive_mb = 0;
};

// Sets both limits and logs them as the kernel reads them back. A limit below 1 is the system's
// default; one of 1 and above is fatal: the kernel ends a process that exceeds it.
void holdMemoryLimits(const TargetSettings& settings, std::int32_t pid);

// Gives the process the system's default limits, whatever the kernel answers.
void returnMemoryLimits(std::int32_t pid);

// Returns std::nullopt where the kernel does not answer.
std::optional<MemoryLimits> observeMemoryLimits(std::int32_t pid);

// Whether both limits read back are what the settings ask for. A wanted default (0 or -1) holds
// when the kernel answers with the positive limit that it chose. Any other pair has to be equal: a
// 0 read back as -1 counts as overridden.
bool memoryLimitsHold(const TargetSettings& settings, const MemoryLimits& actual);

}  // namespace vorlatch
