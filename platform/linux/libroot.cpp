// The root-prefix library of an installed tree: returns where the tree is. Exports only its five
// functions (libroot.map), so that loading it never replaces a symbol elsewhere.
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

extern "C" {
const char* libroot_get_root_prefix();
const char* libroot_get_jbroot_prefix();
const char* libroot_get_boot_uuid();
char* libroot_jbrootpath(const char* path, char* resolved_path);
char* libroot_rootfspath(const char* path, char* resolved_path);
}

namespace {

constexpr std::size_t kResolvedPathSize = 1024;  // size of the callers' buffers
constexpr std::size_t kUuidLength = 36;
constexpr std::string_view kInstalledUnder = "/usr/lib";

// NUL-terminated text in a fixed buffer.
template <std::size_t Size>
struct Text {
  char characters[Size] = {};
};

// Returns the root of the tree that this file is installed in: its directory without /usr/lib, or
// the whole directory if it does not end with /usr/lib.
Text<PATH_MAX> findJbroot() {
  Text<PATH_MAX> root;
  Dl_info info{};
  if (dladdr(reinterpret_cast<const void*>(&libroot_get_jbroot_prefix), &info) == 0) return root;
  if (realpath(info.dli_fname, root.characters) == nullptr) return {};
  std::string_view directory(root.characters);
  directory = directory.substr(0, directory.rfind('/'));
  if (directory.ends_with(kInstalledUnder)) directory.remove_suffix(kInstalledUnder.size());
  std::memset(root.characters + directory.size(), 0, sizeof(root.characters) - directory.size());
  return root;
}

Text<kUuidLength + 1> readBootUuid() {
  Text<kUuidLength + 1> uuid;
  const int file = open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC);
  if (file < 0) return uuid;
  const ssize_t length = read(file, uuid.characters, kUuidLength);
  close(file);
  if (length != static_cast<ssize_t>(kUuidLength)) return {};
  for (char& c : uuid.characters) {
    if (c >= 'a' && c <= 'f') c = static_cast<char>(c - 'a' + 'A');
  }
  return uuid;
}

// Determined while the library is loaded. If it was loaded by a relative path, the path becomes
// invalid when the program changes its directory.
const Text<PATH_MAX> kJbroot = findJbroot();

// Appends as much of the text as the block holds. Returns the new length.
std::size_t append(char* block, std::size_t length, std::string_view text) {
  const std::size_t count = std::min(text.size(), kResolvedPathSize - 1 - length);
  std::memmove(block + length, text.data(), count);
  block[length + count] = '\0';
  return length + count;
}

// Writes prefix and path into the caller's buffer; if it is null, into a block to be freed.
char* resolve(std::string_view prefix, std::string_view path, char* resolved_path) {
  char* block = resolved_path;
  if (block == nullptr) block = static_cast<char*>(std::malloc(kResolvedPathSize));
  if (block == nullptr) return nullptr;
  append(block, append(block, 0, prefix), path);
  return block;
}

}  // namespace

const char* libroot_get_root_prefix() {
  return "";
}

const char* libroot_get_jbroot_prefix() {
  return kJbroot.characters;
}

const char* libroot_get_boot_uuid() {
  static const Text<kUuidLength + 1> uuid = readBootUuid();
  return uuid.characters;
}

char* libroot_jbrootpath(const char* path, char* resolved_path) {
  if (path == nullptr) return nullptr;
  return resolve(*path == '/' ? kJbroot.characters : "", path, resolved_path);
}

char* libroot_rootfspath(const char* path, char* resolved_path) {
  if (path == nullptr) return nullptr;
  const std::string_view root = kJbroot.characters;
  std::string_view rest = path;
  if (rest.starts_with(root)) {
    rest.remove_prefix(root.size());
    // A path that merely begins with the same characters as the root is not below it.
    if (!rest.empty() && rest.front() != '/') rest = path;
    if (rest.empty()) rest = root.empty() ? "" : "/";
  }
  return resolve(libroot_get_root_prefix(), rest, resolved_path);
}
