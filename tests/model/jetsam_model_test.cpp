#include "platform/model/jetsam_model.h"

#include <array>
#include <cstring>

#include <gtest/gtest.h>

#include "tests/model/machine.h"

namespace vorlatch::model {
namespace {

// Requested and effective band, arrival, user data, and whether there is an assertion.
using Place = std::array<std::int64_t, 5>;

Place placeOf(const JetsamRecord& record) {
  return {record.requested_band, record.effective_band, record.arrival,
          static_cast<std::int64_t>(record.user_data), record.assertion ? 1 : 0};
}

// An elevated process stays where it is until the next request.
TEST(JetsamModel, TurnsBandsIntoOthers) {
  struct Case {
    KernelGeneration generation;
    std::int32_t asked;
    std::int32_t given;
    std::int32_t given_elevated;
  };
  constexpr Case kCases[] = {
      {kIos15, -2, 0, 4},     {kIos15, -1, 18, 18},   {kIos15, 0, 0, 4},       {kIos15, 1, 0, 4},
      {kIos15, 2, 0, 4},      {kIos15, 3, 3, 4},      {kIos15, 4, 4, 4},       {kIos15, 5, 5, 5},
      {kIos15, 21, 21, 21},   {kIos17, -1, 180, 180}, {kIos17, 1, 0, 40},      {kIos17, 20, 0, 40},
      {kIos17, 21, 21, 40},   {kIos17, 41, 41, 41},   {kIos17, 210, 210, 210}, {kIos18, -2, 0, 40},
      {kIos18, -1, 180, 180}, {kIos18, 0, 0, 40},     {kIos18, 15, 0, 0},      {kIos18, 20, 0, 0},
      {kIos18, 21, 21, 40},
  };
  for (const Case& c : kCases) {
    Machine machine(c.generation);
    const std::int32_t before = machine.band(kDaemonPid);
    ASSERT_EQ(machine.control(kElevate, kDaemonPid), kSuccess);
    EXPECT_EQ(machine.band(kDaemonPid), before);
    for (const std::int32_t pid : {kDaemonPid, kAppPid}) {
      const std::int32_t given = pid == kDaemonPid ? c.given_elevated : c.given;
      const std::int32_t arrival = pid == kDaemonPid ? 1 : 2;
      EXPECT_EQ(machine.setBand(pid, c.asked, 7), kSuccess);
      EXPECT_EQ(placeOf(machine.record(pid)),
                (Place{c.given, given, c.asked == -2 ? -arrival : arrival, 7, 0}))
          << pid << " at " << c.asked;
    }
    ASSERT_EQ(machine.control(kLower, kDaemonPid), kSuccess);
    ASSERT_EQ(machine.setBand(kDaemonPid, 0), kSuccess);
    EXPECT_EQ(machine.band(kDaemonPid), 0);
  }
}

TEST(JetsamModel, LeavesRequestedBandUnderAnAssertion) {
  struct Step {
    std::uint32_t flags;
    std::int32_t band;
    std::uint64_t user_data;
    Place place;
  };
  for (const KernelGeneration generation : {kIos15, kIos17}) {
    const std::int64_t initial = defaultBand(generation);
    const Step steps[] = {
        // Without an assertion, one for the idle band moves nothing.
        {kAssertion, 0, 9, {initial, initial, 0, 9, 0}},
        {0, 5, 0, {generation == kIos15 ? 5 : 0, generation == kIos15 ? 5 : 0, 1, 0, 0}},
        {kAssertion, 21, 5, {generation == kIos15 ? 5 : 0, 21, 2, 5, 1}},
        // A request without assertion keeps the bit.
        {0, 0, 6, {0, 0, 3, 6, 1}},
        {kAssertion, 0, 0, {0, 0, 4, 0, 0}},
    };
    Machine machine(generation);
    for (const Step& step : steps) {
      EXPECT_EQ(machine.setBand(kDaemonPid, step.band, step.user_data, step.flags), kSuccess);
      EXPECT_EQ(placeOf(machine.record(kDaemonPid)), step.place);
    }
  }
}

TEST(JetsamModel, RefusesAssertionOnUnmanagedOnIos18) {
  for (const KernelGeneration generation : kGenerations) {
    const bool refused = generation == kIos18;
    Machine machine(generation);
    const auto assert_band = [&](std::int32_t pid, std::int32_t band) {
      return machine.setBand(pid, band, 0, kAssertion);
    };
    // Ahead of the refusal of the band, behind that of launchd.
    EXPECT_EQ(assert_band(kDaemonPid, 999), refusal(refused ? EPERM : EINVAL));
    EXPECT_EQ(assert_band(kDaemonPid, 10), refused ? refusal(EPERM) : kSuccess);
    EXPECT_EQ(machine.setState(kSetManaged, kAppPid, 1), kSuccess);
    for (const std::int32_t band : {21, 0}) {
      EXPECT_EQ(assert_band(kAppPid, band), kSuccess);
      EXPECT_EQ(machine.band(kAppPid), band);
    }
  }
}

TEST(JetsamModel, StoresLimitsAndReportsDefaults) {
  struct Case {
    KernelGeneration generation;
    std::int32_t default_mb;
    platform::memorystatus_memlimit_properties set;
    Limits read;
  };
  // On iOS 18 the default limit is fatal by its value.
  const Case cases[] = {
      {kIos17, 2048, {300, 1, 200, 0}, {300, 1, 200, 0}},
      {kIos17, 2048, {0, 0, 0, 0}, {2048, 1, 2048, 1}},
      {kIos17, 2048, {-1, 0, INT32_MIN, 0}, {2048, 1, 2048, 1}},
      {kIos17, -1, {0, 0, 50, 1}, {-1, 1, 50, 1}},
      {kIos17, 2048, {2048, 0, 2048, 1}, {2048, 0, 2048, 1}},
      {kIos17, 2048, {INT32_MAX, 0, 1, 1}, {INT32_MAX, 0, 1, 1}},
      {kIos18, 2048, {2048, 0, 0, 0}, {2048, 1, 2048, 1}},
      {kIos18, -1, {0, 0, -1, 1}, {-1, 0, -1, 1}},
  };
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

TEST(JetsamModel, ElevatesAtOnceWhenFlagsSaySo) {
  for (const KernelGeneration generation : kGenerations) {
    const std::int32_t elevated = generation == kIos15 ? 4 : 40;
    const std::int32_t initial = defaultBand(generation);
    Machine machine(generation);
    ASSERT_EQ(machine.setBand(kDaemonPid, 0), kSuccess);
    struct Step {
      std::uint32_t command;
      std::int32_t pid;
      std::int32_t band;
    };
    for (const Step& step : {Step{kElevate, kDaemonPid, elevated},
                             Step{kElevate, kDaemonPid, elevated}, Step{kLower, kDaemonPid, 0},
                             Step{kElevate, kAppPid, initial}, Step{kLower, kAppPid, initial}}) {
      EXPECT_EQ(machine.control(step.command, step.pid, 1), kSuccess);
      EXPECT_EQ(machine.band(step.pid), step.band);
    }
    EXPECT_EQ(machine.record(kDaemonPid).arrival, 3);
    // A process that was not elevated stays where it is.
    ASSERT_EQ(machine.setBand(kOtherPid, elevated), kSuccess);
    const JetsamTable before = machine.table;
    EXPECT_EQ(machine.control(kLower, kOtherPid, 1), kSuccess);
    EXPECT_EQ(machine.table, before);
    EXPECT_EQ(machine.control(kElevate, 1), generation == kIos18 ? refusal(EINVAL) : kSuccess);
  }
}

// The state 1 alone means managed, and makes freezable; any but 0 means freezable.
TEST(JetsamModel, TakesStatesFromBufferOrFlags) {
  for (const StateArgument argument : {StateArgument::Buffer, StateArgument::Flags}) {
    for (const std::uint32_t state : {0U, 1U, 2U, 0xffffffffU}) {
      Machine machine(kIos17, argument);
      EXPECT_EQ(machine.control(kGetManaged, kDaemonPid), kSuccess);
      ASSERT_EQ(machine.setState(kSetManaged, kDaemonPid, 1), kSuccess);
      EXPECT_TRUE(machine.record(kDaemonPid).freezable);
      // The other place says something else.
      const std::uint32_t another = state == 1 ? 0 : 1;
      std::uint32_t in_buffer = argument == StateArgument::Buffer ? state : another;
      const std::uint32_t in_flags = argument == StateArgument::Flags ? state : another;
      EXPECT_EQ(machine.control(kSetManaged, kDaemonPid, in_flags, &in_buffer, 4), kSuccess);
      EXPECT_EQ(machine.control(kGetManaged, kDaemonPid), (CallResult{.result = state == 1}));
      EXPECT_TRUE(machine.record(kDaemonPid).freezable);
      EXPECT_EQ(machine.control(kSetFreezable, kDaemonPid, in_flags, &in_buffer, 4), kSuccess);
      EXPECT_EQ(machine.record(kDaemonPid).freezable, state != 0) << state;
    }
  }
  Machine flags_alone(kIos17, StateArgument::Flags);
  EXPECT_EQ(flags_alone.control(kSetManaged, kDaemonPid, 1), kSuccess);
  EXPECT_EQ(flags_alone.control(kSetFreezable, kDaemonPid, 2), kSuccess);
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
  EXPECT_EQ(ios15.control(kSetFreezable, kDaemonPid, 1), refusal(EPERM));
  EXPECT_EQ(ios15.control(kSetFreezable, kDaemonPid), refusal(EPERM));
  EXPECT_EQ(ios15.control(kSetFreezable, kGonePid), refusal(ESRCH));
}

TEST(JetsamModel, GivesDarwinRolesToAppsAlone) {
  struct Case {
    std::int32_t pid;
    std::int32_t role;
    bool privileged;
    CallResult result;
  };
  const Case cases[] = {
      {kAppPid, 1, true, kSuccess},
      {kAppPid, 6, true, kSuccess},
      {kAppPid, 7, true, refusal(EINVAL)},
      {kAppPid, -1, true, refusal(EINVAL)},
      {kDaemonPid, 99, true, refusal(ENOTSUP)},
      {kGonePid, 1, true, refusal(ESRCH)},
      {kAppPid, 1, false, refusal(EPERM)},
  };
  for (const Case& c : cases) {
    Machine machine;
    machine.kernel.caller_is_privileged = c.privileged;
    EXPECT_EQ(setDarwinRole(machine.kernel, machine.table, machine.processes, c.pid, c.role),
              c.result)
        << c.pid << ' ' << c.role;
    EXPECT_EQ(machine.record(c.pid).darwin_role, c.result == kSuccess ? c.role : 0);
  }
}

TEST(JetsamModel, StartsANewProcessWithDefaultsAtAnOldPid) {
  Machine machine;
  ASSERT_EQ(machine.setBand(kDaemonPid, 210, 0, kAssertion), kSuccess);
  ASSERT_EQ(machine.setState(kSetManaged, kDaemonPid, 1), kSuccess);
  const LiveProcess reborn{.pid = kDaemonPid, .start_time = 11};
  EXPECT_EQ(recordOf(machine.kernel, machine.table, reborn), (JetsamRecord{.start_time = 11,
                                                                           .requested_band = 180,
                                                                           .effective_band = 180,
                                                                           .active = {},
                                                                           .inactive = {}}));
}

TEST(JetsamModel, ReadsRecordsFromUnalignedBuffers) {
  Machine machine;
  const platform::memorystatus_priority_properties properties{170, 0, 3};
  std::array<char, 17> bytes{};
  std::memcpy(bytes.data() + 1, &properties, sizeof(properties));
  EXPECT_EQ(machine.control(kSetPriority, kDaemonPid, 0, bytes.data() + 1, 16), kSuccess);
  EXPECT_EQ(machine.band(kDaemonPid), 170);
}

}  // namespace
}  // namespace vorlatch::model
