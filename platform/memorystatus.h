// Platform interface for the kernel's memory status and priority calls, with the kernel's own
// names, records and numbers: xnu-11417.101.15, bsd/sys/kern_memorystatus.h and bsd/sys/resource.h.
// Declared here for every platform, because the public SDK lacks them.
#pragma once

#include <sys/resource.h>

#include <cstddef>
#include <cstdint>

namespace vorlatch::platform {

inline constexpr std::uint32_t MEMORYSTATUS_CMD_GET_PRIORITY_LIST = 1;
inline constexpr std::uint32_t MEMORYSTATUS_CMD_SET_PRIORITY_PROPERTIES = 2;
inline constexpr std::uint32_t MEMORYSTATUS_CMD_GET_JETSAM_SNAPSHOT = 3;
inline constexpr std::uint32_t MEMORYSTATUS_CMD_SET_MEMLIMIT_PROPERTIES = 7;
inline constexpr std::uint32_t MEMORYSTATUS_CMD_GET_MEMLIMIT_PROPERTIES = 8;
inline constexpr std::uint32_t MEMORYSTATUS_CMD_ELEVATED_INACTIVEJETSAMPRIORITY_ENABLE = 14;
inline constexpr std::uint32_t MEMORYSTATUS_CMD_ELEVATED_INACTIVEJETSAMPRIORITY_DISABLE = 15;
inline constexpr std::uint32_t MEMORYSTATUS_CMD_SET_PROCESS_IS_MANAGED = 16;
inline constexpr std::uint32_t MEMORYSTATUS_CMD_GET_PROCESS_IS_MANAGED = 17;
inline constexpr std::uint32_t MEMORYSTATUS_CMD_SET_PROCESS_IS_FREEZABLE = 18;

// Flag of SET_PRIORITY_PROPERTIES: changes the effective band and keeps the requested one.
inline constexpr std::uint32_t MEMORYSTATUS_SET_PRIORITY_ASSERTION = 0x1;
// Flag of GET_JETSAM_SNAPSHOT: takes one now, and leaves the one of the last kills alone.
inline constexpr std::uint32_t MEMORYSTATUS_SNAPSHOT_ON_DEMAND = 0x1;
// Attribute of a memory limit: the kernel ends a process that exceeds the limit.
inline constexpr std::uint32_t MEMORYSTATUS_MEMLIMIT_ATTR_FATAL = 0x1;

// One process in the kernel's priority list.
struct memorystatus_priority_entry {
  std::int32_t pid;
  std::int32_t priority;    // the effective jetsam band
  std::uint64_t user_data;  // never interpreted by the kernel
  std::int32_t limit;       // MB in force now; -1: none
  std::uint32_t state;
};
static_assert(sizeof(memorystatus_priority_entry) == 24);

struct memorystatus_priority_properties {
  std::int32_t priority;
  std::uint32_t padding;  // alignment; always 0
  std::uint64_t user_data;
};
static_assert(sizeof(memorystatus_priority_properties) == 16);

struct memorystatus_memlimit_properties {
  std::int32_t memlimit_active;  // MB
  std::uint32_t memlimit_active_attr;
  std::int32_t memlimit_inactive;  // MB
  std::uint32_t memlimit_inactive_attr;
};
static_assert(sizeof(memorystatus_memlimit_properties) == 16);

// Another `which` for setpriority, besides PRIO_PROCESS of <sys/resource.h>, and a value to set.
inline constexpr int PRIO_DARWIN_ROLE = 6;
inline constexpr int PRIO_DARWIN_ROLE_UI_FOCAL = 1;

// The kernel's memorystatus_control(2). Returns -1 with errno on failure. On success returns the
// number of bytes for GET_PRIORITY_LIST and GET_JETSAM_SNAPSHOT, 0 or 1 for GET_PROCESS_IS_MANAGED,
// and 0 for the others. Safe to call from any thread, as are the two functions below.
int memorystatus_control(std::uint32_t command, std::int32_t pid, std::uint32_t flags, void* buffer,
                         std::size_t buffersize);

// Returns the nice value, or -1 with errno. -1 is also a nice value: clear errno first.
int getpriority(int which, std::uint32_t who);

// setpriority(2): returns 0, or -1 with errno. The value applies to the whole process.
int setpriority(int which, std::uint32_t who, int value);

}  // namespace vorlatch::platform
