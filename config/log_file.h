// The log file: where the log lines go, and how it is kept small.
#pragma once

namespace vorlatch {

inline constexpr const char* kLogFileName = "Vorlatch.log";

// Makes the log file when missing, gives it mode 0666 and points standard output and standard error
// at its end. What stands in its place, be it a link, a device, a directory or a file with another
// name too, is renamed first. Failure is silent: the daemon then runs without a log. Called once,
// at start, on the main thread.
void openLog();

// Empties the log when it is larger than the preferences allow. It is done in place, so that the
// file itself and its mode stay; both streams then write from its beginning, and no longer at
// whatever is its end. Anything else in the log's place is left alone, and the streams stay as they
// are. Called by the pass, on the debounce queue.
void checkLogSizeAndClearIfNeeded();

}  // namespace vorlatch
