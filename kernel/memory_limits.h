// A process has two memory limits: one while it is active, one while it is inactive.
#pragma once

#include <cstdint>
#include <optional>

#include "config/target_settings.h"

namespace vorlatch {

// In MB; -1 means no limit.
struct MemoryLimits {
  std::int32_t active_mb = 0;
  std::int32_t inactive_mb = 0;
};

// Sets both limits and logs the values read back. A wanted limit below 1 selects the system's
// default. A limit of 1 or more is fatal: the kernel kills a process that exceeds it.
void holdMemoryLimits(const TargetSettings& settings, std::int32_t pid);

// Gives the process the system's default limits. Ignores failures.
void returnMemoryLimits(std::int32_t pid);

// Returns std::nullopt if the kernel does not answer.
std::optional<MemoryLimits> observeMemoryLimits(std::int32_t pid);

// Returns true if both limits read back match the settings. A wanted default (0 or -1) matches
// every positive limit, because the kernel chose it. Any other two values must be equal: a wanted 0
// that is read back as -1 counts as overridden.
bool memoryLimitsHold(const TargetSettings& settings, const MemoryLimits& actual);

}  // namespace vorlatch
