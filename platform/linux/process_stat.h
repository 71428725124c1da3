// Reads /proc. The process table uses it, and so does the kernel model, to identify a process.
#pragma once

#include <sys/types.h>

#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace vorlatch::platform {

struct ProcessStat {
  // The kernel keeps 15 bytes of a program's name, and up to 63 of its own threads' names.
  std::array<char, 64> name{};
  std::size_t name_length = 0;
  std::uint64_t start_time_ticks = 0;  // clock ticks from boot to the process's start
  bool has_exited = false;             // a zombie, which its parent has not reaped yet

  [[nodiscard]] std::string_view nameView() const { return {name.data(), name_length}; }
};

// Parses a /proc/PID/stat file. Returns std::nullopt if the text is not one. The text may be cut
// off after the start time, the 22nd field.
std::optional<ProcessStat> parseProcessStat(std::string_view text);

// Reads a process's stat file with three system calls and no allocation. Returns std::nullopt with
// errno on failure; ESRCH means that there is no such process.
std::optional<ProcessStat> readProcessStat(pid_t pid);

// Room for a path of PATH_MAX and the mark that Linux appends to the path of a deleted file.
using ExecutablePathBuffer = std::array<char, PATH_MAX + 16>;

// Returns the path of a process's executable, in the caller's buffer and without a NUL. Returns an
// empty view with errno if the process is gone, has none or hides it. One system call.
std::string_view readExecutablePath(pid_t pid, ExecutablePathBuffer& buffer);

// Returns all process ids, highest first; an empty list with errno if /proc cannot be read.
std::vector<std::int32_t> listProcessIds();

}  // namespace vorlatch::platform
