// Where this program is installed, for what the Linux platform keeps per jailbreak root.
#pragma once

#include <string>

namespace vorlatch::platform {

// The jailbreak root of the running program: for .../usr/libexec/PROGRAM and .../usr/bin/PROGRAM
// what stands before /usr, for a program anywhere else (a test in its build folder) the program's
// own directory. Without a slash at the end. Found once; the same for the life of the process.
const std::string& installationRoot();

// A path below the directory under the root in which the platform keeps what is lost at a reboot:
// root + "/var/run/vorlatch/" + name.
std::string runtimePath(const std::string& name);

}  // namespace vorlatch::platform
