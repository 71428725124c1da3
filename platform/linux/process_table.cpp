#include "platform/process_table.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <vector>

#include "platform/linux/process_stat.h"

namespace vorlatch::platform {
namespace {

constexpr std::size_t kSpareEntries = 20;           // as xnu's proc_listpids adds
constexpr std::size_t kNameBufferMin = 32;          // sizeof pbi_name
constexpr std::size_t kNameLengthMax = 31;          // characters of pbi_name
constexpr std::size_t kLinuxNameLengthMax = 15;     // TASK_COMM_LEN without the NUL
constexpr std::uint32_t kPathBufferMin = 1024;      // PROC_PIDPATHINFO_SIZE
constexpr std::uint32_t kPathBufferMax = 4 * 1024;  // PROC_PIDPATHINFO_MAXSIZE

int fail(int error) {
  errno = error;
  return 0;
}

int writeText(std::string_view text, void* buffer) {
  char* out = static_cast<char*>(buffer);
  std::memcpy(out, text.data(), text.size());
  out[text.size()] = '\0';
  return static_cast<int>(text.size());
}

// Returns the executable's name if it begins with the truncated name `cut`, otherwise `cut`.
std::string_view completeName(pid_t pid, std::string_view cut, ExecutablePathBuffer& buffer) {
  std::string_view name = readExecutablePath(pid, buffer);
  name.remove_prefix(name.rfind('/') + 1);  // npos + 1 is 0
  return name.starts_with(cut) ? name : cut;
}

}  // namespace

int proc_listpids(std::uint32_t type, std::uint32_t /*typeinfo*/, void* buffer, int buffersize) {
  if (type != PROC_ALL_PIDS) return fail(EINVAL);
  const std::vector<std::int32_t> pids = listProcessIds();
  if (pids.empty()) return 0;
  if (buffer == nullptr) {
    return static_cast<int>((pids.size() + kSpareEntries) * sizeof(std::int32_t));
  }
  if (buffersize < static_cast<int>(sizeof(std::int32_t))) return fail(ENOMEM);
  const std::size_t room = static_cast<std::size_t>(buffersize) / sizeof(std::int32_t);
  const std::size_t bytes = std::min(pids.size(), room) * sizeof(std::int32_t);
  std::memcpy(buffer, pids.data(), bytes);
  return static_cast<int>(bytes);
}

int proc_name(int pid, void* buffer, std::uint32_t buffersize) {
  if (buffersize < kNameBufferMin) return fail(ENOMEM);
  const std::optional<ProcessStat> stat = readProcessStat(pid);
  if (!stat) return 0;
  if (stat->has_exited) return fail(ESRCH);
  ExecutablePathBuffer path;
  std::string_view name = stat->nameView();
  if (name.size() == kLinuxNameLengthMax) {
    const int saved_errno = errno;
    name = completeName(pid, name, path);
    errno = saved_errno;
  }
  return writeText(name.substr(0, kNameLengthMax), buffer);
}

int proc_pidpath(int pid, void* buffer, std::uint32_t buffersize) {
  if (buffersize < kPathBufferMin) return fail(ENOMEM);
  if (buffersize > kPathBufferMax) return fail(EOVERFLOW);
  ExecutablePathBuffer path_buffer;
  const std::string_view path = readExecutablePath(pid, path_buffer);
  if (path.empty()) return 0;
  if (path.size() >= buffersize) return fail(ENOSPC);
  return writeText(path, buffer);
}

}  // namespace vorlatch::platform
