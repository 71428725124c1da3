#include "platform/memory_use.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <string>
#include <string_view>

#include "base/descriptor.h"

namespace vorlatch::platform {
namespace {

constexpr std::uint64_t kKibibyte = 1024;

// Returns the beginning of a file of /proc, empty with errno if it cannot be read.
std::string_view readProc(const std::string& path, std::array<char, 4096>& buffer) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.isOpen()) return {};
  const ssize_t length = ::read(file.get(), buffer.data(), buffer.size());
  return {buffer.data(), length > 0 ? static_cast<std::size_t>(length) : 0};
}

// Returns the number behind a name such as "Pss:", which is in KiB.
std::optional<std::uint64_t> bytesAfter(std::string_view text, std::string_view name) {
  std::size_t at = text.find("\n" + std::string(name));
  if (text.starts_with(name)) at = 0;
  if (at == text.npos) return std::nullopt;
  at = text.find_first_of("0123456789", at);
  std::uint64_t number = 0;
  if (at == text.npos ||
      std::from_chars(text.data() + at, text.data() + text.size(), number).ec != std::errc{}) {
    return std::nullopt;
  }
  return number * kKibibyte;
}

}  // namespace

std::optional<ProcessMemory> memoryOfProcess(int pid) {
  const std::string folder = "/proc/" + std::to_string(pid);
  std::array<char, 4096> buffer{};
  const std::string_view status = readProc(folder + "/status", buffer);
  if (status.empty()) {
    if (errno == ENOENT) errno = ESRCH;
    return std::nullopt;
  }
  // A kernel thread and a zombie have no memory of their own.
  const std::uint64_t resident = bytesAfter(status, "VmRSS:").value_or(0);
  const std::uint64_t peak = bytesAfter(status, "VmHWM:").value_or(0);
  // The proportional share is nearest to Darwin's footprint; only root may read it.
  const std::uint64_t used =
      bytesAfter(readProc(folder + "/smaps_rollup", buffer), "Pss:").value_or(resident);
  return ProcessMemory{.footprint_bytes = used, .peak_bytes = std::max(used, peak)};
}

std::optional<MachineMemory> memoryOfMachine() {
  std::array<char, 4096> buffer{};
  const std::string_view text = readProc("/proc/meminfo", buffer);
  const auto total = bytesAfter(text, "MemTotal:");
  const auto available = bytesAfter(text, "MemAvailable:");
  if (!total || !available) return std::nullopt;
  return MachineMemory{.total_bytes = *total,
                       .free_bytes = *available,
                       .compressed_bytes = bytesAfter(text, "Zswap:").value_or(0)};
}

}  // namespace vorlatch::platform
