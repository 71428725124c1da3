// The apps that are installed, running or not.
#pragma once

#include <string>
#include <vector>

namespace vorlatch::control {

struct InstalledApp {
  std::string bundle_identifier;
  std::string process_name;                // of its executable
  std::vector<std::string> display_names;  // as the home screen shows it, in any language
};

// Returns the apps in the system's folders whose Info.plist can be read, at most 2000.
std::vector<InstalledApp> installedApps();

}  // namespace vorlatch::control
