// The daemon's log as it has to be: blocks of lines without their stamps.
#pragma once

#include <sys/types.h>

#include <string>

#include "tests/blackbox/installation.h"

namespace vorlatch {

inline constexpr const char* kChapterSeparator = "========================================";
inline constexpr const char* kTargetSeparator = "----------------------------------------";

Lines operator+(Lines lines, const Lines& more);

// Start-up with a preferences file there, by a daemon that may do everything or by one that may
// not.
Lines startLines(pid_t daemon, bool privileged);

// The same by a daemon of the test's own user.
Lines startLines(pid_t daemon);

Lines startedLines(const std::string& key, pid_t pid);   // a target's process was seen to start
Lines editedLines(const std::string& key, pid_t pid);    // its settings were seen to change
Lines exitedLines(const std::string& key);               // its process was seen to exit
Lines restoredLines(const std::string& key, pid_t pid);  // it was handed back
Lines tickedLines(const std::string& key, int interval_s, pid_t pid);
Lines removedLines();      // targets left the preferences
Lines switchedOffLines();  // the preferences were switched off

// What a privileged daemon does with a target: as configured, and its nice value before.
struct Applied {
  int memory_limit_mb = 0;  // while active
  int nice = 0;
  int nice_before = 0;
  int band = -1;  // -1: left alone
  bool stripped = false;
};
Lines appliedLines(const std::string& key, pid_t pid, const Applied& applied);

}  // namespace vorlatch
