#include "rootprefix/libroot.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/root_prefix_library.h"

namespace vorlatch {
namespace {

using GetString = const char* (*)();
using MapPath = const char* (*)(const char* path, char* resolved_path);

const char* noRootPrefix() {
  return "";
}
const char* usualJbrootPrefix() {
  return "/var/jb";
}
const char* noBootUuid() {
  return "00000000-0000-0000-0000-000000000000";
}

// Writes `prefix` and `path` one after the other, truncated to the buffer. Allocates a missing
// buffer; returns null if there is no memory.
const char* joinedInto(char* buffer, const char* prefix, const char* path) {
  if (buffer == nullptr) buffer = static_cast<char*>(std::malloc(kPathBufferBytes));
  if (buffer == nullptr) return nullptr;
  std::snprintf(buffer, kPathBufferBytes, "%s%s", prefix, path);
  return buffer;
}

const char* buildJbrootPath(const char* path, char* resolved_path) {
  if (path == nullptr) return nullptr;
  const char* prefix = path[0] == '/' ? libroot_get_jbroot_prefix() : "";
  return joinedInto(resolved_path, prefix, path);
}

const char* buildRootfsPath(const char* path, char* resolved_path) {
  if (path == nullptr) return nullptr;
  if (path[0] != '/') return joinedInto(resolved_path, "", path);
  const char* jbroot_prefix = libroot_get_jbroot_prefix();
  const std::size_t length = std::strlen(jbroot_prefix);
  // As in libroot itself, the prefix may end inside a path component.
  if (std::strncmp(path, jbroot_prefix, length) == 0) {
    return joinedInto(resolved_path, "", path + length);
  }
  return joinedInto(resolved_path, libroot_get_root_prefix(), path);
}

struct Slots {
  GetString get_root_prefix = nullptr;
  GetString get_jbroot_prefix = nullptr;
  GetString get_boot_uuid = nullptr;
  MapPath jbrootpath = nullptr;
  MapPath rootfspath = nullptr;
};

template <typename Function>
void fill(Function& slot, void* library, const char* name, Function fallback) {
  if (library != nullptr) slot = reinterpret_cast<Function>(dlsym(library, name));
  if (slot == nullptr) slot = fallback;
}

Slots load() {
  // Never closed, because the slots point into it until the process ends.
  void* library = dlopen(platform::rootPrefixLibraryName(), RTLD_NOW);
  Slots slots;
  fill(slots.get_root_prefix, library, "libroot_get_root_prefix", &noRootPrefix);
  fill(slots.get_jbroot_prefix, library, "libroot_get_jbroot_prefix", &usualJbrootPrefix);
  fill(slots.get_boot_uuid, library, "libroot_get_boot_uuid", &noBootUuid);
  fill(slots.jbrootpath, library, "libroot_jbrootpath", &buildJbrootPath);
  fill(slots.rootfspath, library, "libroot_rootfspath", &buildRootfsPath);
  return slots;
}

const Slots& slots() {
  static const Slots loaded = load();
  return loaded;
}

}  // namespace

const char* libroot_get_root_prefix() {
  return slots().get_root_prefix();
}
const char* libroot_get_jbroot_prefix() {
  return slots().get_jbroot_prefix();
}
const char* libroot_get_boot_uuid() {
  return slots().get_boot_uuid();
}

const char* libroot_jbrootpath(const char* path, char* resolved_path) {
  return slots().jbrootpath(path, resolved_path);
}

const char* libroot_rootfspath(const char* path, char* resolved_path) {
  return slots().rootfspath(path, resolved_path);
}

}  // namespace vorlatch
