#include "platform/system_paths.h"

namespace vorlatch::platform {

std::string crashReportDirectory() {
  return "/var/mobile/Library/Logs/CrashReporter";
}

std::vector<std::string> applicationDirectories() {
  return {"/var/containers/Bundle/Application", "/Applications", "/var/jb/Applications"};
}

}  // namespace vorlatch::platform
