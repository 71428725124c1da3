// main() for tests in which the daemon reopens the standard streams on its log: prints results to
// the original standard error.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include <gtest/gtest.h>

#include "tests/support/error_stream.h"
#include "tests/support/run_options.h"

namespace {

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

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  if (!vorlatch::tests::readRunOptions(argc, argv)) {
    dprintf(STDERR_FILENO,
            "Beside the test framework's it takes --seconds N, --seed N and --stories N.\n");
    return 2;
  }
  const int first_error_stream = vorlatch::tests::keepErrorStream();
  auto& listeners = testing::UnitTest::GetInstance()->listeners();
  if (!testing::GTEST_FLAG(list_tests)) {
    delete listeners.Release(listeners.default_result_printer());
    listeners.Append(new ToTheFirstErrorStream(first_error_stream));
  }
  return RUN_ALL_TESTS();
}
