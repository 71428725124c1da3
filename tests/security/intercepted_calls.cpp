#include "tests/security/intercepted_calls.h"

#include <fcntl.h>

#include <cerrno>
#include <filesystem>
#include <utility>

namespace vorlatch::tests {

// File calls of the action itself are not counted.
std::int64_t BeforeFileCall::intercept(const FileCall&, const Real& real) {
  if (action_ && --calls_left_ == 0) std::exchange(action_, nullptr)();
  return real(false);
}

std::int64_t RefusedFileCalls::intercept(const FileCall& call, const Real& real) {
  if (call.name != name_) return real(false);
  errno = EIO;
  return -1;
}

std::int64_t OpenedSpecials::intercept(const FileCall& call, const Real& real) {
  // O_CREAT opens nothing that exists, and O_DIRECTORY asks for a directory.
  constexpr int kLeftOut = O_CREAT | O_DIRECTORY;
  if (call.name == "open" && (call.arguments[0] & kLeftOut) == 0) {
    std::error_code error;
    const auto status = std::filesystem::status(call.path, error);
    if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
      paths.push_back(call.path);
    }
  }
  return real(false);
}

}  // namespace vorlatch::tests
