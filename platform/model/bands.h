// The jetsam bands of each kernel generation that a rule of the model depends on.
#pragma once

#include <cstdint>

#include "platform/model/jetsam_model.h"

namespace vorlatch::model {

struct Bands {
  std::int32_t first_reserved;
  std::int32_t last_reserved;  // a reserved band that is asked for becomes idle
  std::int32_t elevated;
  std::int32_t foreground;
  std::int32_t fallback;  // what a process starts in, and what -1 means
  std::int32_t highest;
};

inline constexpr std::int32_t kIdleBand = 0;

constexpr Bands bandsOf(KernelGeneration generation) {
  if (generation == KernelGeneration::Xnu4903To8020) {
    return {.first_reserved = 1,
            .last_reserved = 2,
            .elevated = 4,
            .foreground = 10,
            .fallback = 18,
            .highest = 21};
  }
  return {.first_reserved = 1,
          .last_reserved = 20,
          .elevated = 40,
          .foreground = 100,
          .fallback = 180,
          .highest = 210};
}

// The limit that a process with this stored one is reported to have, in MB.
constexpr std::int32_t reportedLimitMb(const Kernel& kernel, const MemoryLimit& limit) {
  return limit.limit_mb > 0 ? limit.limit_mb : kernel.default_task_limit_mb;
}

}  // namespace vorlatch::model
