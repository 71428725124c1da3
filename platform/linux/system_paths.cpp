#include "platform/system_paths.h"

#include "platform/linux/installation.h"
#include "platform/preferred_language.h"

namespace vorlatch::platform {

std::string crashReportDirectory() {
  return installationRoot() + "/var/mobile/Library/Logs/CrashReporter";
}

std::vector<std::string> applicationDirectories() {
  return {installationRoot() + "/var/containers/Bundle/Application",
          installationRoot() + "/Applications"};
}

// Linux has only the variables of the environment, which vorlatchctl reads itself.
std::string preferredLanguage() {
  return {};
}

}  // namespace vorlatch::platform
