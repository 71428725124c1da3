// Where this program is installed. The Linux platform keeps its state per jailbreak root.
#pragma once

#include <sys/types.h>

#include <string>

namespace vorlatch::platform {

// Returns the jailbreak root of the running program, without a slash at the end. For
// .../usr/libexec/PROGRAM and .../usr/bin/PROGRAM that is the part before /usr, for any other
// program (a test in its build folder) the program's own directory. Determined once per process.
const std::string& installationRoot();

// Return the directory under the root for state that is void after a reboot, and the path of a file
// in it.
std::string runtimeDirectory();
std::string runtimePath(const std::string& name);

// Mode of that directory. The daemons and tools of all users share it; the sticky bit keeps users
// from removing each other's files.
inline constexpr mode_t kRuntimeDirectoryMode = 01777;

// Creates a directory with this mode, whatever the umask, and missing parents with mode 0755.
// Leaves an existing path as it is. Returns false if the path does not exist afterwards.
bool makeDirectory(const std::string& path, mode_t mode);

}  // namespace vorlatch::platform
