// The jailbreak's root-prefix library, loaded at run time on first use. Each function has the name,
// arguments and result of the library's function. If the library or the function is missing, a
// built-in fallback replaces it. Safe to call from any thread.
#pragma once

#include <cstddef>

namespace vorlatch {

// Size of a path buffer in bytes, with the NUL; longer paths are truncated.
inline constexpr std::size_t kPathBufferBytes = 1024;

// Returns the prefix of the system's own files; "" without the library. The results of this
// function and the next two are constant strings, which are never freed.
const char* libroot_get_root_prefix();

// Returns the prefix of everything that the jailbreak adds; "/var/jb" without the library.
const char* libroot_get_jbroot_prefix();

// Returns the identifier of this boot; all zeros without the library.
const char* libroot_get_boot_uuid();

// Returns an absolute path with the jailbreak's prefix in front, or a relative path unchanged.
// Writes it to `resolved_path`, which holds kPathBufferBytes; if that is null, to a block that the
// caller frees. Returns null for a null path.
const char* libroot_jbrootpath(const char* path, char* resolved_path);

// The inverse: removes the jailbreak's prefix, or puts the root prefix in front of an absolute path
// without it. Result as for libroot_jbrootpath.
const char* libroot_rootfspath(const char* path, char* resolved_path);

}  // namespace vorlatch
