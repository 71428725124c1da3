#include "kernel/jetsam_readback.h"

#include <cerrno>
#include <utility>

#include <gtest/gtest.h>

#include "platform/memorystatus.h"
#include "tests/support/story.h"

namespace vorlatch {
namespace {

using Entry = platform::memorystatus_priority_entry;

// Makes the kernel say that it filled so many bytes with entries of the processes 7 and 0.
void fillList(simulated::Device& device, int filled_bytes) {
  const Entry entries[] = {{.pid = 7, .priority = 3, .user_data = 0, .limit = -1, .state = 0},
                           {.pid = 0, .priority = 9, .user_data = 0, .limit = -1, .state = 0}};
  device.clearScripts();
  device.script({.function = "memorystatus_control",
                 .command = platform::MEMORYSTATUS_CMD_GET_PRIORITY_LIST,
                 .first = 2,
                 .result = filled_bytes,
                 .error = filled_bytes < 0 ? EPERM : 0,
                 .buffer = std::string(reinterpret_cast<const char*>(entries), sizeof(entries))});
}

TEST(JetsamReadBack, LooksOnlyAtTheFilledPartOfTheList) {
  const tests::Story story;
  struct Case {
    int filled_bytes;
    std::int32_t band_of_7;
    std::int32_t band_of_0;  // a pid like any other
  };
  for (const Case& c : {Case{48, 3, 9}, Case{47, 3, -999}, Case{24, 3, -999}, Case{23, -999, -999},
                        Case{0, -999, -999}, Case{-1, -999, -999}}) {
    for (const auto& [pid, band] : {std::pair(7, c.band_of_7), std::pair(0, c.band_of_0)}) {
      fillList(story.device, c.filled_bytes);
      EXPECT_EQ(getActualJetsam(pid), band) << c.filled_bytes;
    }
  }
  fillList(story.device, 1'000'000);  // more than the buffer, which has room for 10 and itself
  EXPECT_EQ(fetchJetsamPriorityList().count, 11U);
}

}  // namespace
}  // namespace vorlatch
