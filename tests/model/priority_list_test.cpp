#include "platform/model/priority_list.h"

#include <array>

#include <gtest/gtest.h>

#include "tests/model/machine.h"

namespace vorlatch::model {
namespace {

using Entry = platform::memorystatus_priority_entry;
using Entries = std::vector<Entry>;

constexpr std::uint32_t kGetPriorityList = platform::MEMORYSTATUS_CMD_GET_PRIORITY_LIST;
constexpr std::uint32_t kAssertion = platform::MEMORYSTATUS_SET_PRIORITY_ASSERTION;

std::vector<std::int32_t> pidsOf(const Entries& entries) {
  std::vector<std::int32_t> pids;
  pids.reserve(entries.size());
  for (const Entry& entry : entries) pids.push_back(entry.pid);
  return pids;
}

using Pids = std::vector<std::int32_t>;

TEST(PriorityList, HoldsEveryProcessButTheKernelAndLaunchd) {
  Machine machine;
  machine.kernel.default_task_limit_mb = 1850;
  EXPECT_EQ(machine.list(), (Entries{{kDaemonPid, 180, 0, 1850, 0},
                                     {kAppPid, 180, 0, 1850, 0},
                                     {kOtherPid, 180, 0, 1850, 0}}));
}

TEST(PriorityList, AsksForTwentyFourBytesAProcess) {
  Machine machine;
  EXPECT_EQ(machine.control(kGetPriorityList, 0, 0, nullptr, 0), (CallResult{.result = 72}));
  EXPECT_EQ(machine.control(kGetPriorityList, kDaemonPid, 0, nullptr, 0),
            (CallResult{.result = 24}));
  // The size of one entry is known without the process.
  EXPECT_EQ(machine.control(kGetPriorityList, kGonePid, 0, nullptr, 0), (CallResult{.result = 24}));
}

TEST(PriorityList, WritesNoFurtherThanItsEntries) {
  Machine machine;
  std::array<unsigned char, 80> bytes{};
  bytes.fill(0xaa);
  EXPECT_EQ(machine.control(kGetPriorityList, 0, 0, bytes.data(), bytes.size()),
            (CallResult{.result = 72}));
  EXPECT_EQ(bytes[71], 0);
  for (std::size_t at = 72; at < bytes.size(); ++at) EXPECT_EQ(bytes[at], 0xaa) << at;
}

TEST(PriorityList, WritesTheRecordsBytesWhereTheKernelDoes) {
  Machine machine(KernelGeneration::Xnu4903To8020);
  ASSERT_EQ(machine.setPriority(kDaemonPid, kAssertion, 16, 0x0807060504030201U), kSuccess);
  ASSERT_EQ(machine.setLimits(kDaemonPid, {0x1234, 1, 5, 1}), kSuccess);
  std::array<unsigned char, 24> bytes{};
  EXPECT_EQ(machine.control(kGetPriorityList, kDaemonPid, 0, bytes.data(), bytes.size()),
            (CallResult{.result = 24}));
  EXPECT_EQ(bytes, (std::array<unsigned char, 24>{100, 0, 0, 0, 16,   0,    0, 0, 1,    2, 3, 4,
                                                  5,   6, 7, 8, 0x34, 0x12, 0, 0, 0x40, 0, 0, 0}));
}

TEST(PriorityList, StandsInOrderOfBandAndThenOfArrival) {
  Machine machine;
  ASSERT_EQ(machine.setPriority(kAppPid, 0, 30), kSuccess);
  EXPECT_EQ(pidsOf(machine.list()), (Pids{kAppPid, kDaemonPid, kOtherPid}));
  ASSERT_EQ(machine.setPriority(kDaemonPid, 0, 30), kSuccess);
  EXPECT_EQ(pidsOf(machine.list()), (Pids{kAppPid, kDaemonPid, kOtherPid}));
  ASSERT_EQ(machine.setPriority(kAppPid, 0, 30), kSuccess);
  EXPECT_EQ(pidsOf(machine.list()), (Pids{kDaemonPid, kAppPid, kOtherPid}));
  ASSERT_EQ(machine.setPriority(kOtherPid, 0, 0), kSuccess);
  EXPECT_EQ(pidsOf(machine.list()), (Pids{kOtherPid, kDaemonPid, kAppPid}));
}

TEST(PriorityList, PutsMinusTwoAtTheHeadOfTheIdleBand) {
  Machine machine;
  ASSERT_EQ(machine.setPriority(kDaemonPid, 0, 0), kSuccess);
  ASSERT_EQ(machine.setPriority(kAppPid, 0, -2), kSuccess);
  EXPECT_EQ(pidsOf(machine.list()), (Pids{kAppPid, kDaemonPid, kOtherPid}));
  ASSERT_EQ(machine.setPriority(kOtherPid, 0, -2), kSuccess);
  EXPECT_EQ(pidsOf(machine.list()), (Pids{kOtherPid, kAppPid, kDaemonPid}));
}

TEST(PriorityList, KeepsItsOrderWhenOnlyLimitsChange) {
  Machine machine;
  ASSERT_EQ(machine.setLimits(kDaemonPid, {5, 0, 5, 0}), kSuccess);
  EXPECT_EQ(pidsOf(machine.list()), (Pids{kDaemonPid, kAppPid, kOtherPid}));
}

TEST(PriorityList, ShowsTheLimitInForce) {
  struct Case {
    KernelGeneration generation;
    bool managed;
    bool elevated;
    std::uint32_t flags;
    std::int32_t band;
    std::int32_t limit_mb;
  };
  constexpr std::int32_t kActive = 300;
  constexpr std::int32_t kInactive = 200;
  const std::array<Case, 11> cases = {{
      {KernelGeneration::Xnu4903To8020, false, false, 0, 9, kInactive},
      {KernelGeneration::Xnu4903To8020, false, false, 0, 10, kActive},
      {KernelGeneration::Xnu8792To10063, false, false, 0, 99, kInactive},
      {KernelGeneration::Xnu8792To10063, false, false, 0, 100, kActive},
      {KernelGeneration::Xnu8792To10063, false, true, 0, 30, kActive},
      {KernelGeneration::Xnu8792To10063, false, true, 0, 41, kInactive},
      {KernelGeneration::Xnu11215To11417, false, false, 0, 0, kInactive},
      {KernelGeneration::Xnu11215To11417, false, false, 0, 30, kActive},
      {KernelGeneration::Xnu11215To11417, true, false, 0, 210, kInactive},
      {KernelGeneration::Xnu11215To11417, true, false, kAssertion, 30, kActive},
      {KernelGeneration::Xnu11215To11417, true, true, 0, 40, kActive},
  }};
  for (const Case& c : cases) {
    Machine machine(c.generation);
    ASSERT_EQ(machine.setLimits(kDaemonPid, {kActive, 0, kInactive, 0}), kSuccess);
    ASSERT_EQ(machine.setManaged(kDaemonPid, c.managed ? 1 : 0), kSuccess);
    ASSERT_EQ(machine.elevate(kDaemonPid, c.elevated, 0), kSuccess);
    ASSERT_EQ(machine.setPriority(kDaemonPid, c.flags, c.band), kSuccess);
    Entry entry{};
    ASSERT_EQ(machine.control(kGetPriorityList, kDaemonPid, 0, &entry, sizeof(entry)),
              (CallResult{.result = 24}));
    EXPECT_EQ(entry.limit, c.limit_mb) << c.band;
  }
}

TEST(PriorityList, ReportsMinusOneWithoutAnyLimit) {
  Machine machine;
  EXPECT_EQ(machine.list().front(), (Entry{kDaemonPid, 180, 0, -1, 0}));
}

TEST(PriorityList, IsEmptyOnAMachineOfLaunchdAlone) {
  Machine machine;
  const FixedProcesses launchd({{.pid = 1, .start_time = 1}});
  char byte = 0;
  EXPECT_EQ(getPriorityList(machine.kernel, machine.table, launchd, 0, &byte, 0), kSuccess);
}

}  // namespace
}  // namespace vorlatch::model
