#include "platform/linux/installation.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <string_view>

namespace vorlatch::platform {
namespace {

std::string findRoot() {
  std::array<char, PATH_MAX> buffer{};
  const ssize_t length = readlink("/proc/self/exe", buffer.data(), buffer.size());
  if (length < 1) return {};
  std::string_view directory(buffer.data(), static_cast<std::size_t>(length));
  directory = directory.substr(0, directory.rfind('/'));
  for (const std::string_view installed : {"/usr/libexec", "/usr/bin"}) {
    if (directory.ends_with(installed)) directory.remove_suffix(installed.size());
  }
  return std::string(directory);
}

}  // namespace

const std::string& installationRoot() {
  static const std::string& root = *new std::string(findRoot());
  return root;
}

std::string runtimeDirectory() {
  return installationRoot() + "/var/run/vorlatch";
}

std::string runtimePath(const std::string& name) {
  return runtimeDirectory() + "/" + name;
}

bool makeDirectory(const std::string& path, mode_t mode) {
  constexpr mode_t kParentMode = 0755;
  if (mkdir(path.c_str(), mode) == 0) return chmod(path.c_str(), mode) == 0;  // undoes the umask
  if (errno == EEXIST) return true;
  const std::size_t slash = path.rfind('/');
  if (errno != ENOENT || slash == path.npos || slash == 0) return false;
  return makeDirectory(path.substr(0, slash), kParentMode) && makeDirectory(path, mode);
}

}  // namespace vorlatch::platform
