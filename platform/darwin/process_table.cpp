#include "platform/process_table.h"

// In libSystem, but in no header of the iOS SDK: xnu-11417.101.15, libsyscall/wrappers/libproc.
extern "C" {
int proc_listpids(std::uint32_t type, std::uint32_t typeinfo, void* buffer, int buffersize);
int proc_name(int pid, void* buffer, std::uint32_t buffersize);
int proc_pidpath(int pid, void* buffer, std::uint32_t buffersize);
}

namespace vorlatch::platform {

int proc_listpids(std::uint32_t type, std::uint32_t typeinfo, void* buffer, int buffersize) {
  return ::proc_listpids(type, typeinfo, buffer, buffersize);
}

int proc_name(int pid, void* buffer, std::uint32_t buffersize) {
  return ::proc_name(pid, buffer, buffersize);
}

int proc_pidpath(int pid, void* buffer, std::uint32_t buffersize) {
  return ::proc_pidpath(pid, buffer, buffersize);
}

}  // namespace vorlatch::platform
