// What a call of the kernel's answers.
#pragma once

#include <cerrno>
#include <ostream>

namespace vorlatch::conformance {

inline constexpr int kUntouchedErrno = 1234;

// A call's result, and errno, which only a failure touches.
struct Answer {
  int result;
  int error = kUntouchedErrno;
  friend bool operator==(const Answer&, const Answer&) = default;
};

inline std::ostream& operator<<(std::ostream& out, const Answer& answer) {
  return out << '{' << answer.result << ", errno " << answer.error << '}';
}

inline constexpr Answer kSuccess{0, kUntouchedErrno};

template <typename Call>
Answer ask(const Call& call) {
  errno = kUntouchedErrno;
  const int result = call();
  return {result, errno};
}

}  // namespace vorlatch::conformance
