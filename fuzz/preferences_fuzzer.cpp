// Feeds whole preferences files to the daemon. The input replaces a valid file, is cut in half, and
// is whole again; the daemon reads it in passes, watch timer ticks, the patrol and the release.
#include <gtest/gtest.h>

#include "config/property_list_file.h"
#include "fuzz/support/fuzzer.h"
#include "fuzz/support/system_under_test.h"

namespace vorlatch::fuzz {

const Words& vocabulary() {
  return preferencesWords();
}

void feed(std::string_view input) {
  static SystemUnderTest& system = *new SystemUnderTest;
  system.feed([&] {
    system.putSoundPreferences();
    system.postAndRun();
    for (const std::string_view bytes : {input, input.substr(0, input.size() / 2), input}) {
      system.putPreferences(bytes);
      system.postAndRun();
      const plist::Dictionary preferences = readDictionary(system.preferencesFile());
      system.expectTrueStatus(preferences);
      system.expectWholeLog(preferences);
    }

    // One more pass without any change must make no kernel call.
    system.device.is_tracing = true;
    system.postAndRun();
    system.device.is_tracing = false;
    EXPECT_EQ(system.takeCalls(), tests::Lines{});

    system.runTo(4s);
    system.sleepTo(1799s);
    system.runTo(1802s);
    const plist::Dictionary preferences = readDictionary(system.preferencesFile());
    system.expectTrueStatus(preferences);
    system.expectWholeLog(preferences);
    EXPECT_EQ(tests::readAll(system.preferencesFile()), input);
  });
}

}  // namespace vorlatch::fuzz
