#include "platform/memorystatus.h"

// In libSystem since iOS 5, but in no public header: xnu-11417.101.15, bsd/sys/kern_memorystatus.h.
extern "C" int memorystatus_control(std::uint32_t command, std::int32_t pid, std::uint32_t flags,
                                    void* buffer, std::size_t buffersize);

namespace vorlatch::platform {

int memorystatus_control(std::uint32_t command, std::int32_t pid, std::uint32_t flags, void* buffer,
                         std::size_t buffersize) {
  return ::memorystatus_control(command, pid, flags, buffer, buffersize);
}

int getpriority(int which, std::uint32_t who) {
  return ::getpriority(which, who);
}

int setpriority(int which, std::uint32_t who, int value) {
  return ::setpriority(which, who, value);
}

}  // namespace vorlatch::platform
