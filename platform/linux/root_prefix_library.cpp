#include "platform/root_prefix_library.h"

namespace vorlatch::platform {

const char* rootPrefixLibraryName() {
  return "libroot.so";
}

}  // namespace vorlatch::platform
