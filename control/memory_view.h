// How much memory a process uses, and how near that is to its limit.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "control/observation.h"
#include "platform/memory_use.h"

namespace vorlatch::control {

struct MemoryView {
  std::optional<platform::ProcessMemory> memory;  // empty if hidden from this user
  std::optional<std::int32_t> limit_mb;           // in force now; empty if there is none

  // Returns how much of the limit is used; empty without a limit.
  [[nodiscard]] std::optional<std::int32_t> percentOfLimit() const;
};

MemoryView memoryOf(const Observation& observation, std::int32_t pid);

// Returns bytes in MB, rounded up.
std::int64_t megabytesOf(std::uint64_t bytes);

// Returns "812, peak 1020, 40 %" or, with a bar, "812, peak 1020, 40 % ####......"; "-" if unknown.
std::string memoryText(const MemoryView& view, bool with_bar);

// Returns null if unknown.
nlohmann::ordered_json memoryJson(const MemoryView& view);

}  // namespace vorlatch::control
