// One call that the daemon made and that can fail: of the seam, on a file, for memory, to the log.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vorlatch::faults {

struct Call {
  std::string name;
  std::vector<std::int64_t> arguments = {};  // the numbers among them, in their order
  std::string path = {};                     // of a file call
  std::string given = {};                    // the bytes handed over; of a line, its text
  std::string left = {};    // the bytes there afterwards; of a line, what was written
  std::int64_t result = 0;  // null is 0, any other pointer 1
  int error = 0;            // what the call set errno to
};

// The process that the call is about; 0 when it is about none or about the daemon itself.
std::int32_t otherProcess(const Call& call);

std::string describe(const Call& call);

}  // namespace vorlatch::faults
