// main() for tests in which the daemon reopens the standard streams on its log: prints results to
// the original standard error.
#include <unistd.h>

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string_view>

#include <gtest/gtest.h>

#include "tests/support/run_options.h"

extern "C" __attribute__((weak)) void __sanitizer_set_report_fd(void* descriptor);

namespace {

vorlatch::tests::RunOptions options;

// Reads the arguments that the test framework left over. Returns false if one is wrong.
bool readOptions(int argc, char** argv) {
  std::uint64_t seconds = 10;
  const std::map<std::string_view, std::uint64_t*> known{
      {"--seconds", &seconds}, {"--seed", &options.seed}, {"--stories", &options.stories}};
  for (int i = 1; i < argc; i += 2) {
    const auto option = known.find(argv[i]);
    if (option == known.end() || i + 1 == argc) return false;
    const std::string_view number = argv[i + 1];
    const char* const end = number.data() + number.size();
    const auto read = std::from_chars(number.data(), end, *option->second);
    if (read.ec != std::errc{} || read.ptr != end) return false;
  }
  constexpr std::uint64_t kMostSeconds = 1'000'000;
  if (seconds > kMostSeconds || options.stories == 0) return false;
  options.duration = std::chrono::seconds(seconds);
  return true;
}

// Returns a duplicate of standard error, and makes the sanitizers report to it.
int keepErrorStream() {
  const int descriptor = dup(STDERR_FILENO);
  if (__sanitizer_set_report_fd != nullptr) {
    __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<long>(descriptor)));
  }
  return descriptor;
}

class ToTheFirstErrorStream : public testing::EmptyTestEventListener {
 public:
  explicit ToTheFirstErrorStream(int descriptor) : descriptor_(descriptor) {}

  void OnTestIterationStart(const testing::UnitTest& tests, int /*iteration*/) override {
    if (tests.test_to_run_count() <= 1) return;
    dprintf(descriptor_, "Each case needs a process of its own: run them with ctest.\n");
    std::_Exit(2);
  }
  void OnTestPartResult(const testing::TestPartResult& result) override {
    if (!result.failed()) return;
    dprintf(descriptor_, "%s:%d: failure\n%s\n",
            result.file_name() != nullptr ? result.file_name() : "?", result.line_number(),
            result.message());
  }
  void OnTestEnd(const testing::TestInfo& test) override {
    for (int i = 0; i < test.result()->test_property_count(); ++i) {
      const testing::TestProperty& figure = test.result()->GetTestProperty(i);
      dprintf(descriptor_, "%s: %s\n", figure.key(), figure.value());
    }
    dprintf(descriptor_, "%s.%s %s\n", test.test_suite_name(), test.name(),
            test.result()->Passed() ? "passed" : "FAILED");
  }

 private:
  int descriptor_;
};

}  // namespace

const vorlatch::tests::RunOptions& vorlatch::tests::runOptions() {
  return options;
}

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  if (!readOptions(argc, argv)) {
    dprintf(STDERR_FILENO,
            "Beside the test framework's it takes --seconds N, --seed N and --stories N.\n");
    return 2;
  }
  const int first_error_stream = keepErrorStream();
  auto& listeners = testing::UnitTest::GetInstance()->listeners();
  if (!testing::GTEST_FLAG(list_tests)) {
    delete listeners.Release(listeners.default_result_printer());
    listeners.Append(new ToTheFirstErrorStream(first_error_stream));
  }
  return RUN_ALL_TESTS();
}
