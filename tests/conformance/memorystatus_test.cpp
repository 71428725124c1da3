#include "platform/memorystatus.h"

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tests/conformance/calls.h"
#include "tests/conformance/driver.h"

namespace vorlatch::conformance {
namespace {

constexpr std::uint32_t kFatal = platform::MEMORYSTATUS_MEMLIMIT_ATTR_FATAL;
constexpr std::int64_t kAssertionState = 0x40;

TEST(PrivilegedMemorystatus, ReadsBackBandAndLimits) {
  const Process process("vl-band");
  const int pid = process.pid();
  EXPECT_EQ(kJetsam.setBand(pid, 100, 7), kSuccess);
  EXPECT_EQ(kJetsam.setLimits(pid, {60, 0, 60, 0}), kSuccess);
  EXPECT_EQ(kJetsam.entryOf(pid), (Entry{pid, 100, 7, 60, 0}));
  EXPECT_EQ(kJetsam.setBand(pid, 120, 9, kAssertion), kSuccess);
  EXPECT_EQ(kJetsam.entryOf(pid), (Entry{pid, 120, 9, 60, kAssertionState}));
  EXPECT_EQ(kJetsam.setBand(pid, -1), kSuccess);
  EXPECT_EQ(kJetsam.entryOf(pid).value_or(Entry{})[1], 180);
  EXPECT_EQ(kJetsam.setLimits(pid, {60, 0, 40, kFatal}), kSuccess);
  EXPECT_EQ(kJetsam.limits(pid), (Limits{60, 0, 40, kFatal}));
}

TEST(PrivilegedMemorystatus, ListsByBandThenArrival) {
  const Process processes[] = {Process("vl-a"), Process("vl-b"), Process("vl-c")};
  const int a = processes[0].pid();
  const int b = processes[1].pid();
  const int c = processes[2].pid();
  const auto listed = [&] {
    std::vector<std::int64_t> pids;
    for (const Entry& entry : kJetsam.list()) {
      if (entry[0] == a || entry[0] == b || entry[0] == c) pids.push_back(entry[0]);
    }
    return pids;
  };
  EXPECT_EQ(kJetsam.setBand(a, 100), kSuccess);
  EXPECT_EQ(kJetsam.setBand(b, 100), kSuccess);
  EXPECT_EQ(kJetsam.setBand(c, 50), kSuccess);
  EXPECT_EQ(listed(), (std::vector<std::int64_t>{c, a, b}));
  EXPECT_EQ(kJetsam.setBand(a, 100), kSuccess);
  EXPECT_EQ(listed(), (std::vector<std::int64_t>{c, b, a}));
}

TEST(PrivilegedMemorystatus, TakesStates) {
  const Process process("vl-states");
  const int pid = process.pid();
  EXPECT_EQ(kJetsam.control(kGetManaged, pid), kSuccess);
  EXPECT_EQ(kJetsam.setState(kSetManaged, pid, 1), kSuccess);
  EXPECT_EQ(kJetsam.control(kGetManaged, pid), (Answer{.result = 1}));
  EXPECT_EQ(kJetsam.setState(kSetManaged, pid, 0), kSuccess);
  EXPECT_EQ(kJetsam.control(kGetManaged, pid), kSuccess);
  EXPECT_EQ(kJetsam.setState(kSetFreezable, pid, 0), kSuccess);
  EXPECT_EQ(kJetsam.setState(kSetFreezable, pid, 1), kSuccess);
  for (const std::uint32_t command : {kElevate, kElevate, kLower}) {
    EXPECT_EQ(kJetsam.control(command, pid), kSuccess);
  }
}

TEST(PrivilegedMemorystatus, RefusesMissingProcesses) {
  Process process("vl-gone");
  const int pid = process.pid();
  EXPECT_EQ(kJetsam.setBand(pid, 100), kSuccess);
  process.end();
  platform::memorystatus_memlimit_properties limits{};
  for (const Answer& answer :
       {kJetsam.setBand(pid, 100), kJetsam.setLimits(pid, limits),
        kJetsam.control(kGetLimits, pid, 0, &limits, sizeof(limits)),
        kJetsam.setState(kSetManaged, pid, 1), kJetsam.setState(kSetFreezable, pid, 1),
        kJetsam.control(kGetManaged, pid), kJetsam.control(kElevate, pid)}) {
    EXPECT_EQ(answer, refusal(ESRCH));
  }
  EXPECT_EQ(kJetsam.entryOf(pid), std::nullopt);
}

TEST(PrivilegedMemorystatus, RefusesMeaninglessArguments) {
  const Process process("vl-invalid");
  const int pid = process.pid();
  platform::memorystatus_priority_properties properties{100, 0, 0};
  constexpr std::size_t kSize = sizeof(properties);
  platform::memorystatus_priority_entry entry{};
  const std::pair<const char*, Answer> answers[] = {
      {"pid 0", kJetsam.control(kSetPriority, 0, 0, &properties, kSize)},
      {"no buffer", kJetsam.control(kSetPriority, pid, 0, nullptr, kSize)},
      {"small buffer", kJetsam.control(kSetPriority, pid, 0, &properties, kSize - 1)},
      {"unknown flag", kJetsam.control(kSetPriority, pid, 2, &properties, kSize)},
      {"high band", kJetsam.setBand(pid, 999)},
      {"low band", kJetsam.setBand(pid, -3)},
      {"unknown command", kJetsam.control(999, pid)},
      {"large buffer", kJetsam.control(kGetManaged, pid, 0, nullptr, 65537)},
      {"small list", kJetsam.control(kGetPriorityList, 0, 0, &entry, sizeof(entry) - 1)},
  };
  for (const auto& [what, answer] : answers) EXPECT_EQ(answer, refusal(EINVAL)) << what;
}

// -1 is a nice value, and no failure.
TEST(PrivilegedPriorities, ReadBackNiceValues) {
  const Process process("vl-nice");
  for (const int nice : {15, 19, -1, -20}) {
    EXPECT_EQ(setPriority(PRIO_PROCESS, process.pid(), nice), kSuccess);
    EXPECT_EQ(getPriority(PRIO_PROCESS, process.pid()), (Answer{.result = nice}));
  }
}

TEST(Priorities, TellMissingProcessFromUnknownKind) {
  Process process("vl-missing");
  const int pid = process.pid();
  EXPECT_EQ(getPriority(99, pid), refusal(EINVAL));
  EXPECT_EQ(setPriority(99, pid, 0), refusal(EINVAL));
  EXPECT_EQ(getPriority(PRIO_PROCESS, INT32_MIN), refusal(EINVAL));
  process.end();
  EXPECT_EQ(getPriority(PRIO_PROCESS, pid), refusal(ESRCH));
  EXPECT_EQ(setPriority(PRIO_PROCESS, pid, 0), refusal(ESRCH));
}

TEST(PrivilegedPriorities, GiveRolesToAppsAlone) {
  const Process process("vl-role");
  EXPECT_EQ(
      setPriority(platform::PRIO_DARWIN_ROLE, process.pid(), platform::PRIO_DARWIN_ROLE_UI_FOCAL),
      refusal(ENOTSUP));
}

}  // namespace
}  // namespace vorlatch::conformance
