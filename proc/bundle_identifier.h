// Reads a running process's bundle identifier from the Info.plist of its bundle.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace vorlatch {

// Returns the CFBundleIdentifier, possibly empty, of the bundle whose directory (".app" or
// ".appex") directly contains the process's executable. Returns std::nullopt if there is no such
// directory, or if the identifier is missing or longer than 1024 bytes. Caches non-empty
// identifiers for the life of the daemon. Safe to call from any queue.
std::optional<std::string> bundleIdentifierOfProcess(std::int32_t pid);

}  // namespace vorlatch
