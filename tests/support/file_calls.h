// The calls of the code under test on files and on the log's stream, each passed to whoever takes
// it in the real one's place. For programs that CMake's vorlatch_take_file_calls has linked so.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace vorlatch::tests {

struct FileCall {
  std::string name;  // the function's; "line" for a message on standard error, "flush" for its end
  std::vector<std::int64_t> arguments = {};  // flags of opening, the second descriptor of dup2
  std::string path = {};                     // of a descriptor, the one that it was opened with
  std::string line = {};
};

class FileCallTaker {
 public:
  // Makes the call, or of a read, a write or a line the first half of it; gives its result.
  using Real = std::function<std::int64_t(bool in_part)>;

  FileCallTaker() = default;
  FileCallTaker(const FileCallTaker&) = delete;
  FileCallTaker& operator=(const FileCallTaker&) = delete;
  virtual ~FileCallTaker() = default;

  // Gives the call's result and leaves errno as the code under test is to see it.
  virtual std::int64_t take(const FileCall& call, const Real& real) = 0;
};

// From now on this one takes the calls, of which one thread makes one at a time; null for nobody. A
// taker that makes such calls itself gets these too.
void letTakeFileCalls(FileCallTaker* taker);

}  // namespace vorlatch::tests
