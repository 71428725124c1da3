// libFuzzer's entry points, except for those of the mutator.
#include "fuzz/support/fuzzer.h"

#include <unistd.h>

#include <cstdlib>

#include <gtest/gtest.h>

namespace vorlatch::fuzz {
namespace {

// Reports failures on a duplicate of standard error, because the daemon redirects the standard
// streams to its log.
class StopAtFailure : public testing::EmptyTestEventListener {
 public:
  void OnTestPartResult(const testing::TestPartResult& result) override {
    if (!result.failed()) return;
    const char* file = result.file_name() != nullptr ? result.file_name() : "?";
    const std::string message = std::string(file) + ":" + std::to_string(result.line_number()) +
                                ": " + result.message() + "\n";
    if (::write(output_, message.data(), message.size()) < 0) std::abort();
    std::abort();
  }

 private:
  const int output_ = ::dup(STDERR_FILENO);
};

}  // namespace

// Adds the option that keeps libFuzzer's own output off the redirected streams.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  static std::vector<char*>& arguments = *new std::vector<char*>(*argv, *argv + *argc);
  static char keep_output[] = "-close_fd_mask=3";
  arguments.push_back(keep_output);
  *argc = static_cast<int>(arguments.size());
  arguments.push_back(nullptr);
  *argv = arguments.data();
  testing::UnitTest::GetInstance()->listeners().Append(new StopAtFailure);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  feed(textOf(data, size));
  return 0;
}

}  // namespace vorlatch::fuzz
