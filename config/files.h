// Every call that the daemon makes on a file, in one place. All of it is POSIX and the same on
// every platform. Safe to call from any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace vorlatch {

bool fileExists(const std::string& path);

// Creates the file without contents; an existing one is left as it is. Failure is silent.
void createEmptyFile(const std::string& path);

// Sets mode 0666 whatever the umask, so that unprivileged programs can read and edit the file.
// Failure is silent.
void letEveryoneReadAndWrite(const std::string& path);

// The size in bytes; nothing when the file cannot be asked.
std::optional<std::int64_t> fileSize(const std::string& path);

// Points a standard stream at the file. When that fails, what is written to the stream is lost, but
// the stream stays valid and keeps its descriptor from being given to another file.
void reopenStream(std::FILE* stream, const std::string& path, const char* mode);

// The contents of a regular file; nothing when it is none, cannot be read, or is longer than
// `limit_bytes`.
std::optional<std::string> readFile(const std::string& path, std::size_t limit_bytes);

// Writes a temporary file beside `path` and moves it into place, so that a reader sees the old
// contents or the new, never a part. With `may_replace`, asks it right before the move. False and
// errno when that failed, ESTALE when it said no; the old file is then as it was.
bool writeFileAtomically(const std::string& path, std::string_view bytes,
                         const std::function<bool()>& may_replace = nullptr);

}  // namespace vorlatch
