// Where this program is installed, for what the Linux platform keeps per jailbreak root.
#pragma once

#include <sys/types.h>

#include <string>

namespace vorlatch::platform {

// The jailbreak root of the running program: for .../usr/libexec/PROGRAM and .../usr/bin/PROGRAM
// what stands before /usr, for a program anywhere else (a test in its build folder) the program's
// own directory. Without a slash at the end. Found once; the same for the life of the process.
const std::string& installationRoot();

// The directory under the root in which the platform keeps what is lost at a reboot, and the path
// of something in it.
std::string runtimeDirectory();
std::string runtimePath(const std::string& name);

// Mode of that directory: every user's daemons and tools of the root meet there, and the sticky bit
// keeps one from taking away another's files.
inline constexpr mode_t kRuntimeDirectoryMode = 01777;

// Makes a directory with this mode, whatever the umask, and those above it with mode 0755; an
// existing one is left as it is. False when there is none afterwards.
bool makeDirectory(const std::string& path, mode_t mode);

}  // namespace vorlatch::platform
