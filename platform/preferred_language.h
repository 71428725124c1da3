// Platform interface for the language that the user chose for the whole system.
#pragma once

#include <string>

namespace vorlatch::platform {

// Returns its BCP 47 tag, for example "zh-Hans-CN"; empty if the system has no such choice.
std::string preferredLanguage();

}  // namespace vorlatch::platform
