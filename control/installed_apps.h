// The apps that are installed, running or not.
#pragma once

#include <string>
#include <vector>

#include "control/translation.h"

namespace vorlatch::control {

struct InstalledApp {
  std::string bundle_identifier;
  std::string process_name;  // of its executable
  std::string bundle;        // directory
};

// Returns the apps in the system's folders whose Info.plist can be read, at most 2000. Keeps them
// until an app is installed, replaced or removed. For one thread.
std::vector<InstalledApp> installedApps();

// Returns what the home screen calls the app, in each language that it knows.
std::vector<std::string> displayNamesOf(const InstalledApp& app);

// Returns what the home screen calls the app in the language; empty if the app has no name. Keeps
// it as long as the apps.
std::string displayNameOf(const InstalledApp& app, Language language);

}  // namespace vorlatch::control
