// The seam for the wall clock.
#pragma once

#include <string>

namespace vorlatch::platform {

// The current local date and time in the pattern "MM-dd HH:mm:ss", in the current locale and time
// zone, both looked up anew each time. UTF-8. Safe to call from any thread.
std::string localTimeStamp();

}  // namespace vorlatch::platform
