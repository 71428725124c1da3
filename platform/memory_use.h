// Platform interface for memory in use: by one process, and by the whole machine.
#pragma once

#include <cstdint>
#include <optional>

namespace vorlatch::platform {

struct ProcessMemory {
  std::uint64_t footprint_bytes;  // what the kernel compares with the process's memory limit
  std::uint64_t peak_bytes;       // the highest footprint so far, at least the current one
};

// Returns std::nullopt with errno if the process is gone or hidden from this user. Safe to call
// from any thread.
std::optional<ProcessMemory> memoryOfProcess(int pid);

struct MachineMemory {
  std::uint64_t total_bytes;
  std::uint64_t free_bytes;        // unused, or can be reused without compressing anything
  std::uint64_t compressed_bytes;  // taken by compressed memory
};

// Returns std::nullopt with errno on failure. Safe to call from any thread.
std::optional<MachineMemory> memoryOfMachine();

}  // namespace vorlatch::platform
