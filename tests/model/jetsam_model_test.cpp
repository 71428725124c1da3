#include "platform/model/jetsam_model.h"

#include <array>
#include <cstring>
#include <tuple>

#include <gtest/gtest.h>

#include "tests/model/machine.h"

namespace vorlatch::model {
namespace {

using platform::memorystatus_memlimit_properties;
using platform::memorystatus_priority_properties;

TEST(JetsamModel, TurnsReservedAndAliasBandsIntoOthers) {
  const std::tuple<KernelGeneration, std::int32_t, std::int32_t> bands[] = {
      {kIos15, -2, 0},   {kIos15, -1, 18}, {kIos15, 0, 0},   {kIos15, 1, 0},
      {kIos15, 2, 0},    {kIos15, 3, 3},   {kIos15, 21, 21}, {kIos17, -1, 180},
      {kIos17, 1, 0},    {kIos17, 20, 0},  {kIos17, 21, 21}, {kIos17, 210, 210},
      {kIos18, -1, 180}, {kIos18, 15, 0},  {kIos18, 20, 0},  {kIos18, 21, 21}};
  for (const auto& [generation, asked, given] : bands) {
    Machine machine(generation);
    EXPECT_EQ(machine.setPriority(kDaemonPid, 0, asked, 7), kSuccess) << asked;
    EXPECT_EQ(machine.record(kDaemonPid), (JetsamRecord{.start_time = 10,
                                                        .arrival = asked == -2 ? -1 : 1,
                                                        .requested_band = given,
                                                        .effective_band = given,
                                                        .user_data = 7,
                                                        .active = {},
                                                        .inactive = {}}))
        << asked;
  }
}

TEST(JetsamModel, LeavesRequestedBandUnderAnAssertion) {
  Machine machine;
  ASSERT_EQ(machine.setPriority(kDaemonPid, 0, 30), kSuccess);
  ASSERT_EQ(machine.setPriority(kDaemonPid, kAssertion, 160, 5), kSuccess);
  JetsamRecord expected{.start_time = 10,
                        .arrival = 2,
                        .requested_band = 30,
                        .effective_band = 160,
                        .user_data = 5,
                        .active = {},
                        .inactive = {},
                        .assertion = true};
  EXPECT_EQ(machine.record(kDaemonPid), expected);

  // A set without assertion keeps the bit.
  ASSERT_EQ(machine.setPriority(kDaemonPid, 0, 0, 6), kSuccess);
  expected.arrival = 3;
  expected.requested_band = expected.effective_band = 0;
  expected.user_data = 6;
  EXPECT_EQ(machine.record(kDaemonPid), expected);

  ASSERT_EQ(machine.setPriority(kDaemonPid, kAssertion, 0), kSuccess);
  expected.arrival = 4;
  expected.user_data = 0;
  expected.assertion = false;
  EXPECT_EQ(machine.record(kDaemonPid), expected);
}

TEST(JetsamModel, IgnoresIdleAssertionOnNoneUpToIos17) {
  for (const KernelGeneration generation : {kIos15, kIos17}) {
    Machine machine(generation);
    JetsamRecord expected = machine.record(kDaemonPid);
    expected.user_data = 9;
    EXPECT_EQ(machine.setPriority(kDaemonPid, kAssertion, 0, 9), kSuccess);
    EXPECT_EQ(machine.record(kDaemonPid), expected);
  }
}

TEST(JetsamModel, RefusesAssertionOnUnmanagedOnIos18) {
  for (const KernelGeneration generation : kGenerations) {
    const bool refused = generation == kIos18;
    Machine machine(generation);
    // Ahead of the refusal of the band, behind that of launchd.
    EXPECT_EQ(machine.setPriority(kDaemonPid, kAssertion, 999), refusal(refused ? EPERM : EINVAL));
    EXPECT_EQ(machine.setPriority(kDaemonPid, kAssertion, 10), refused ? refusal(EPERM) : kSuccess);
    EXPECT_EQ(machine.setManaged(kAppPid, 1), kSuccess);
    EXPECT_EQ(machine.setPriority(kAppPid, kAssertion, 21), kSuccess);
    EXPECT_EQ(machine.band(kAppPid), 21);
    EXPECT_EQ(machine.setPriority(kAppPid, kAssertion, 0), kSuccess);
    EXPECT_EQ(machine.band(kAppPid), 0);
  }
}

TEST(JetsamModel, StoresLimitsAndReportsDefaults) {
  struct Case {
    KernelGeneration generation;
    std::int32_t default_mb;
    memorystatus_memlimit_properties set;
    Limits read;
  };
  // On iOS 18 the default limit is fatal by its value.
  const std::array<Case, 8> cases = {{
      {kIos17, 2048, {300, 1, 200, 0}, {300, 1, 200, 0}},
      {kIos17, 2048, {0, 0, 0, 0}, {2048, 1, 2048, 1}},
      {kIos17, 2048, {-1, 0, INT32_MIN, 0}, {2048, 1, 2048, 1}},
      {kIos17, -1, {0, 0, 50, 1}, {-1, 1, 50, 1}},
      {kIos17, 2048, {2048, 0, 2048, 1}, {2048, 0, 2048, 1}},
      {kIos17, 2048, {INT32_MAX, 0, 1, 1}, {INT32_MAX, 0, 1, 1}},
      {kIos18, 2048, {2048, 0, 0, 0}, {2048, 1, 2048, 1}},
      {kIos18, -1, {0, 0, -1, 1}, {-1, 0, -1, 1}},
  }};
  for (const Case& c : cases) {
    Machine machine(c.generation);
    machine.kernel.default_task_limit_mb = c.default_mb;
    EXPECT_EQ(machine.setLimits(kDaemonPid, c.set), kSuccess);
    EXPECT_EQ(machine.limits(kDaemonPid), c.read);
    EXPECT_EQ(machine.limits(kAppPid), (Limits{c.default_mb, 1, c.default_mb, 1}));
  }
  // The longer record has zeros behind the limits.
  Machine machine;
  ASSERT_EQ(machine.setLimits(kDaemonPid, {7, 1, 8, 0}), kSuccess);
  std::array<std::int32_t, 6> record{};
  record.fill(-1);
  EXPECT_EQ(machine.control(kGetLimits, kDaemonPid, 0, record.data(), 24), kSuccess);
  EXPECT_EQ(record, (std::array<std::int32_t, 6>{7, 1, 8, 0, 0, 0}));
}

TEST(JetsamModel, RefusesUnknownLimitAttributes) {
  Machine machine;
  EXPECT_EQ(machine.setLimits(kDaemonPid, {1, 2, 1, 0}), refusal(EINVAL));
  EXPECT_EQ(machine.setLimits(kDaemonPid, {1, 0, 1, 3}), refusal(EINVAL));
  EXPECT_EQ(machine.setLimits(kGonePid, {1, 2, 1, 0}), refusal(ESRCH));
  EXPECT_EQ(machine.table, JetsamTable{});
}

TEST(JetsamModel, RaisesLaterBandsOfAnElevatedProcess) {
  const std::tuple<KernelGeneration, std::int32_t, std::int32_t> bands[] = {
      {kIos15, 0, 4},   {kIos15, 1, 4},   {kIos15, 4, 4},  {kIos15, 5, 5},  {kIos17, 20, 40},
      {kIos17, 30, 40}, {kIos17, 41, 41}, {kIos18, 0, 40}, {kIos18, 20, 0}, {kIos18, -2, 40}};
  for (const auto& [generation, asked, given] : bands) {
    Machine machine(generation);
    const std::int32_t before = machine.band(kDaemonPid);
    ASSERT_EQ(machine.elevate(kDaemonPid, true, 0), kSuccess);
    EXPECT_EQ(machine.band(kDaemonPid), before);
    ASSERT_EQ(machine.setPriority(kDaemonPid, 0, asked), kSuccess);
    EXPECT_EQ(machine.band(kDaemonPid), given) << asked;
    ASSERT_EQ(machine.elevate(kDaemonPid, false, 0), kSuccess);
    ASSERT_EQ(machine.setPriority(kDaemonPid, 0, 0), kSuccess);
    EXPECT_EQ(machine.band(kDaemonPid), 0);
  }
}

TEST(JetsamModel, ElevatesAtOnceWhenFlagsSaySo) {
  for (const KernelGeneration generation : kGenerations) {
    const std::int32_t elevated = generation == kIos15 ? 4 : 40;
    Machine machine(generation);
    ASSERT_EQ(machine.setPriority(kDaemonPid, 0, 0), kSuccess);
    ASSERT_EQ(machine.elevate(kDaemonPid, true, 1), kSuccess);
    EXPECT_EQ(machine.band(kDaemonPid), elevated);
    EXPECT_EQ(machine.elevate(kDaemonPid, true, 1), kSuccess);
    EXPECT_EQ(machine.record(kDaemonPid).arrival, 2);
    ASSERT_EQ(machine.elevate(kDaemonPid, false, 1), kSuccess);
    EXPECT_EQ(machine.band(kDaemonPid), 0);

    const std::int32_t untouched = machine.band(kAppPid);
    ASSERT_EQ(machine.elevate(kAppPid, true, 1), kSuccess);
    EXPECT_EQ(machine.band(kAppPid), untouched);
    ASSERT_EQ(machine.elevate(kAppPid, false, 1), kSuccess);
    EXPECT_EQ(machine.band(kAppPid), untouched);
  }
}

TEST(JetsamModel, LowersNothingThatWasNotElevated) {
  Machine machine;
  ASSERT_EQ(machine.setPriority(kDaemonPid, 0, 40), kSuccess);
  const JetsamTable before = machine.table;
  EXPECT_EQ(machine.elevate(kDaemonPid, false, 1), kSuccess);
  EXPECT_EQ(machine.table, before);
  EXPECT_EQ(Machine(kIos18).elevate(1, true, 0), refusal(EINVAL));
  EXPECT_EQ(Machine(kIos17).elevate(1, true, 0), kSuccess);
}

// The state 1 alone means managed, and makes freezable; any but 0 means freezable.
TEST(JetsamModel, TakesStatesFromBufferOrFlags) {
  for (const StateArgument argument : {StateArgument::Buffer, StateArgument::Flags}) {
    for (const std::uint32_t state : {0U, 1U, 2U, 0xffffffffU}) {
      Machine machine(kIos17, argument);
      EXPECT_EQ(machine.control(kGetManaged, kDaemonPid, 0, nullptr, 0), kSuccess);
      ASSERT_EQ(machine.setManaged(kDaemonPid, 1), kSuccess);
      EXPECT_TRUE(machine.record(kDaemonPid).freezable);
      // The other place says something else.
      const std::uint32_t another = state == 1 ? 0 : 1;
      std::uint32_t in_buffer = argument == StateArgument::Buffer ? state : another;
      const std::uint32_t in_flags = argument == StateArgument::Flags ? state : another;
      EXPECT_EQ(machine.control(kSetManaged, kDaemonPid, in_flags, &in_buffer, 4), kSuccess);
      EXPECT_EQ(machine.control(kGetManaged, kDaemonPid, 0, nullptr, 0),
                (CallResult{.result = state == 1}));
      EXPECT_TRUE(machine.record(kDaemonPid).freezable);
      EXPECT_EQ(machine.control(kSetFreezable, kDaemonPid, in_flags, &in_buffer, 4), kSuccess);
      EXPECT_EQ(machine.record(kDaemonPid).freezable, state != 0) << state;
    }
  }
  Machine flags_alone(kIos17, StateArgument::Flags);
  EXPECT_EQ(flags_alone.control(kSetManaged, kDaemonPid, 1, nullptr, 0), kSuccess);
  EXPECT_EQ(flags_alone.control(kSetFreezable, kDaemonPid, 2, nullptr, 0), kSuccess);
  EXPECT_TRUE(flags_alone.record(kDaemonPid).managed && flags_alone.record(kDaemonPid).freezable);
  EXPECT_EQ(Machine(kIos15).setState(kSetFreezable, kDaemonPid, 2), kSuccess);
}

TEST(JetsamModel, RefusesForeignProcessesFreezableState) {
  Machine unprivileged;
  unprivileged.kernel.caller_is_privileged = false;
  EXPECT_EQ(unprivileged.setState(kSetFreezable, kGonePid, 1), refusal(EPERM));
  EXPECT_EQ(unprivileged.setState(kSetFreezable, kGonePid, 0), refusal(ESRCH));
  EXPECT_EQ(unprivileged.setState(kSetFreezable, kDaemonPid, 0), refusal(EPERM));
  EXPECT_EQ(unprivileged.table, JetsamTable{});
  // On iOS 15, where the state is in the flags, to root too.
  Machine ios15(kIos15, StateArgument::Flags);
  EXPECT_EQ(ios15.control(kSetFreezable, kDaemonPid, 1, nullptr, 0), refusal(EPERM));
  EXPECT_EQ(ios15.control(kSetFreezable, kDaemonPid, 0, nullptr, 0), refusal(EPERM));
  EXPECT_EQ(ios15.control(kSetFreezable, kGonePid, 0, nullptr, 0), refusal(ESRCH));
}

TEST(JetsamModel, GivesDarwinRolesToAppsAlone) {
  struct Case {
    std::int32_t pid;
    std::int32_t role;
    bool privileged;
    CallResult result;
  };
  const std::array<Case, 7> cases = {{
      {kAppPid, 1, true, kSuccess},
      {kAppPid, 6, true, kSuccess},
      {kAppPid, 7, true, refusal(EINVAL)},
      {kAppPid, -1, true, refusal(EINVAL)},
      {kDaemonPid, 99, true, refusal(ENOTSUP)},
      {kGonePid, 1, true, refusal(ESRCH)},
      {kAppPid, 1, false, refusal(EPERM)},
  }};
  for (const Case& c : cases) {
    Machine machine;
    machine.kernel.caller_is_privileged = c.privileged;
    EXPECT_EQ(setDarwinRole(machine.kernel, machine.table, machine.processes, c.pid, c.role),
              c.result)
        << c.pid << ' ' << c.role;
    const std::int32_t expected_role = c.result == kSuccess ? c.role : 0;
    EXPECT_EQ(machine.record(c.pid).darwin_role, expected_role);
  }
}

TEST(JetsamModel, StartsANewProcessWithDefaultsAtAnOldPid) {
  Machine machine;
  ASSERT_EQ(machine.setPriority(kDaemonPid, kAssertion, 210), kSuccess);
  ASSERT_EQ(machine.setManaged(kDaemonPid, 1), kSuccess);
  const LiveProcess reborn{.pid = kDaemonPid, .start_time = 11};
  EXPECT_EQ(recordOf(machine.kernel, machine.table, reborn), (JetsamRecord{.start_time = 11,
                                                                           .requested_band = 180,
                                                                           .effective_band = 180,
                                                                           .active = {},
                                                                           .inactive = {}}));
}

TEST(JetsamModel, ForgetsTheDeadAndReusedPids) {
  Machine machine;
  for (const std::int32_t pid : {kDaemonPid, kAppPid, kOtherPid}) {
    ASSERT_EQ(machine.setPriority(pid, 0, 30), kSuccess);
  }
  const JetsamRecord kept = machine.record(kOtherPid);
  forgetDeadProcesses(machine.table,
                      FixedProcesses({{.pid = kAppPid, .start_time = 21},
                                      {.pid = kOtherPid, .start_time = kept.start_time}}));
  EXPECT_EQ(machine.table, (JetsamTable{.records = {{kOtherPid, kept}}, .next_arrival = 4}));
}

TEST(JetsamModel, ReadsRecordsFromUnalignedBuffers) {
  Machine machine;
  const memorystatus_priority_properties properties{170, 0, 3};
  std::array<char, 17> bytes{};
  std::memcpy(bytes.data() + 1, &properties, sizeof(properties));
  EXPECT_EQ(machine.control(kSetPriority, kDaemonPid, 0, bytes.data() + 1, 16), kSuccess);
  EXPECT_EQ(machine.band(kDaemonPid), 170);
}

}  // namespace
}  // namespace vorlatch::model
