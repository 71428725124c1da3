// Converts text to and from CoreFoundation strings.
#pragma once

#include <string>
#include <string_view>

#include "platform/darwin/cf_owned.h"

namespace vorlatch::platform {

// Returns the text as UTF-8, NULs included, with U+FFFD for each lone surrogate.
std::string utf8Of(CFStringRef text);

// Returns null if the text is not UTF-8.
CFOwned<CFStringRef> cfStringOf(std::string_view utf8);

}  // namespace vorlatch::platform
