// Passes every call of the code under test on files and on the log's stream to an interceptor. The
// program has to be linked with CMake's vorlatch_intercept_file_calls.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace vorlatch::tests {

struct FileCall {
  std::string name;  // the function's name; for standard error "line" or "flush"
  std::vector<std::int64_t> arguments = {};  // the flags of open, the second descriptor of dup2
  std::string path = {};                     // for a descriptor, the path that it was opened with
  std::string line = {};
};

class FileCallInterceptor {
 public:
  // Makes the real call and returns its result. `in_part` reads or writes only the first half.
  using Real = std::function<std::int64_t(bool in_part)>;

  FileCallInterceptor() = default;
  FileCallInterceptor(const FileCallInterceptor&) = delete;
  FileCallInterceptor& operator=(const FileCallInterceptor&) = delete;
  virtual ~FileCallInterceptor() = default;

  // Returns the call's result, and leaves errno as the code under test is to see it.
  virtual std::int64_t intercept(const FileCall& call, const Real& real) = 0;
};

// Installs the interceptor; null removes it. Only one thread may make file calls meanwhile. File
// calls that the interceptor makes itself are intercepted too.
void interceptFileCalls(FileCallInterceptor* interceptor);

}  // namespace vorlatch::tests
