// Paths of the daemon's files.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vorlatch {

// Returns the full path of one of the daemon's files: the jailbreak's prefix, the preferences
// directory and the name. Returns std::nullopt if the prefix cannot be resolved or the path is not
// UTF-8. Safe to call from any thread.
std::optional<std::string> getPrefPath(std::string_view name);

}  // namespace vorlatch
