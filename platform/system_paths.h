// Platform interface for the system's own folders that vorlatchctl reads.
#pragma once

#include <string>
#include <vector>

namespace vorlatch::platform {

// Returns the folder of the system's crash reports.
std::string crashReportDirectory();

// Returns the folders that contain apps, as NAME.app or as CONTAINER/NAME.app. Some may be missing.
std::vector<std::string> applicationDirectories();

}  // namespace vorlatch::platform
