#include "platform/system_paths.h"

namespace vorlatch::platform {

std::string crashReportDirectory() {
  return "/var/mobile/Library/Logs/CrashReporter";
}

std::vector<std::string> applicationDirectories() {
  return {"/var/containers/Bundle/Application", "/Applications", "/var/jb/Applications"};
}

// CoreFoundation would answer with the preferences of the calling user. But Settings writes those
// of mobile, and vorlatchctl mostly runs as root.
std::string globalPreferencesPath() {
  return "/var/mobile/Library/Preferences/.GlobalPreferences.plist";
}

}  // namespace vorlatch::platform
