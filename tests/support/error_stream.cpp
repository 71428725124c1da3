#include "tests/support/error_stream.h"

#include <unistd.h>

extern "C" __attribute__((weak)) void __sanitizer_set_report_fd(void* descriptor);

namespace vorlatch::tests {

int keepErrorStream() {
  const int descriptor = dup(STDERR_FILENO);
  if (__sanitizer_set_report_fd != nullptr) {
    __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<long>(descriptor)));
  }
  return descriptor;
}

}  // namespace vorlatch::tests
