// The log file: where the log lines go, and how it is kept small.
#pragma once

#include <cstdint>

namespace vorlatch {

inline constexpr const char* kLogFileName = "Vorlatch.log";

// Makes the log file when missing, gives it mode 0666 and points standard output and standard error
// at its end. What stands in its place, be it a link, a device, a directory or a file with another
// name too, is renamed first. Failure is silent: the daemon then runs without a log. Called once,
// at start, on the main thread.
void openLog();

// Empties the log when it is larger than this, and says so in its first line. The file itself and
// its mode stay; both streams then write from its beginning and no longer append. Anything but a
// plain file in the log's place is left alone. Safe to call from any queue.
void clearLogAbove(std::int64_t limit_bytes);

}  // namespace vorlatch
