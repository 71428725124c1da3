#include "platform/process_table.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/conformance/calls.h"
#include "tests/conformance/driver.h"

namespace vorlatch::conformance {
namespace {

using Pids = std::vector<std::int32_t>;
using platform::PROC_ALL_PIDS;
using platform::proc_listpids;

// As many as fit into so many bytes; -1 behind them.
Pids listedIn(int bytes) {
  Pids pids(static_cast<std::size_t>(bytes) / sizeof(std::int32_t) + 1, -1);
  const int written = proc_listpids(PROC_ALL_PIDS, 0, pids.data(), bytes);
  EXPECT_EQ(written % 4, 0);
  EXPECT_LE(written, bytes);
  EXPECT_EQ(std::count(pids.begin(), pids.end(), -1), std::ssize(pids) - written / 4);
  return pids;
}

Pids listed() {
  return listedIn(proc_listpids(PROC_ALL_PIDS, 0, nullptr, 0));
}

// Where a process stands in the list, or the list's length.
std::ptrdiff_t placeOf(int pid, const Pids& pids) {
  return std::find(pids.begin(), pids.end(), pid) - pids.begin();
}

TEST(ProcessTable, ListsProcessUntilItEnds) {
  const int size = proc_listpids(PROC_ALL_PIDS, 0, nullptr, 0);
  Process process("vl-listed");
  const int pid = process.pid();
  EXPECT_EQ(std::ranges::count(listedIn(size), pid), 1);  // the size leaves room for new ones
  EXPECT_EQ(nameOf(pid), (TextAnswer{.text = "vl-listed"}));
  EXPECT_EQ(pathOf(pid), (TextAnswer{.text = process.path()}));
  process.end();
  EXPECT_EQ(std::ranges::count(listed(), pid), 0);
  EXPECT_EQ(nameOf(pid), refused(ESRCH));
  EXPECT_EQ(pathOf(pid), refused(ESRCH));
}

TEST(ProcessTable, GivesNamesUpToThirtyOneCharacters) {
  for (const std::string name :
       {"vl-fifteen-char", "vl-a-name-of-more-than-fifteen", "vl-a-name-of-thirty-one-charact",
        "vl-a-name-of-thirty-one-characters-and-more"}) {
    EXPECT_EQ(nameOf(Process(name).pid()), (TextAnswer{.text = name.substr(0, 31)}));
  }
}

TEST(ProcessTable, ListsNewestFirst) {
  const Process first("vl-first");
  const Process second("vl-second");
  const Process third("vl-third");
  const Pids pids = listed();
  EXPECT_LT(placeOf(third.pid(), pids), placeOf(second.pid(), pids));
  EXPECT_LT(placeOf(second.pid(), pids), placeOf(first.pid(), pids));
  EXPECT_EQ(std::ranges::count(pids, first.pid()), 1);

  // Three bytes more than the entries that fit; nothing is written into them.
  const std::size_t room = static_cast<std::size_t>(placeOf(third.pid(), pids)) + 1;
  const Pids cut = listedIn(static_cast<int>(room * sizeof(std::int32_t)) + 3);
  EXPECT_NE(cut[room - 1], -1);
  EXPECT_EQ(cut[room], -1);
}

TEST(ProcessTable, RefusesUnfitBuffers) {
  const Process process("vl-small");
  const int pid = process.pid();
  EXPECT_EQ(nameOf(pid, 31), refused(ENOMEM));
  EXPECT_EQ(nameOf(pid, 32), (TextAnswer{.text = "vl-small"}));
  EXPECT_EQ(pathOf(pid, 1023), refused(ENOMEM));
  EXPECT_EQ(pathOf(pid, 1024), (TextAnswer{.text = process.path()}));
  EXPECT_EQ(pathOf(pid, 4097), refused(EOVERFLOW));
  std::int32_t entry = 0;
  EXPECT_EQ(ask([&] { return proc_listpids(PROC_ALL_PIDS, 0, &entry, 3); }),
            (Answer{.result = 0, .error = ENOMEM}));
}

}  // namespace
}  // namespace vorlatch::conformance
