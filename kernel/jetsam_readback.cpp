#include "kernel/jetsam_readback.h"

#include <cerrno>
#include <cstddef>
#include <memory>
#include <new>

#include "config/log_line.h"
#include "platform/memorystatus.h"

namespace vorlatch {
namespace {

using Entry = platform::memorystatus_priority_entry;

// Room for processes that appear between the two calls. The kernel refuses a buffer that is too
// small and asks for no slack of its own (xnu-11417.101.15, bsd/kern/kern_memorystatus.c,
// memorystatus_get_priority_list).
constexpr std::size_t kSpareEntries = 10;

int fetchPriorityList(void* buffer, std::size_t buffer_bytes) {
  return platform::memorystatus_control(platform::MEMORYSTATUS_CMD_GET_PRIORITY_LIST, 0, 0, buffer,
                                        buffer_bytes);
}

}  // namespace

std::int32_t getActualJetsam(std::int32_t pid) {
  const int needed_bytes = fetchPriorityList(nullptr, 0);
  if (needed_bytes < 1) return kNoJetsamPriority;
  const std::size_t buffer_bytes =
      static_cast<std::size_t>(needed_bytes) + kSpareEntries * sizeof(Entry);
  const std::unique_ptr<Entry[]> entries(new (std::nothrow)
                                             Entry[buffer_bytes / sizeof(Entry) + 1]);
  if (entries == nullptr) return kNoJetsamPriority;
  errno = 0;
  const int filled_bytes = fetchPriorityList(entries.get(), buffer_bytes);
  if (filled_bytes < static_cast<int>(sizeof(Entry))) return kNoJetsamPriority;
  const std::size_t count = static_cast<std::size_t>(filled_bytes) / sizeof(Entry);
  for (std::size_t i = 0; i < count; ++i) {
    if (entries[i].pid == pid) return entries[i].priority;
  }
  return kNoJetsamPriority;
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
