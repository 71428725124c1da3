// Opens the log file and keeps it small.
#pragma once

#include <cstdint>

namespace vorlatch {

inline constexpr const char* kLogFileName = "Vorlatch.log";

// Creates the log file if it is missing, sets mode 0666, and redirects standard output and standard
// error to its end. First renames anything else at its path: a link, a device, a directory or a
// file with several hard links. Failure is silent: the daemon then runs without a log. Called once,
// at start, on the main thread.
void openLog();

// Empties the log if it is larger than `limit_bytes`, and says so in its first line. The file and
// its mode stay; both streams then write from its beginning and no longer append. Does nothing if
// the path holds anything but a plain file. Safe to call from any queue.
void clearLogAbove(std::int64_t limit_bytes);

}  // namespace vorlatch
