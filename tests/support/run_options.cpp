#include "tests/support/run_options.h"

#include <charconv>
#include <limits>
#include <string_view>

namespace vorlatch::tests {
namespace {

// More than a century, and still small enough to count in nanoseconds.
constexpr std::uint64_t kMostSeconds = std::numeric_limits<std::uint32_t>::max();

RunOptions& options() {
  static RunOptions read;
  return read;
}

}  // namespace

const RunOptions& runOptions() {
  return options();
}

bool readRunOptions(int argc, char** argv) {
  for (int i = 1; i < argc; i += 2) {
    const std::string_view name = argv[i];
    const std::string_view text = i + 1 < argc ? argv[i + 1] : "";
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size()) return false;
    if (name == "--seconds" && number <= kMostSeconds) {
      options().duration = std::chrono::seconds(number);
    } else if (name == "--seed") {
      options().seed = number;
    } else if (name == "--stories") {
      options().stories = number;
    } else {
      return false;
    }
  }
  return true;
}

}  // namespace vorlatch::tests
