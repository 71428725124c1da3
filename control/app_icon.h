// The icons of installed apps.
#pragma once

#include <optional>
#include <string>

namespace vorlatch::control {

// Returns the PNG that the app's Info.plist names: a plain file of at most 256 kB in the bundle
// itself, at the highest resolution. Returns std::nullopt if there is no such app or file.
std::optional<std::string> iconOfApp(const std::string& bundle_identifier);

}  // namespace vorlatch::control
