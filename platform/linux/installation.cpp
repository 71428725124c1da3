#include "platform/linux/installation.h"

#include <unistd.h>

#include <array>
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

std::string runtimePath(const std::string& name) {
  return installationRoot() + "/var/run/vorlatch/" + name;
}

}  // namespace vorlatch::platform
