#include "rootprefix/pref_path.h"

#include <array>

#include "base/utf8.h"
#include "rootprefix/libroot.h"

namespace vorlatch {

std::optional<std::string> getPrefPath(std::string_view name) {
  std::string path = "/var/mobile/Library/Preferences/";
  path += name;
  std::array<char, kPathBufferBytes> buffer{};
  const char* resolved = libroot_jbrootpath(path.c_str(), buffer.data());
  if (resolved == nullptr || !isValidUtf8(resolved)) return std::nullopt;
  return std::string(resolved);
}

}  // namespace vorlatch
