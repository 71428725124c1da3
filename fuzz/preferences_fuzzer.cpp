// Feeds whole preferences files to the daemon. The input replaces a valid file, is cut in half, and
// is whole again; the daemon reads it in passes, watch timer ticks, the patrol and the release.
#include <gtest/gtest.h>

#include "fuzz/support/fuzzer.h"
#include "fuzz/support/system_under_test.h"

namespace vorlatch::fuzz {

const Words& vocabulary() {
  return preferencesWords();
}

void feed(std::string_view input) {
  static SystemUnderTest& system = *new SystemUnderTest;
  system.feed([&] {
    system.writePreferences(soundPreferences());
    system.postAndRun();
    for (const std::string_view bytes : {input, input.substr(0, input.size() / 2), input}) {
      system.putPreferences(bytes);
      system.postAndRun();
      system.expectTrueStatus();
      system.expectWholeLog();
    }

    // One more pass without any change must make no kernel call.
    system.device.is_tracing = true;
    system.postAndRun();
    system.device.is_tracing = false;
    EXPECT_EQ(system.takeCalls(), tests::Lines{});

    system.sleepUntilPatrol();
    system.expectTrueStatus();
    system.expectWholeLog();
    EXPECT_EQ(tests::readAll(system.preferencesFile()), input);
  });
}

}  // namespace vorlatch::fuzz
