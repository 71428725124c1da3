// The platform's kernel calls, and what they answer.
#pragma once

#include <cerrno>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/memorystatus.h"
#include "platform/process_table.h"
#include "tests/support/jetsam_commands.h"

namespace vorlatch::conformance {

// The answer has the errno that the call set, and 0 if it left errno alone.
template <typename Call>
Answer ask(const Call& call) {
  constexpr int kUntouched = 1234;
  errno = kUntouched;
  const int result = call();
  EXPECT_NE(errno, 0);
  return {.result = result, .error = errno != kUntouched ? errno : 0};
}

inline const JetsamCommands kJetsam([](auto... arguments) {
  return ask([&] { return platform::memorystatus_control(arguments...); });
});

inline Answer setPriority(int which, std::int32_t who, int value) {
  return ask([&] { return platform::setpriority(which, static_cast<std::uint32_t>(who), value); });
}
inline Answer getPriority(int which, std::int32_t who) {
  return ask([&] { return platform::getpriority(which, static_cast<std::uint32_t>(who)); });
}

// A call's text or, if there is none, its errno.
struct TextAnswer {
  std::string text = {};
  int error = 0;
  friend bool operator==(const TextAnswer&, const TextAnswer&) = default;
};

inline std::ostream& operator<<(std::ostream& out, const TextAnswer& answer) {
  return out << '"' << answer.text << "\", errno " << answer.error;
}

template <typename Call>
TextAnswer textOf(const Call& call, int pid, std::uint32_t size) {
  std::vector<char> buffer(size + 1, '#');
  const auto [result, error] = ask([&] { return call(pid, buffer.data(), size); });
  // The result of a text is its length, and a NUL follows it; a refusal writes nothing.
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
  return {.error = error};
}

}  // namespace vorlatch::conformance
