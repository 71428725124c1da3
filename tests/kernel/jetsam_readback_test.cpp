#include "kernel/jetsam_readback.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <vector>

#include <gtest/gtest.h>

#include "platform/memorystatus.h"
#include "tests/support/scarce_memory.h"
#include "tests/support/story.h"

namespace vorlatch {
namespace {

using tests::Lines;
using tests::Story;

constexpr int kGetPriorityList = 1;

struct Kernel : Story {
  Kernel() {
    openLog();
    pid = device.launch({.name = "backboardd"});
    device.takeTrace();
  }
  // The log of a read-back that finds the process at `band`.
  Lines verify(std::int32_t band, int set_result, std::int32_t requested) {
    auto record = device.jetsam(pid);
    record.effective_band = band;
    device.jetsam_table.records[pid] = record;
    verifyJetsamPriority(pid, set_result, requested);
    return takeLog();
  }
  // Scripts the call that fetches the list: it leaves one entry (process 7 at band 3) and returns
  // this.
  void fetchGives(int result, int error = 0) const {
    const platform::memorystatus_priority_entry entry{
        .pid = 7, .priority = 3, .user_data = 0, .limit = -1, .state = 0};
    device.script({.function = "memorystatus_control",
                   .command = kGetPriorityList,
                   .first = 2,
                   .result = result,
                   .error = error,
                   .buffer = std::string(reinterpret_cast<const char*>(&entry), sizeof(entry))});
  }
  std::int32_t pid;
};

TEST(JetsamReadBack, FetchesTheListOnceWithRoomForTenMore) {
  Kernel kernel;
  EXPECT_EQ(getActualJetsam(kernel.pid), 180);
  EXPECT_EQ(kernel.takeCalls(), (Lines{"memorystatus_control(1, 0, 0, null, 0) = 48",
                                       "memorystatus_control(1, 0, 0, buffer, 288) = 48"}));
}

TEST(JetsamReadBack, AProcessThatIsNotListedHasNone) {
  Kernel kernel;
  EXPECT_EQ(getActualJetsam(INT_MAX), -999);  // larger than any pid
}

TEST(JetsamReadBack, PidZeroIsLookedForLikeAnyOther) {
  Kernel kernel;
  EXPECT_EQ(getActualJetsam(0), -999);
  const platform::memorystatus_priority_entry entries[] = {
      {.pid = 7, .priority = 3, .user_data = 0, .limit = -1, .state = 0},
      {.pid = 0, .priority = 9, .user_data = 0, .limit = -1, .state = 0}};
  kernel.device.script(
      {.function = "memorystatus_control",
       .command = kGetPriorityList,
       .first = 2,
       .result = sizeof(entries),
       .buffer = std::string(reinterpret_cast<const char*>(entries), sizeof(entries))});
  EXPECT_EQ(getActualJetsam(0), 9);
}

TEST(JetsamReadBack, OnlyTheFilledPartOfTheListIsLookedAt) {
  Kernel kernel;
  const platform::memorystatus_priority_entry entries[] = {
      {.pid = 7, .priority = 3, .user_data = 0, .limit = -1, .state = 0},
      {.pid = 8, .priority = 9, .user_data = 0, .limit = -1, .state = 0}};
  kernel.device.script(
      {.function = "memorystatus_control",
       .command = kGetPriorityList,
       .result = sizeof(entries) - 1,  // the second entry is cut off
       .buffer = std::string(reinterpret_cast<const char*>(entries), sizeof(entries))});
  EXPECT_EQ(getActualJetsam(7), 3);
  EXPECT_EQ(getActualJetsam(8), -999);
}

TEST(JetsamReadBack, AListOfOneProcessIsRead) {
  Kernel kernel;
  kernel.fetchGives(sizeof(platform::memorystatus_priority_entry));
  EXPECT_EQ(getActualJetsam(7), 3);
}

TEST(JetsamReadBack, AListThatGrewByTenIsReadToItsEnd) {
  Kernel kernel;
  std::vector<std::int32_t> newcomers;
  kernel.device.script({.function = "memorystatus_control",
                        .command = kGetPriorityList,
                        .count = 1,
                        .meanwhile = [&] {
                          for (int i = 0; i < 10; ++i) {
                            newcomers.push_back(kernel.device.launch({.name = "newcomer"}));
                          }
                        }});
  const JetsamPriorityList list = fetchJetsamPriorityList();
  EXPECT_EQ(list.count, 12U);
  for (const std::int32_t pid : newcomers) {
    EXPECT_TRUE(std::any_of(list.begin(), list.end(), [pid](const auto& entry) {
      return entry.pid == pid;
    })) << pid;
  }
}

TEST(JetsamReadBack, AnyPositiveSizeGetsRoomForTenMore) {
  Kernel kernel;
  kernel.device.script(
      {.function = "memorystatus_control", .command = kGetPriorityList, .count = 1, .result = 1});
  EXPECT_EQ(getActualJetsam(kernel.pid), 180);
  EXPECT_EQ(kernel.takeCalls(), (Lines{"memorystatus_control(1, 0, 0, null, 0) = 1",
                                       "memorystatus_control(1, 0, 0, buffer, 241) = 48"}));
}

TEST(JetsamReadBack, NeverReadsBeyondTheBuffer) {
  Kernel kernel;
  kernel.fetchGives(1'000'000);
  EXPECT_EQ(fetchJetsamPriorityList().count, 12U);
}

TEST(JetsamReadBack, AShortOrRefusedListGivesNone) {
  Kernel kernel;
  struct Refusal {
    int call;
    int result;
  };
  for (const auto& [call, result] :
       {Refusal{1, -1}, Refusal{1, 0}, Refusal{2, -1}, Refusal{2, 0}, Refusal{2, 23}}) {
    kernel.device.clearScripts();
    kernel.device.script({.function = "memorystatus_control",
                          .command = kGetPriorityList,
                          .first = call,
                          .count = 1,
                          .result = result,
                          .error = EPERM});
    EXPECT_EQ(getActualJetsam(kernel.pid), -999) << call << ' ' << result;
  }
  EXPECT_EQ(kernel.takeLog(), Lines{});
}

TEST(JetsamReadBack, IgnoresTheBufferOfARefusedCall) {
  Kernel kernel;
  kernel.fetchGives(-1, EPERM);
  EXPECT_EQ(getActualJetsam(7), -999);
}

#ifndef VORLATCH_SANITIZED
TEST(JetsamReadBack, AListBeyondTheMemoryThereIsIsNotFetched) {
  Kernel kernel;
  kernel.device.script({.function = "memorystatus_control",
                        .command = kGetPriorityList,
                        .count = 1,
                        .result = INT_MAX});
  const tests::ScarceMemory memory(64'000'000);
  EXPECT_EQ(getActualJetsam(kernel.pid), -999);
  EXPECT_EQ(kernel.takeCalls(), Lines{"memorystatus_control(1, 0, 0, null, 0) = 2147483647"});
}
#endif

TEST(JetsamReadBack, ARequestedBandThatHolds) {
  Kernel kernel;
  EXPECT_EQ(kernel.verify(10, 0, 10), (Lines{"[内存优先级] 为:10", "[内核] ：成功"}));
}

TEST(JetsamReadBack, ABandThatTheSystemOverrode) {
  Kernel kernel;
  EXPECT_EQ(kernel.verify(3, 0, 10),
            (Lines{"[内存优先级] 为:3", "[内核] ：已被系统覆盖 (设置:10 实际:3)"}));
}

TEST(JetsamReadBack, RequestedBandIsSuccessDespiteARefusal) {
  Kernel kernel;
  EXPECT_EQ(kernel.verify(10, -1, 10), (Lines{"[内存优先级] 为:10", "[内核] ：成功"}));
}

TEST(JetsamReadBack, WithoutARequestTheSystemsBandIsReported) {
  Kernel kernel;
  EXPECT_EQ(kernel.verify(0, 0, -999),
            (Lines{"[内存优先级] 为:0", "[内核] ：系统接管并分配真实优先级为 0"}));
}

TEST(JetsamReadBack, ExitAfterSuccessIsReportedAsLostState) {
  Kernel kernel;
  kernel.device.exit(kernel.pid);
  verifyJetsamPriority(kernel.pid, 0, 10);
  EXPECT_EQ(kernel.takeLog(),
            (Lines{"[内存优先级] 未在内核优先级列表中找到 PID:" + std::to_string(kernel.pid),
                   "[内核] ：调用成功但状态丢失"}));
}

TEST(JetsamReadBack, ExitAfterFailureIsReportedAsFailure) {
  Kernel kernel;
  kernel.device.exit(kernel.pid);
  for (const int set_result : {-1, 1}) {
    verifyJetsamPriority(kernel.pid, set_result, 10);
    EXPECT_EQ(kernel.takeLog(),
              (Lines{"[内存优先级] 未在内核优先级列表中找到 PID:" + std::to_string(kernel.pid),
                     "[内核] ：失败"}));
  }
}

}  // namespace
}  // namespace vorlatch
