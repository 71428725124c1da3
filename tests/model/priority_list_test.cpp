#include "platform/model/priority_list.h"

#include <array>

#include <gtest/gtest.h>

#include "tests/model/machine.h"

namespace vorlatch::model {
namespace {

TEST(PriorityList, HoldsEveryProcessButKernelAndLaunchd) {
  Machine machine;
  for (const std::int32_t limit_mb : {-1, 1850}) {  // the system's; -1: it has none
    machine.kernel.default_task_limit_mb = limit_mb;
    EXPECT_EQ(machine.list(), (std::vector<Entry>{{kDaemonPid, 180, 0, limit_mb, 0},
                                                  {kAppPid, 180, 0, limit_mb, 0},
                                                  {kOtherPid, 180, 0, limit_mb, 0}}));
  }
  const FixedProcesses launchd({{.pid = 1, .start_time = 1}});
  char byte = 0;
  EXPECT_EQ(getPriorityList(machine.kernel, machine.table, launchd, 0, &byte, 0), kSuccess);
}

TEST(PriorityList, TakesTwentyFourBytesAProcess) {
  Machine machine;
  const auto size = [&](std::int32_t pid) { return machine.control(kGetPriorityList, pid); };
  EXPECT_EQ(size(0), (CallResult{.result = 72}));
  EXPECT_EQ(size(kDaemonPid), (CallResult{.result = 24}));
  // The size of one entry is known without the process.
  EXPECT_EQ(size(kGonePid), (CallResult{.result = 24}));

  for (const std::size_t room : {72U, 80U}) {
    std::array<unsigned char, 80> bytes{};
    bytes.fill(0xaa);
    EXPECT_EQ(machine.control(kGetPriorityList, 0, 0, bytes.data(), room),
              (CallResult{.result = 72}));
    EXPECT_EQ(bytes[71], 0);
    for (std::size_t at = 72; at < bytes.size(); ++at) EXPECT_EQ(bytes[at], 0xaa) << at;
  }
}

TEST(PriorityList, HasBytesWhereTheKernelHas) {
  Machine machine(kIos15);
  ASSERT_EQ(machine.setBand(kDaemonPid, 16, 0x0807060504030201U, kAssertion), kSuccess);
  ASSERT_EQ(machine.setLimits(kDaemonPid, {0x1234, 1, 5, 1}), kSuccess);
  std::array<unsigned char, 24> bytes{};
  EXPECT_EQ(machine.control(kGetPriorityList, kDaemonPid, 0, bytes.data(), bytes.size()),
            (CallResult{.result = 24}));
  EXPECT_EQ(bytes, (std::array<unsigned char, 24>{100, 0, 0, 0, 16,   0,    0, 0, 1,    2, 3, 4,
                                                  5,   6, 7, 8, 0x34, 0x12, 0, 0, 0x40, 0, 0, 0}));
}

TEST(PriorityList, GoesByBandThenArrival) {
  struct Case {
    std::int32_t pid;
    std::int32_t band;
    std::vector<std::int64_t> listed;
  };
  // One after the other; -2 is the head of the idle band.
  const Case cases[] = {
      {kAppPid, 30, {kAppPid, kDaemonPid, kOtherPid}},
      {kDaemonPid, 30, {kAppPid, kDaemonPid, kOtherPid}},
      {kAppPid, 30, {kDaemonPid, kAppPid, kOtherPid}},
      {kOtherPid, 0, {kOtherPid, kDaemonPid, kAppPid}},
      {kAppPid, -2, {kAppPid, kOtherPid, kDaemonPid}},
      {kDaemonPid, -2, {kDaemonPid, kAppPid, kOtherPid}},
  };
  Machine machine;
  ASSERT_EQ(machine.setLimits(kDaemonPid, {5, 0, 5, 0}), kSuccess);  // moves nothing
  for (const Case& c : cases) {
    ASSERT_EQ(machine.setBand(c.pid, c.band), kSuccess);
    std::vector<std::int64_t> listed;
    for (const Entry& entry : machine.list()) listed.push_back(entry[0]);
    EXPECT_EQ(listed, c.listed) << c.pid << " at " << c.band;
  }
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
  const Case cases[] = {
      {kIos15, false, false, 0, 9, kInactive},  {kIos15, false, false, 0, 10, kActive},
      {kIos17, false, false, 0, 99, kInactive}, {kIos17, false, false, 0, 100, kActive},
      {kIos17, false, true, 0, 30, kActive},    {kIos17, false, true, 0, 41, kInactive},
      {kIos18, false, false, 0, 0, kInactive},  {kIos18, false, false, 0, 30, kActive},
      {kIos18, true, false, 0, 210, kInactive}, {kIos18, true, false, kAssertion, 30, kActive},
      {kIos18, true, true, 0, 40, kActive},
  };
  for (const Case& c : cases) {
    Machine machine(c.generation);
    ASSERT_EQ(machine.setLimits(kDaemonPid, {kActive, 0, kInactive, 0}), kSuccess);
    ASSERT_EQ(machine.setState(kSetManaged, kDaemonPid, c.managed ? 1 : 0), kSuccess);
    ASSERT_EQ(machine.control(c.elevated ? kElevate : kLower, kDaemonPid), kSuccess);
    ASSERT_EQ(machine.setBand(kDaemonPid, c.band, 0, c.flags), kSuccess);
    EXPECT_EQ(machine.entryOf(kDaemonPid).value_or(Entry{})[3], c.limit_mb) << c.band;
  }
}

}  // namespace
}  // namespace vorlatch::model
