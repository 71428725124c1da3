// The seam for the kernel's memory status and priority calls, with the kernel's own names, records
// and numbers: xnu-11417.101.15, bsd/sys/kern_memorystatus.h and bsd/sys/resource.h. The public SDK
// leaves them out, so they are declared here for every platform.
#pragma once

#include <sys/resource.h>

#include <cstddef>
#include <cstdint>

namespace vorlatch::platform {

inline constexpr std::uint32_t MEMORYSTATUS_CMD_GET_PRIORITY_LIST = 1;
inline constexpr std::uint32_t MEMORYSTATUS_CMD_SET_PRIORITY_PROPERTIES = 2;
inline constexpr std::uint32_t MEMORYSTATUS_CMD_SET_MEMLIMIT_PROPERTIES = 7;
inline constexpr std::uint32_t MEMORYSTATUS_CMD_GET_MEMLIMIT_PROPERTIES = 8;
inline constexpr std::uint32_t MEMORYSTATUS_CMD_ELEVATED_INACTIVEJETSAMPRIORITY_ENABLE = 14;
inline constexpr std::uint32_t MEMORYSTATUS_CMD_ELEVATED_INACTIVEJETSAMPRIORITY_DISABLE = 15;
inline constexpr std::uint32_t MEMORYSTATUS_CMD_SET_PROCESS_IS_MANAGED = 16;
inline constexpr std::uint32_t MEMORYSTATUS_CMD_GET_PROCESS_IS_MANAGED = 17;
inline constexpr std::uint32_t MEMORYSTATUS_CMD_SET_PROCESS_IS_FREEZABLE = 18;

// Flag of SET_PRIORITY_PROPERTIES: the requested band stays, the effective one becomes the value.
inline constexpr std::uint32_t MEMORYSTATUS_SET_PRIORITY_ASSERTION = 0x1;
// Attribute of a memory limit: going over it ends the process.
inline constexpr std::uint32_t MEMORYSTATUS_MEMLIMIT_ATTR_FATAL = 0x1;

// One process of the kernel's priority list.
struct memorystatus_priority_entry {
  std::int32_t pid;
  std::int32_t priority;    // the jetsam band in force
  std::uint64_t user_data;  // never interpreted by the kernel
  std::int32_t limit;       // MB in force now, -1 without one
  std::uint32_t state;
};
static_assert(sizeof(memorystatus_priority_entry) == 24);

struct memorystatus_priority_properties {
  std::int32_t priority;
  std::uint32_t padding;  // alignment in the kernel's record; always 0
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

// `which` of setpriority beside PRIO_PROCESS of <sys/resource.h>, and its value.
inline constexpr int PRIO_DARWIN_ROLE = 6;
inline constexpr int PRIO_DARWIN_ROLE_UI_FOCAL = 1;

// memorystatus_control(2) of the kernel: -1 and errno on failure; on success the number of bytes
// for GET_PRIORITY_LIST, 0 or 1 for GET_PROCESS_IS_MANAGED, 0 for the others.
// Safe to call from any thread, as are the two below.
int memorystatus_control(std::uint32_t command, std::int32_t pid, std::uint32_t flags, void* buffer,
                         std::size_t buffersize);

// getpriority(2): the nice value, or -1 and errno. -1 is also a nice value: clear errno first.
int getpriority(int which, std::uint32_t who);

// setpriority(2): 0, or -1 and errno. The value holds for the whole process.
int setpriority(int which, std::uint32_t who, int value);

}  // namespace vorlatch::platform
