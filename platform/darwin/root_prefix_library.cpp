#include "platform/root_prefix_library.h"

namespace vorlatch::platform {

const char* rootPrefixLibraryName() {
  return "@rpath/libroot.dylib";
}

}  // namespace vorlatch::platform
