#include "control/jetsam_snapshot.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <string>

#include "platform/memorystatus.h"

namespace vorlatch::control {
namespace {

// The kernel's memorystatus_jetsam_snapshot_t, of which only the number of entries counts here, and
// the beginning of its entries. Newer kernels append to the entries: they have 256 bytes in iOS 15
// and 16, 272 in iOS 17, 280 in iOS 18 (xnu-8019.41.5 to xnu-11417.101.15,
// bsd/sys/kern_memorystatus.h).
constexpr std::size_t kEntryCountOffset = 192;
constexpr std::size_t kEntriesOffset = 200;
constexpr std::size_t kSmallestEntryBytes = 256;
constexpr std::size_t kLargestEntryBytes = 512;
constexpr std::size_t kEntryAlignment = 8;

struct EntryBegin {
  std::int32_t pid;
  std::array<char, 33> name;
  std::int32_t priority;
  std::uint32_t state;
  std::uint32_t fds;
  std::uint32_t freeze_skip_reason;
  std::array<std::uint8_t, 16> uuid;
  std::uint64_t user_data;
  std::uint64_t killed;
  std::uint64_t pages;  // of the footprint
  std::uint64_t max_pages_lifetime;
};
static_assert(offsetof(EntryBegin, pages) == 88);

// The kernel refuses a buffer that is too small, and the list may grow meanwhile.
constexpr std::size_t kSpareBytes = 16 * kLargestEntryBytes;

template <typename T>
T readAt(std::string_view bytes, std::size_t offset) {
  T value;
  std::memcpy(&value, bytes.data() + offset, sizeof value);
  return value;
}

// Returns true for a text and zeros behind it, as the kernel leaves them.
bool isName(const std::array<char, 33>& name) {
  const std::string_view text(name.data(), name.size());
  const std::size_t end = text.find('\0');
  return end != text.npos && text.find_first_not_of('\0', end) == text.npos;
}

// Returns the processes if the entries have this size; empty if they cannot have it.
MemoryByPid readEntries(std::string_view entries, std::uint64_t count, std::size_t entry_bytes,
                        std::uint64_t page_bytes) {
  MemoryByPid memory;
  for (std::uint64_t i = 0; i < count; ++i) {
    const auto entry = readAt<EntryBegin>(entries, i * entry_bytes);
    const bool is_new =
        memory
            .emplace(
                entry.pid,
                platform::ProcessMemory{
                    .footprint_bytes = entry.pages * page_bytes,
                    .peak_bytes = std::max(entry.pages, entry.max_pages_lifetime) * page_bytes})
            .second;
    if (!is_new || entry.pid < 0 || !isName(entry.name)) return {};
  }
  return memory;
}

int fetchSnapshot(void* buffer, std::size_t buffer_bytes) {
  // Without the flag, the kernel would empty the snapshot that its own reports are made of.
  return platform::memorystatus_control(platform::MEMORYSTATUS_CMD_GET_JETSAM_SNAPSHOT, 0,
                                        platform::MEMORYSTATUS_SNAPSHOT_ON_DEMAND, buffer,
                                        buffer_bytes);
}

}  // namespace

MemoryByPid readJetsamSnapshot(std::string_view snapshot, std::uint64_t page_bytes) {
  if (snapshot.size() <= kEntriesOffset) return {};
  const auto count = readAt<std::uint64_t>(snapshot, kEntryCountOffset);
  const std::string_view entries = snapshot.substr(kEntriesOffset);
  for (std::size_t bytes = kSmallestEntryBytes; bytes <= kLargestEntryBytes;
       bytes += kEntryAlignment) {
    // The kernel may leave room for some entries behind the last one.
    if (entries.size() % bytes != 0 || count > entries.size() / bytes) continue;
    MemoryByPid memory = readEntries(entries, count, bytes, page_bytes);
    if (!memory.empty()) return memory;
  }
  return {};
}

MemoryByPid takeJetsamSnapshot() {
  const int needed_bytes = fetchSnapshot(nullptr, 0);
  if (needed_bytes < 1) return {};
  std::string buffer(static_cast<std::size_t>(needed_bytes) + kSpareBytes, '\0');
  const int filled_bytes = fetchSnapshot(buffer.data(), buffer.size());
  if (filled_bytes < 1) return {};
  const std::size_t size = std::min(static_cast<std::size_t>(filled_bytes), buffer.size());
  // Devices of iOS 15 and later have the same pages in the kernel and in programs.
  const auto page_bytes = static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
  return readJetsamSnapshot(std::string_view(buffer).substr(0, size), page_bytes);
}

}  // namespace vorlatch::control
