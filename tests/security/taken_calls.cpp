#include "tests/security/taken_calls.h"

#include <fcntl.h>

#include <cerrno>
#include <filesystem>
#include <utility>

namespace vorlatch::tests {

// Calls that the action makes do not count.
std::int64_t BeforeFileCall::take(const FileCall&, const Real& real) {
  if (action_ && --calls_left_ == 0) std::exchange(action_, nullptr)();
  return real(false);
}

std::int64_t RefusedFileCalls::take(const FileCall& call, const Real& real) {
  if (call.name != name_) return real(false);
  errno = EIO;
  return -1;
}

std::int64_t OpenedSpecials::take(const FileCall& call, const Real& real) {
  // Creating opens nothing that is there, and a directory can be meant.
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
