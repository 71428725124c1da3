// Platform interface for the system's own files and folders that vorlatchctl reads.
#pragma once

#include <string>
#include <vector>

namespace vorlatch::platform {

// Returns the folder of the system's crash reports.
std::string crashReportDirectory();

// Returns the folders that contain apps, as NAME.app or as CONTAINER/NAME.app. Some may be missing.
std::vector<std::string> applicationDirectories();

// Returns the property list that contains what the device's user chose for all programs. Its key
// AppleLanguages lists the user's languages as BCP 47 tags, the preferred one first. May be
// missing.
std::string globalPreferencesPath();

}  // namespace vorlatch::platform
