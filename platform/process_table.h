// Platform interface for the process table: libproc's calls, buffers, results and errno.
#pragma once

#include <cstdint>

namespace vorlatch::platform {

// `type` argument of proc_listpids: all processes.
inline constexpr std::uint32_t PROC_ALL_PIDS = 1;

// With a null buffer, returns how many bytes the list of process ids may need. Otherwise stores
// 32-bit process ids, newest process first, and returns the number of bytes stored. Returns 0 with
// errno on failure. Safe to call from any thread, as are the two functions below.
int proc_listpids(std::uint32_t type, std::uint32_t typeinfo, void* buffer, int buffersize);

// Stores the process's name, at most 31 characters and a NUL, and returns its length. Returns 0
// with errno if the process is gone or a zombie. The buffer must hold at least 32 bytes.
int proc_name(int pid, void* buffer, std::uint32_t buffersize);

// Stores the path of the process's executable with a NUL and returns its length. Returns 0 with
// errno if the process is gone, is a zombie or has no executable. Buffers hold 1024 to 4096 bytes.
int proc_pidpath(int pid, void* buffer, std::uint32_t buffersize);

}  // namespace vorlatch::platform
