// The seam for the wall clock.
#pragma once

#include <string>

namespace vorlatch::platform {

// The current local date and time in the pattern "MM-dd HH:mm:ss", in the user's locale and time
// zone, whose digits and clock of 12 hours may make it longer. The time zone is looked up anew each
// time; the locale may be the one of the program's start. UTF-8. Safe to call from any thread.
std::string localTimeStamp();

}  // namespace vorlatch::platform
