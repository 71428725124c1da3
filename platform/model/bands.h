// The jetsam bands of each kernel generation that a rule of the model depends on.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/jetsam_bands.h"
#include "platform/model/jetsam_model.h"

namespace vorlatch::model {

struct Bands {
  std::int32_t last_reserved;  // above idle and up to this: a band that is asked for becomes idle
  std::int32_t elevated;
  std::int32_t foreground;
  std::int32_t fallback;  // what a process starts in, and what -1 means
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

// The limit that a process with this stored one is reported to have, in MB.
constexpr std::int32_t reportedLimitMb(const Kernel& kernel, const MemoryLimit& limit) {
  return limit.limit_mb > 0 ? limit.limit_mb : kernel.default_task_limit_mb;
}

}  // namespace vorlatch::model
