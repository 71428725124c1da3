// Where the daemon's files are.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vorlatch {

// The full path of one of the daemon's files: the jailbreak's prefix, the preferences directory and
// the name. Nothing when the prefix cannot be resolved, or to no UTF-8. Safe to call from any
// thread.
std::optional<std::string> getPrefPath(std::string_view name);

}  // namespace vorlatch
