// One call of the daemon that can fail: a platform function, a file operation, an allocation, or a
// line of the log.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vorlatch::faults {

struct Call {
  std::string name;
  std::vector<std::int64_t> arguments = {};  // the numeric arguments, in order
  std::string path = {};                     // for a file call
  std::string given = {};                    // the bytes passed; for a line, its text
  std::string left = {};    // the bytes in the buffer afterwards; for a line, what was written
  std::int64_t result = 0;  // for a pointer 0 if null, otherwise 1
  int error = 0;            // the errno that the call set
};

// The process that the call is about; 0 for no process or for the daemon itself.
std::int32_t otherProcess(const Call& call);

std::string describe(const Call& call);

}  // namespace vorlatch::faults
