// Keeps the program's original standard error for output that must not reach the daemon's log: the
// daemon reopens the standard streams on its log.
#pragma once

#include <unistd.h>

extern "C" __attribute__((weak)) void __sanitizer_set_report_fd(void* descriptor);

namespace vorlatch::tests {

// Returns a duplicate of the descriptor, and makes the sanitizers report to it.
inline int keepErrorStream() {
  const int descriptor = dup(STDERR_FILENO);
  if (__sanitizer_set_report_fd != nullptr) {
    __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<long>(descriptor)));
  }
  return descriptor;
}

}  // namespace vorlatch::tests
