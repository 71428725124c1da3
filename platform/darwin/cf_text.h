// Text to and from CoreFoundation.
#pragma once

#include <string>
#include <string_view>

#include "platform/darwin/cf_owned.h"

namespace vorlatch::platform {

// UTF-8, NULs included, with U+FFFD in the place of each lone surrogate.
std::string utf8Of(CFStringRef text);

// Nothing when the text is not UTF-8.
CFOwned<CFStringRef> cfStringOf(std::string_view utf8);

}  // namespace vorlatch::platform
