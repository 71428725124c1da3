#include "control/failure.h"

#include <cerrno>
#include <system_error>

#include "control/translation.h"

namespace vorlatch::control {

std::string reasonOf(int error) {
  std::string reason = std::generic_category().message(error);
  if (error == EACCES || error == EPERM) reason += tr("; run it as root");
  if (error == ENOSPC) reason += tr("; make room on the disk");
  if (error == ENOENT) reason += tr("; is the package installed, and has the daemon been started?");
  return reason;
}

}  // namespace vorlatch::control
