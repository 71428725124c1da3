// Numbers of the jetsam bands that the model's rules use, per kernel generation.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/jetsam_bands.h"
#include "platform/model/jetsam_model.h"

namespace vorlatch::model {

struct Bands {
  std::int32_t last_reserved;  // requests for bands above idle, up to this one, become idle
  std::int32_t elevated;
  std::int32_t foreground;
  std::int32_t fallback;  // the band of a new process, and the meaning of -1
  std::int32_t highest;
};

inline constexpr std::int32_t kIdleBand = 0;

constexpr Bands bandsOf(KernelGeneration generation) {
  const auto number = [generation](std::string_view name) {
    for (const platform::JetsamBand& band : platform::kJetsamBands) {
      if (band.name != name) continue;
      return generation == KernelGeneration::Xnu4903To8020 ? band.to_ios15 : band.since_ios16;
    }
    return platform::kNoSuchBand;
  };
  return {.last_reserved = number("aging2"),
          .elevated = number("mail"),
          .foreground = number("foreground"),
          .fallback = number("default"),
          .highest = number("highest")};
}

// Returns the limit in MB that the kernel reports for this stored limit.
constexpr std::int32_t reportedLimitMb(const Kernel& kernel, const MemoryLimit& limit) {
  return limit.limit_mb > 0 ? limit.limit_mb : kernel.default_task_limit_mb;
}

}  // namespace vorlatch::model
