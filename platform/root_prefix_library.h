// Platform interface for the jailbreak's root-prefix library.
#pragma once

namespace vorlatch::platform {

// Returns the name under which dlopen finds the library in the program's run paths. Never null.
const char* rootPrefixLibraryName();

}  // namespace vorlatch::platform
