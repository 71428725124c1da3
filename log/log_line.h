// Writes log lines. Every message goes through these functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <type_traits>

#include "platform/local_time.h"

namespace vorlatch {

// The format of a message, checked at compile time: a literal that begins with "[%s] " for the time
// stamp, has one matching field per argument, in order, and ends with a line feed.
template <typename... Args>
class LogFormat {
 public:
  consteval LogFormat(const char* text) : text_(text) {
    std::string_view rest(text);
    if (!rest.starts_with("[%s] ")) throw "a message begins with the stamp";
    rest.remove_prefix(5);
    (takeField(rest, fieldOf<Args>()), ...);
    if (rest.find('%') != rest.npos) throw "a message has more fields than arguments";
    if (!rest.ends_with('\n')) throw "a message ends its line";
  }
  [[nodiscard]] const char* text() const { return text_; }

 private:
  template <typename Arg>
  static consteval std::string_view fieldOf() {
    if constexpr (std::is_same_v<Arg, std::int32_t>) {
      return "%d";
    } else if constexpr (std::is_same_v<Arg, double>) {
      return "%.1f";
    } else {
      static_assert(std::is_same_v<Arg, const char*>, "a message takes no such argument");
      return "%s";
    }
  }
  static consteval void takeField(std::string_view& rest, std::string_view field) {
    const std::size_t at = rest.find('%');
    if (at == rest.npos || !rest.substr(at).starts_with(field)) throw "a field does not fit";
    rest.remove_prefix(at + field.size());
  }

  const char* text_;
};

// Writes one line to standard error, with the current time stamp in front, and flushes it. Each
// call writes to the stream once, so that lines of different queues do not mix. Failure is silent.
// Safe to call from any thread.
template <typename... Args>
void writeLogLine(std::type_identity_t<LogFormat<Args...>> format, Args... args) {
  const std::string stamp = platform::localTimeStamp();
  std::fprintf(stderr, format.text(), stamp.c_str(), args...);
  std::fflush(stderr);
}

// Writes the line that begins a section of the log: the start, or one patrol.
inline void writeChapterSeparator() {
  writeLogLine("[%s] ========================================\n");
}

// Writes the line above the messages about one target.
inline void writeTargetSeparator() {
  writeLogLine("[%s] ----------------------------------------\n");
}

}  // namespace vorlatch
