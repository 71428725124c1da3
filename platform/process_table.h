// The seam for the process table: libproc's calls with their own buffers, results and errno.
#pragma once

#include <cstdint>

namespace vorlatch::platform {

// `type` of proc_listpids: every process.
inline constexpr std::uint32_t PROC_ALL_PIDS = 1;

// With a null buffer: the number of bytes that the list of process ids may need. Otherwise fills in
// 32-bit process ids, newest process first, and gives the number of bytes written. 0 and errno on
// failure. Safe to call from any thread, as are the two below.
int proc_listpids(std::uint32_t type, std::uint32_t typeinfo, void* buffer, int buffersize);

// Writes the process's name, at most 31 characters and a NUL, and gives its length; 0 and errno
// when the process is gone or a zombie. The buffer holds at least 32 bytes.
int proc_name(int pid, void* buffer, std::uint32_t buffersize);

// Writes the path of the process's executable with a NUL and gives its length; 0 and errno when the
// process is gone, a zombie, or has no executable. The buffer holds 1024 to 4096 bytes.
int proc_pidpath(int pid, void* buffer, std::uint32_t buffersize);

}  // namespace vorlatch::platform
