// Whole preferences files: the daemon reads one in a sound one's place, half written, then whole
// again, in passes, on the ticks of watch timers, in the patrol and when it lets go.
#include <gtest/gtest.h>

#include "config/property_list_file.h"
#include "fuzz/support/fuzzer.h"
#include "fuzz/support/subject.h"

namespace vorlatch::fuzz {

const Words& vocabulary() {
  return preferencesWords();
}

void tell(std::string_view input) {
  static Subject& subject = *new Subject;
  subject.tell([&] {
    subject.putSoundPreferences();
    subject.postAndRun();
    for (const std::string_view bytes : {input, input.substr(0, input.size() / 2), input}) {
      subject.putPreferences(bytes);
      subject.postAndRun();
      const plist::Dictionary preferences = readDictionary(subject.preferencesFile());
      subject.expectTrueStatus(preferences);
      subject.expectWholeLog(preferences);
    }

    // Once more, and nothing changed.
    subject.device.is_tracing = true;
    subject.postAndRun();
    subject.device.is_tracing = false;
    EXPECT_EQ(subject.takeCalls(), tests::Lines{});

    subject.runTo(4s);
    subject.sleepTo(1799s);
    subject.runTo(1802s);
    const plist::Dictionary preferences = readDictionary(subject.preferencesFile());
    subject.expectTrueStatus(preferences);
    subject.expectWholeLog(preferences);
    EXPECT_EQ(tests::readAll(subject.preferencesFile()), input);
  });
}

}  // namespace vorlatch::fuzz
