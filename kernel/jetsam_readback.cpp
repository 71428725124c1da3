#include "kernel/jetsam_readback.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <new>

#include "log/log_line.h"
#include "platform/memorystatus.h"

namespace vorlatch {
namespace {

using Entry = platform::memorystatus_priority_entry;

// Room for processes that appear between the two calls: the kernel refuses a buffer that is too
// small, and the size it asks for includes no reserve (xnu-11417.101.15,
// bsd/kern/kern_memorystatus.c, memorystatus_get_priority_list).
constexpr std::size_t kSpareEntries = 10;

int fetchPriorityList(void* buffer, std::size_t buffer_bytes) {
  return platform::memorystatus_control(platform::MEMORYSTATUS_CMD_GET_PRIORITY_LIST, 0, 0, buffer,
                                        buffer_bytes);
}

}  // namespace

JetsamPriorityList fetchJetsamPriorityList() {
  const int needed_bytes = fetchPriorityList(nullptr, 0);
  if (needed_bytes < 1) return {};
  const std::size_t buffer_bytes =
      static_cast<std::size_t>(needed_bytes) + kSpareEntries * sizeof(Entry);
  // Counts whole entries. The array has one more, because the buffer may end with part of an entry.
  const std::size_t capacity = buffer_bytes / sizeof(Entry);
  JetsamPriorityList list;
  list.entries.reset(new (std::nothrow) Entry[capacity + 1]);
  if (list.entries == nullptr) return {};
  errno = 0;
  const int filled_bytes = fetchPriorityList(list.entries.get(), buffer_bytes);
  if (filled_bytes < static_cast<int>(sizeof(Entry))) return {};
  list.count = std::min(static_cast<std::size_t>(filled_bytes) / sizeof(Entry), capacity);
  return list;
}

std::int32_t getActualJetsam(std::int32_t pid) {
  const JetsamPriorityList list = fetchJetsamPriorityList();
  const auto* const entry = std::find_if(
      list.begin(), list.end(), [pid](const Entry& candidate) { return candidate.pid == pid; });
  return entry == list.end() ? kNoJetsamPriority : entry->priority;
}

void verifyJetsamPriority(std::int32_t pid, int set_result, std::int32_t requested) {
  const std::int32_t actual = getActualJetsam(pid);
  if (actual == kNoJetsamPriority) {
    writeLogLine("[%s] [内存优先级] 未在内核优先级列表中找到 PID:%d\n", pid);
    writeLogLine("[%s] [内核] ：%s\n", set_result == 0 ? "调用成功但状态丢失" : "失败");
    return;
  }
  writeLogLine("[%s] [内存优先级] 为:%d\n", actual);
  if (requested == kNoJetsamPriority) {
    writeLogLine("[%s] [内核] ：系统接管并分配真实优先级为 %d\n", actual);
  } else if (actual == requested) {
    writeLogLine("[%s] [内核] ：成功\n");
  } else {
    writeLogLine("[%s] [内核] ：已被系统覆盖 (设置:%d 实际:%d)\n", requested, actual);
  }
}

}  // namespace vorlatch
