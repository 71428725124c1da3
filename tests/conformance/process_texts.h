// The calls that give a text of a process, and their answers.
#pragma once

#include <cerrno>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/process_table.h"
#include "tests/conformance/answer.h"

namespace vorlatch::conformance {

// A call's text or, when there is none, its errno.
struct TextAnswer {
  std::string text;
  int error = kUntouchedErrno;
  friend bool operator==(const TextAnswer&, const TextAnswer&) = default;
};

inline std::ostream& operator<<(std::ostream& out, const TextAnswer& answer) {
  return out << '"' << answer.text << "\", errno " << answer.error;
}

template <typename Call>
TextAnswer textOf(const Call& call, int pid, std::uint32_t size) {
  std::vector<char> buffer(size + 1, '#');
  const auto [result, error] = ask([&] { return call(pid, buffer.data(), size); });
  // A text has its length for a result and a NUL behind it; a refusal writes nothing.
  EXPECT_EQ(buffer[static_cast<std::size_t>(result)], result > 0 ? '\0' : '#');
  return {{buffer.data(), static_cast<std::size_t>(result)}, error};
}

inline TextAnswer nameOf(int pid, std::uint32_t size = 256) {
  return textOf(platform::proc_name, pid, size);
}
inline TextAnswer pathOf(int pid, std::uint32_t size = 4096) {
  return textOf(platform::proc_pidpath, pid, size);
}
inline TextAnswer refused(int error) {
  return {"", error};
}

}  // namespace vorlatch::conformance
