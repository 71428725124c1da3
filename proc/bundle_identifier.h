// The bundle identifier of a running process, from the Info.plist of the bundle it runs from.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace vorlatch {

// The CFBundleIdentifier of the bundle whose directory (".app" or ".appex") holds the process's
// executable directly; nothing when it runs from no such directory or the bundle names none, or one
// of more than 1024 bytes. May be empty, if that is what the bundle says. Each bundle's file is
// read once in the daemon's life, unless it gave no identifier. Safe to call from any queue.
std::optional<std::string> bundleIdentifierOfProcess(std::int32_t pid);

}  // namespace vorlatch
