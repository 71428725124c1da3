#include "platform/linux/process_stat.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>

namespace vorlatch::platform {
namespace {

constexpr std::string_view kDeletedMark = " (deleted)";
// Indexes of fields in /proc/PID/stat. The state, which follows the name, has index 0.
constexpr std::size_t kThreadCountField = 17;
constexpr std::size_t kStartTimeField = 19;
// Room for all fields up to the start time: the name and twenty numbers of at most twenty digits.
constexpr std::size_t kStatBufferSize = 1024;

using ProcPath = std::array<char, 40>;

// Returns a path below /proc/PID. `name` is one of the fixed names in this file.
ProcPath procPath(pid_t pid, const char* name) {
  ProcPath path{};
  std::snprintf(path.data(), path.size(), "/proc/%d/%s", pid, name);
  return path;
}

std::string_view nextField(std::string_view& rest) {
  rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
  const std::string_view field = rest.substr(0, rest.find(' '));
  rest.remove_prefix(field.size());
  return field;
}

std::optional<std::uint64_t> parseNumber(std::string_view text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end == text.data()) return std::nullopt;
  return number;
}

// A zombie with more than one thread still runs: only its main thread has ended.
bool stateSaysExited(std::string_view state, std::uint64_t thread_count) {
  return state == "X" || state == "x" || (state == "Z" && thread_count <= 1);
}

void becomeNoSuchProcess() {
  if (errno == ENOENT || errno == ENOTDIR) errno = ESRCH;
}

}  // namespace

std::optional<ProcessStat> parseProcessStat(std::string_view text) {
  // The name may contain any character, even parentheses; later fields contain no parentheses.
  const std::size_t open = text.find('(');
  const std::size_t close = text.rfind(')');
  if (open == std::string_view::npos || close == std::string_view::npos || close < open) {
    return std::nullopt;
  }
  ProcessStat stat;
  const std::string_view name = text.substr(open + 1, close - open - 1);
  stat.name_length = std::min(name.size(), stat.name.size() - 1);
  std::memcpy(stat.name.data(), name.data(), stat.name_length);

  std::string_view rest = text.substr(close + 1);
  const std::string_view state = nextField(rest);
  std::optional<std::uint64_t> thread_count;
  std::optional<std::uint64_t> start_time;
  for (std::size_t field = 1; field <= kStartTimeField; ++field) {
    const std::string_view value = nextField(rest);
    if (field == kThreadCountField) thread_count = parseNumber(value);
    if (field == kStartTimeField) start_time = parseNumber(value);
  }
  if (!thread_count || !start_time) return std::nullopt;
  stat.start_time_ticks = *start_time;
  stat.has_exited = stateSaysExited(state, *thread_count);
  return stat;
}

std::optional<ProcessStat> readProcessStat(pid_t pid) {
  if (pid <= 0) {
    errno = ESRCH;
    return std::nullopt;
  }
  const int file = open(procPath(pid, "stat").data(), O_RDONLY | O_CLOEXEC);
  if (file < 0) {
    becomeNoSuchProcess();
    return std::nullopt;
  }
  std::array<char, kStatBufferSize> buffer;
  const ssize_t length = read(file, buffer.data(), buffer.size());
  close(file);
  std::optional<ProcessStat> stat;
  if (length > 0) stat = parseProcessStat({buffer.data(), static_cast<std::size_t>(length)});
  if (!stat) errno = ESRCH;
  return stat;
}

std::string_view readExecutablePath(pid_t pid, ExecutablePathBuffer& buffer) {
  if (pid <= 0) {
    errno = ESRCH;
    return {};
  }
  const ssize_t length = readlink(procPath(pid, "exe").data(), buffer.data(), buffer.size());
  if (length < 0) {
    becomeNoSuchProcess();
    return {};
  }
  std::string_view path(buffer.data(), static_cast<std::size_t>(length));
  if (path.ends_with(kDeletedMark)) path.remove_suffix(kDeletedMark.size());
  return path;
}

std::vector<std::int32_t> listProcessIds() {
  struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
  };
  std::vector<std::int32_t> pids;
  const std::unique_ptr<DIR, CloseDirectory> directory(opendir("/proc"));
  if (!directory) return pids;
  while (const dirent* entry = readdir(directory.get())) {
    const std::string_view name = entry->d_name;
    std::int32_t pid = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
    if (error == std::errc{} && end == name.data() + name.size()) pids.push_back(pid);
  }
  std::sort(pids.begin(), pids.end(), std::greater<>());
  return pids;
}

}  // namespace vorlatch::platform
