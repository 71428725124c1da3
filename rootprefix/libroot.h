// The jailbreak's root-prefix library, loaded at run time on first use. Each function has the name,
// arguments and result of the library's own; where the library or one of its functions is missing,
// a built-in fallback takes that function's place. Safe to call from any thread.
#pragma once

#include <cstddef>

namespace vorlatch {

// The length that a path may have, with its NUL; longer ones are cut short.
inline constexpr std::size_t kPathBufferBytes = 1024;

// Prefix of the system's own files, "" without the library. The three prefixes and identifiers are
// constant strings of the library and are never freed.
const char* libroot_get_root_prefix();

// Prefix of everything that the jailbreak adds, "/var/jb" without the library.
const char* libroot_get_jbroot_prefix();

// Identifier of this boot, all zeros without the library.
const char* libroot_get_boot_uuid();

// An absolute path with the jailbreak's prefix in front; a relative one unchanged. Written to
// `resolved_path`, which holds kPathBufferBytes, or when that is null to a block that the caller
// frees. Null for a null path.
const char* libroot_jbrootpath(const char* path, char* resolved_path);

// The inverse: cuts the jailbreak's prefix off, or puts the root prefix in front of a path that
// does not begin with it. Result as above.
const char* libroot_rootfspath(const char* path, char* resolved_path);

}  // namespace vorlatch
