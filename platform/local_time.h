// Platform interface for the wall clock.
#pragma once

#include <string>

namespace vorlatch::platform {

// Returns the current local date and time as "MM-dd HH:mm:ss" in UTF-8, in the user's locale and
// time zone. A locale's digits or 12-hour clock may make it longer. Each call looks up the time
// zone; the locale may be the one at the program's start. Safe to call from any thread.
std::string localTimeStamp();

}  // namespace vorlatch::platform
