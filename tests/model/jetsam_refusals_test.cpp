// What the model refuses before it looks at any state, in the kernel's order.
#include <array>

#include <gtest/gtest.h>

#include "platform/model/jetsam_model.h"
#include "tests/model/machine.h"

namespace vorlatch::model {
namespace {

constexpr std::array<std::uint32_t, 9> kCommands = {kGetPriorityList, kSetPriority, kSetLimits,
                                                    kGetLimits,       kElevate,     kLower,
                                                    kSetManaged,      kGetManaged,  kSetFreezable};

TEST(JetsamRefusals, ComeFirstWithoutPrivilege) {
  Machine privileged;
  Machine unprivileged;
  unprivileged.kernel.caller_is_privileged = false;
  for (const std::uint32_t command : kCommands) {
    // Ahead of every other refusal: the pid is gone and the buffer too large.
    const Answer expected = refusal(command == kSetFreezable ? EINVAL : EPERM);
    EXPECT_EQ(unprivileged.control(command, kGonePid, 0, nullptr, 65537), expected) << command;
    EXPECT_EQ(privileged.control(command, kDaemonPid, 0, nullptr, 65537), refusal(EINVAL))
        << command;
  }
  EXPECT_EQ(privileged.control(kGetPriorityList, 0, 0, nullptr, 65536), (Answer{.result = 72}));
  for (const std::uint32_t command : {0U, 3U, 5U, 6U, 9U, 13U, 19U, 20U, 0xffffffffU}) {
    EXPECT_EQ(unprivileged.control(command, kDaemonPid), refusal(EPERM)) << command;
    EXPECT_EQ(privileged.control(command, kDaemonPid), refusal(EINVAL)) << command;
  }
  EXPECT_EQ(privileged.table, JetsamTable{});
  EXPECT_EQ(unprivileged.table, JetsamTable{});
}

struct Refused {
  const char* what;
  std::uint32_t command;
  std::int32_t pid;
  std::uint32_t flags;
  bool has_buffer;
  std::size_t size;
  int error;
};

TEST(JetsamRefusals, ComeInTheKernelsOrder) {
  const Refused refused[] = {
      {"one entry, wrong size", kGetPriorityList, kGonePid, 0, true, 23, EINVAL},
      {"one entry, gone", kGetPriorityList, kGonePid, 0, true, 24, ESRCH},
      {"one entry, negative pid", kGetPriorityList, -1, 0, true, 24, ESRCH},
      {"list, one byte short", kGetPriorityList, 0, 0, true, 71, EINVAL},
      {"priority, pid 0", kSetPriority, 0, 0, true, 16, EINVAL},
      {"priority, null", kSetPriority, kGonePid, 0, false, 16, EINVAL},
      {"priority, short", kSetPriority, kGonePid, 0, true, 15, EINVAL},
      {"priority, long", kSetPriority, kGonePid, 0, true, 17, EINVAL},
      {"priority, unknown flag", kSetPriority, kGonePid, 2, true, 16, EINVAL},
      {"priority, assertion and unknown flag", kSetPriority, kGonePid, 3, true, 16, EINVAL},
      {"priority, gone", kSetPriority, kGonePid, 0, true, 16, ESRCH},
      {"priority, launchd", kSetPriority, 1, 0, true, 16, EPERM},
      {"limits, pid 0", kSetLimits, 0, 0, true, 16, EINVAL},
      {"limits, null", kSetLimits, kGonePid, 0, false, 16, EINVAL},
      {"limits, size", kSetLimits, kGonePid, 0, true, 24, EINVAL},
      {"limits, gone", kSetLimits, kGonePid, 0, true, 16, ESRCH},
      {"reading limits, pid 0", kGetLimits, 0, 0, true, 16, EINVAL},
      {"reading limits, null", kGetLimits, kGonePid, 0, false, 16, EINVAL},
      {"reading limits, size", kGetLimits, kGonePid, 0, true, 20, EINVAL},
      {"reading limits, gone", kGetLimits, kGonePid, 0, true, 24, ESRCH},
      {"elevating, pid 0", kElevate, 0, 0, false, 0, EINVAL},
      {"elevating, gone", kElevate, kGonePid, 0, false, 0, ESRCH},
      {"lowering, gone", kLower, kGonePid, 0, false, 0, ESRCH},
      {"managed, pid 0", kSetManaged, 0, 0, true, 4, EINVAL},
      {"managed, null", kSetManaged, kGonePid, 1, false, 4, EINVAL},
      {"managed, size", kSetManaged, kGonePid, 1, true, 8, EINVAL},
      {"managed, gone", kSetManaged, kGonePid, 0, true, 4, ESRCH},
      {"reading managed, pid 0", kGetManaged, 0, 0, false, 0, EINVAL},
      {"reading managed, gone", kGetManaged, kGonePid, 0, false, 0, ESRCH},
      {"reading managed, negative pid", kGetManaged, -5, 0, false, 0, ESRCH},
      {"freezable, pid 0", kSetFreezable, 0, 0, true, 4, EINVAL},
      {"freezable, null", kSetFreezable, kGonePid, 1, false, 4, EINVAL},
      {"freezable, size", kSetFreezable, kGonePid, 1, true, 3, EINVAL},
      {"freezable, gone", kSetFreezable, kGonePid, 0, true, 4, ESRCH},
  };
  for (const Refused& call : refused) {
    Machine machine;
    // 0xff everywhere: also a refused priority and unknown attributes, which come last.
    std::array<char, 72> buffer{};
    buffer.fill('\xff');
    const auto before = buffer;
    EXPECT_EQ(machine.control(call.command, call.pid, call.flags,
                              call.has_buffer ? buffer.data() : nullptr, call.size),
              refusal(call.error))
        << call.what;
    EXPECT_EQ(machine.table, JetsamTable{}) << call.what;
    EXPECT_EQ(buffer, before) << call.what;
  }
}

TEST(JetsamRefusals, MeetBandsOutsideTheRange) {
  for (const KernelGeneration generation : kGenerations) {
    Machine machine(generation);
    const std::int32_t highest = highestBand(generation);
    for (const std::int32_t band : {-3, INT32_MIN, highest + 1, 999, INT32_MAX}) {
      EXPECT_EQ(machine.setBand(kDaemonPid, band), refusal(EINVAL)) << band;
    }
    EXPECT_EQ(machine.table, JetsamTable{});
    EXPECT_EQ(machine.setBand(kDaemonPid, highest), kSuccess);
    EXPECT_EQ(machine.band(kDaemonPid), highest);
  }
}

}  // namespace
}  // namespace vorlatch::model
