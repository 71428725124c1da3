// Every call by which the daemon finds, opens, moves or changes a file, in one place. All of it is
// POSIX and the same on every platform. Safe to call from any thread.
//
// The daemon is root, and its files lie where others may put anything in their place, at any
// moment. A plain file is what it may change: regular, under this one name, and reached through no
// link. What stands under a path is looked at before it is opened, as opening a device already does
// something, and judged once it is open, as it may have been exchanged in between.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "base/descriptor.h"

namespace vorlatch {

// True also when that cannot be found out, so that nobody replaces a file that may be there.
bool fileExists(const std::string& path);

// Creates the file without contents; whatever is there already is left as it is, and nothing is
// made where a link leads. Failure is silent.
void createEmptyFile(const std::string& path);

// Renames what stands under the path, unless it is a plain file: ".aside." and a number that nobody
// can guess go behind its name, so that nothing is replaced. Failure is silent.
void moveAsideUnlessPlain(const std::string& path);

// Sets mode 0666 whatever the umask, so that unprivileged programs can read and edit the file, if
// it is a plain one. Failure is silent; without privilege it takes a file that may be read or
// written.
void letEveryoneReadAndWrite(const std::string& path);

// Points standard output and standard error at the end of a plain file, wherever its end will be.
// When that fails, what is written to them is lost, but they stay valid and keep their descriptors
// from being given to another file.
void pointStreamsAtEndOf(const std::string& path);

// Empties a plain file that is larger than this, and points both streams at its beginning, each
// with a place of its own. False when it is not so large, is no plain file or cannot be emptied;
// nothing is lost then, and what is written goes on at the end.
bool emptyUnderStreams(const std::string& path, std::int64_t limit_bytes);

// Opens a regular file for reading, also through links. A call that failed leaves its errno; it is
// untouched where something else than a file is there.
Descriptor openRegularFile(const std::string& path);

// The contents of a regular file; nothing when it is none, cannot be read, or is longer than
// `limit_bytes`.
std::optional<std::string> readFile(const std::string& path, std::size_t limit_bytes);

// Likewise for one who writes them out again for everybody: nothing where that could show them what
// they may not read, as the path is a link, or another name of a file that is closed to others.
std::optional<std::string> readFileToPublish(const std::string& path, std::size_t limit_bytes);

// Writes a temporary file beside `path` and moves it into place, so that a reader sees the old
// contents or the new, never a part. With `may_replace`, asks it right before the move. False and
// errno when that failed, ESTALE when it said no; the old file is then as it was.
bool writeFileAtomically(const std::string& path, std::string_view bytes,
                         const std::function<bool()>& may_replace = nullptr);

// Removes the temporary files of writers to `path` that were killed; also of one that is at work,
// whose write then fails. Failure is silent.
void removeTemporariesOf(const std::string& path);

}  // namespace vorlatch
