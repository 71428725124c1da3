// All calls by which the daemon finds, opens, moves or changes a file. POSIX only, the same on
// every platform. Safe to call from any thread.
//
// The daemon runs as root, and its files are in directories where other users can replace them at
// any moment. It therefore changes only plain files: regular files with a single hard link, whose
// path is not a symbolic link. A file is checked before it is opened, because opening a device may
// already have an effect, and again afterwards, because it may have been exchanged in between.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/descriptor.h"

namespace vorlatch {

// Returns true if the path exists, and also if the check itself fails, so that callers never
// overwrite a file they could not see.
bool fileExists(const std::string& path);

// Returns the names of the entries of a directory, at most `limit`, in no order. Returns
// std::nullopt with errno if the directory cannot be read.
std::optional<std::vector<std::string>> namesIn(const std::string& directory, std::size_t limit);

// Returns true if the path is a directory itself, not a symbolic link to one.
bool isDirectory(const std::string& path);

// Creates an empty file unless the path exists. Leaves an existing file as it is, and does not
// follow a symbolic link. Failure is silent.
void createEmptyFile(const std::string& path);

// Renames whatever is at the path, unless it is a plain file. Appends ".aside." and a random number
// that nobody can guess, so that the rename never replaces a file. Failure is silent.
void moveAsideUnlessPlain(const std::string& path);

// Sets mode 0666 on a plain file, whatever the umask, so that unprivileged programs can read and
// edit it. Failure is silent. Without root, works only on a file that the caller owns and can open
// for reading or for writing.
void letEveryoneReadAndWrite(const std::string& path);

// Redirects standard output and standard error to a plain file, in append mode. If that fails,
// redirects them to /dev/null: their output is lost, but their descriptor numbers stay in use and
// are never given to another file.
void pointStreamsAtEndOf(const std::string& path);

// Empties a plain file larger than `limit_bytes` and redirects standard output and standard error
// to its beginning, each with its own file offset. Returns false if the file is not larger, is not
// plain or cannot be emptied; then it keeps its contents, and output continues at its end.
bool emptyUnderStreams(const std::string& path, std::int64_t limit_bytes);

// Opens a regular file for reading; follows symbolic links. If a system call fails, errno is that
// call's. If the path holds anything but a regular file, errno is unchanged.
Descriptor openRegularFile(const std::string& path);

// Returns the contents of a regular file. Returns std::nullopt if it is not one, cannot be read, or
// is longer than `limit_bytes`.
std::optional<std::string> readFile(const std::string& path, std::size_t limit_bytes);

// Like readFile, for contents that will be published with mode 0666. Also returns std::nullopt for
// a symbolic link, and for a file with several hard links that others may not read: a published
// copy could disclose another user's secret.
std::optional<std::string> readFileToPublish(const std::string& path, std::size_t limit_bytes);

// Writes a temporary file with mode 0666 beside `path` and renames it to `path`, so that a reader
// sees either the old or the new contents. Calls `may_replace`, if given, right before the rename.
// On failure returns false with errno and leaves the old file as it was; errno is ESTALE if
// `may_replace` returned false.
bool writeFileAtomically(const std::string& path, std::string_view bytes,
                         const std::function<bool()>& may_replace = nullptr);

// Returns the contents of a secret: a plain file that nobody but its owner may read or change. The
// owner is this process's user; for root, the owner of the directory, whose programs then accept
// the same file. Returns std::nullopt for any other file, because others may know its contents or
// have put them there, and for a file that cannot be read or is longer than `limit_bytes`.
std::optional<std::string> readSecretFile(const std::string& path, std::size_t limit_bytes);

// Like writeFileAtomically, with mode 0600. A file that root writes belongs to the owner of the
// directory, so that this user's programs can read it.
bool writeSecretFile(const std::string& path, std::string_view bytes);

// Removes the temporary files that killed writers of `path` left behind. A writer that is still
// running loses its file too, and its write fails. Failure is silent.
void removeTemporariesOf(const std::string& path);

}  // namespace vorlatch
