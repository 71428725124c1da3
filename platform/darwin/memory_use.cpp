#include "platform/memory_use.h"

#include <mach/mach.h>
#include <sys/resource.h>
#include <sys/sysctl.h>

#include <algorithm>
#include <cerrno>

// In libSystem, but in no header of the iOS SDK: xnu-11417.101.15, libsyscall/wrappers/libproc.
extern "C" int proc_pid_rusage(int pid, int flavor, rusage_info_t* buffer);

namespace vorlatch::platform {

std::optional<ProcessMemory> memoryOfProcess(int pid) {
  rusage_info_v4 usage{};
  // The parameter's type is wrong: the function fills the structure that it points to.
  if (::proc_pid_rusage(pid, RUSAGE_INFO_V4, reinterpret_cast<rusage_info_t*>(&usage)) != 0) {
    return std::nullopt;
  }
  return ProcessMemory{
      .footprint_bytes = usage.ri_phys_footprint,
      .peak_bytes = std::max(usage.ri_phys_footprint, usage.ri_lifetime_max_phys_footprint)};
}

std::optional<MachineMemory> memoryOfMachine() {
  std::uint64_t total = 0;
  std::size_t size = sizeof total;
  if (::sysctlbyname("hw.memsize", &total, &size, nullptr, 0) != 0) return std::nullopt;
  vm_statistics64_data_t pages{};
  // iOS 15 knows the fields up to this revision; later headers have more.
  mach_msg_type_number_t count = HOST_VM_INFO64_REV1_COUNT;
  const mach_port_t host = ::mach_host_self();
  const kern_return_t result =
      ::host_statistics64(host, HOST_VM_INFO64, reinterpret_cast<host_info64_t>(&pages), &count);
  ::mach_port_deallocate(mach_task_self(), host);
  if (result != KERN_SUCCESS) {
    errno = EIO;
    return std::nullopt;
  }
  // Pages that hold files or purgeable memory are reused without compression. The kernel counts
  // pages that it read ahead as free and as file pages.
  const std::uint64_t free_pages = std::uint64_t{pages.free_count} - pages.speculative_count +
                                   pages.external_page_count + pages.purgeable_count;
  return MachineMemory{.total_bytes = total,
                       .free_bytes = free_pages * vm_kernel_page_size,
                       .compressed_bytes = pages.compressor_page_count * vm_kernel_page_size};
}

}  // namespace vorlatch::platform
