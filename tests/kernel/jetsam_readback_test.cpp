#include "kernel/jetsam_readback.h"

#include <cerrno>
#include <climits>
#include <optional>
#include <utility>

#include <gtest/gtest.h>

#include "platform/memorystatus.h"
#include "tests/support/scarce_memory.h"
#include "tests/support/story.h"

namespace vorlatch {
namespace {

using tests::Lines;

using Entry = platform::memorystatus_priority_entry;

// The calls for the list: the first asks for its size.
enum Call { kSize = 1, kList = 2 };

struct Kernel : tests::Story {
  Kernel() {
    openLog();
    pid = device.launch({.name = "backboardd"});
    device.takeTrace();
  }
  // Scripts the call: it returns this, and leaves entries of the processes 7 (band 3) and 0 (9).
  void listCallGives(Call call, int result, int error = 0) const {
    const Entry entries[] = {{.pid = 7, .priority = 3, .user_data = 0, .limit = -1, .state = 0},
                             {.pid = 0, .priority = 9, .user_data = 0, .limit = -1, .state = 0}};
    device.clearScripts();
    device.script({.function = "memorystatus_control",
                   .command = platform::MEMORYSTATUS_CMD_GET_PRIORITY_LIST,
                   .first = call,
                   .count = call == kSize ? 1 : INT_MAX,
                   .result = result,
                   .error = error,
                   .buffer = std::string(reinterpret_cast<const char*>(entries), sizeof(entries))});
  }
  std::int32_t pid;
};

TEST(JetsamReadBack, FetchesTheListOnceWithRoomForTenMore) {
  Kernel kernel;
  EXPECT_EQ(getActualJetsam(kernel.pid), 180);
  EXPECT_EQ(kernel.takeCalls(), (Lines{"memorystatus_control(1, 0, 0, null, 0) = 48",
                                       "memorystatus_control(1, 0, 0, buffer, 288) = 48"}));
  // Any positive size will do.
  kernel.listCallGives(kSize, 1);
  EXPECT_EQ(getActualJetsam(kernel.pid), 180);
  EXPECT_EQ(kernel.takeCalls(), (Lines{"memorystatus_control(1, 0, 0, null, 0) = 1",
                                       "memorystatus_control(1, 0, 0, buffer, 241) = 48"}));
}

TEST(JetsamReadBack, LooksOnlyAtTheFilledPartOfTheList) {
  Kernel kernel;
  EXPECT_EQ(getActualJetsam(INT_MAX), -999);  // larger than any pid
  EXPECT_EQ(getActualJetsam(0), -999);
  struct Case {
    int filled;
    std::int32_t band_of_7;
    std::int32_t band_of_0;  // a pid like any other
  };
  for (const Case& c : {Case{48, 3, 9}, Case{47, 3, -999}, Case{24, 3, -999}, Case{23, -999, -999},
                        Case{0, -999, -999}, Case{-1, -999, -999}}) {
    for (const auto& [pid, band] : {std::pair(7, c.band_of_7), std::pair(0, c.band_of_0)}) {
      kernel.listCallGives(kList, c.filled, c.filled < 0 ? EPERM : 0);
      EXPECT_EQ(getActualJetsam(pid), band) << c.filled;
    }
  }
  kernel.listCallGives(kList, 1'000'000);  // more than the buffer has
  EXPECT_EQ(fetchJetsamPriorityList().count, 12U);
  for (const int size : {-1, 0}) {
    kernel.listCallGives(kSize, size, EPERM);
    EXPECT_EQ(getActualJetsam(kernel.pid), -999) << size;
  }
  EXPECT_EQ(kernel.takeLog(), Lines{});
}

TEST(JetsamReadBack, AListThatGrewByTenIsReadToItsEnd) {
  Kernel kernel;
  std::int32_t newest = 0;
  kernel.device.script({.function = "memorystatus_control", .count = 1, .meanwhile = [&] {
                          for (int i = 0; i < 10; ++i) {
                            newest = kernel.device.launch({.name = "newcomer"});
                          }
                        }});
  const JetsamPriorityList list = fetchJetsamPriorityList();
  EXPECT_EQ(list.count, 12U);
  EXPECT_EQ(list.entries[11].pid, newest);
}

#ifndef VORLATCH_SANITIZED
TEST(JetsamReadBack, AListBeyondTheMemoryThereIsIsNotFetched) {
  Kernel kernel;
  kernel.listCallGives(kSize, INT_MAX);
  const tests::ScarceMemory memory(64'000'000);
  EXPECT_EQ(getActualJetsam(kernel.pid), -999);
  EXPECT_EQ(kernel.takeCalls(), Lines{"memorystatus_control(1, 0, 0, null, 0) = 2147483647"});
}
#endif

TEST(JetsamReadBack, IsJudgedByTheRequestAndItsResult) {
  struct Case {
    std::optional<std::int32_t> band;  // none: the process has exited
    int set_result;
    std::int32_t requested;
    const char* judgement;
  };
  const Case cases[] = {
      {10, 0, 10, "成功"},
      {10, -1, 10, "成功"},  // despite the refusal
      {3, 0, 10, "已被系统覆盖 (设置:10 实际:3)"},
      {0, 0, -999, "系统接管并分配真实优先级为 0"},
      {std::nullopt, 0, 10, "调用成功但状态丢失"},
      {std::nullopt, -1, 10, "失败"},
      {std::nullopt, 1, 10, "失败"},
  };
  Kernel kernel;
  for (const Case& c : cases) {
    const std::int32_t pid = c.band ? kernel.pid : INT_MAX;
    kernel.device.jetsam_table.records[kernel.pid] = kernel.device.jetsam(kernel.pid);
    kernel.device.jetsam_table.records[kernel.pid].effective_band = c.band.value_or(0);
    verifyJetsamPriority(pid, c.set_result, c.requested);
    EXPECT_EQ(kernel.takeLog(),
              (Lines{c.band ? "[内存优先级] 为:" + std::to_string(*c.band)
                            : "[内存优先级] 未在内核优先级列表中找到 PID:" + std::to_string(pid),
                     "[内核] ：" + std::string(c.judgement)}));
  }
}

}  // namespace
}  // namespace vorlatch
