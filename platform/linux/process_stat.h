// What /proc says of the machine's processes: the reading behind the process table and behind the
// identity of a process in the kernel model.
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
  // The kernel keeps 15 bytes of a program's name; its own threads show up to 63.
  std::array<char, 64> name{};
  std::size_t name_length = 0;
  std::uint64_t start_time_ticks = 0;  // clock ticks from boot to the process's start
  bool has_exited = false;             // a zombie: only its parent has yet to hear of it

  [[nodiscard]] std::string_view nameView() const { return {name.data(), name_length}; }
};

// The fields of a /proc/PID/stat file; nothing when the text is not one. A text cut short behind
// the start time, the 22nd field, is enough.
std::optional<ProcessStat> parseProcessStat(std::string_view text);

// Reads a process's stat file: three system calls, no allocation. Nothing, with errno ESRCH, when
// there is no such process.
std::optional<ProcessStat> readProcessStat(pid_t pid);

// Room for a path of PATH_MAX and for what Linux appends to the path of a deleted file.
using ExecutablePathBuffer = std::array<char, PATH_MAX + 16>;

// The path of a process's executable, in the caller's buffer and without a NUL; empty, with errno,
// when the process is gone, has none, or hides it from the caller. One system call.
std::string_view readExecutablePath(pid_t pid, ExecutablePathBuffer& buffer);

// Every process id of the machine, highest first; empty, with errno, when /proc cannot be read.
std::vector<std::int32_t> listProcessIds();

}  // namespace vorlatch::platform
