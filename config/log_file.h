// The log file: where the log lines go, and how it is kept small.
#pragma once

namespace vorlatch {

inline constexpr const char* kLogFileName = "Vorlatch.log";

// Makes the log file when missing, gives it mode 0666 and points standard output and standard error
// at its end. Failure is silent: the daemon then runs without a log. Called once, at start, on the
// main thread.
void openLog();

// Empties the log when it is larger than the preferences allow, by reopening both streams on it, so
// that the file itself and its mode stay. Called by the pass, on the debounce queue.
void checkLogSizeAndClearIfNeeded();

}  // namespace vorlatch
