// Stories with lines in the log.
#pragma once

#include <string>

#include "tests/cli/control_run.h"

namespace vorlatch::tests {

inline const std::string kStamp = "[03-04 05:06:07] ";

// The lines under one stamp.
inline std::string stamped(const Lines& lines, const std::string& stamp = kStamp) {
  std::string text;
  for (const std::string& line : lines) text += stamp + line + "\n";
  return text;
}

struct LogStory : ControlStory {
  explicit LogStory(const Lines& lines) { writeAll(logFile(), stamped(lines)); }
};

}  // namespace vorlatch::tests
