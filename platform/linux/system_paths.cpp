#include "platform/system_paths.h"

#include "platform/linux/installation.h"

namespace vorlatch::platform {

std::string crashReportDirectory() {
  return installationRoot() + "/var/mobile/Library/Logs/CrashReporter";
}

std::vector<std::string> applicationDirectories() {
  return {installationRoot() + "/var/containers/Bundle/Application",
          installationRoot() + "/Applications"};
}

std::string globalPreferencesPath() {
  return installationRoot() + "/var/mobile/Library/Preferences/.GlobalPreferences.plist";
}

}  // namespace vorlatch::platform
