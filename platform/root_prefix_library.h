// The seam for the jailbreak's root-prefix library.
#pragma once

namespace vorlatch::platform {

// The name by which dlopen finds the library through the program's run paths. Never null.
const char* rootPrefixLibraryName();

}  // namespace vorlatch::platform
