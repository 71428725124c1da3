// The memory of processes of other users, from the kernel's snapshot for jetsam.
#pragma once

#include <cstdint>
#include <map>
#include <string_view>

#include "platform/memory_use.h"

namespace vorlatch::control {

using MemoryByPid = std::map<std::int32_t, platform::ProcessMemory>;

// Takes a snapshot: of all processes, whoever asks, if the program has the entitlement that
// memorystatus_control needs. Empty on failure.
MemoryByPid takeJetsamSnapshot();

// Reads a snapshot. `page_bytes` is the size of a page. Empty if it has another form than expected.
MemoryByPid readJetsamSnapshot(std::string_view snapshot, std::uint64_t page_bytes);

}  // namespace vorlatch::control
