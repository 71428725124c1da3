#include "platform/memorystatus.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include <gtest/gtest.h>

#include "tests/conformance/driven_process.h"

namespace vorlatch::conformance {
namespace {

using platform::memorystatus_memlimit_properties;
using platform::memorystatus_priority_entry;
using platform::memorystatus_priority_properties;

constexpr std::uint32_t kSetPriority = platform::MEMORYSTATUS_CMD_SET_PRIORITY_PROPERTIES;
constexpr std::uint32_t kGetList = platform::MEMORYSTATUS_CMD_GET_PRIORITY_LIST;
constexpr std::uint32_t kSetManaged = platform::MEMORYSTATUS_CMD_SET_PROCESS_IS_MANAGED;
constexpr std::uint32_t kSetFreezable = platform::MEMORYSTATUS_CMD_SET_PROCESS_IS_FREEZABLE;
constexpr std::uint32_t kFatal = platform::MEMORYSTATUS_MEMLIMIT_ATTR_FATAL;
constexpr std::uint32_t kAssertionState = 0x40;

Answer control(std::uint32_t command, int pid, std::uint32_t flags = 0, void* buffer = nullptr,
               std::size_t size = 0) {
  return ask([&] { return platform::memorystatus_control(command, pid, flags, buffer, size); });
}

Answer setBand(int pid, int band, std::uint64_t user_data = 0, std::uint32_t flags = 0) {
  memorystatus_priority_properties properties{band, 0, user_data};
  return control(kSetPriority, pid, flags, &properties, sizeof(properties));
}

Answer setLimits(int pid, memorystatus_memlimit_properties limits) {
  return control(platform::MEMORYSTATUS_CMD_SET_MEMLIMIT_PROPERTIES, pid, 0, &limits,
                 sizeof(limits));
}

Answer getLimits(int pid, memorystatus_memlimit_properties& limits) {
  return control(platform::MEMORYSTATUS_CMD_GET_MEMLIMIT_PROPERTIES, pid, 0, &limits,
                 sizeof(limits));
}

Answer setState(std::uint32_t command, int pid, std::uint32_t state) {
  return control(command, pid, 0, &state, sizeof(state));
}

Answer isManaged(int pid) {
  return control(platform::MEMORYSTATUS_CMD_GET_PROCESS_IS_MANAGED, pid);
}

Answer elevate(int pid) {
  return control(platform::MEMORYSTATUS_CMD_ELEVATED_INACTIVEJETSAMPRIORITY_ENABLE, pid);
}

std::vector<memorystatus_priority_entry> priorityList() {
  // Room for processes that start in between, of which a machine may have some.
  const int size = control(kGetList, 0).result;
  std::vector<memorystatus_priority_entry> entries(
      static_cast<std::size_t>(std::max(size, 0)) / sizeof(memorystatus_priority_entry) + 100);
  const int written =
      control(kGetList, 0, 0, entries.data(), entries.size() * sizeof(entries[0])).result;
  entries.resize(static_cast<std::size_t>(std::max(written, 0)) / sizeof(entries[0]));
  return entries;
}

// Band, user data, limit and state of the entry.
using Fields = std::array<std::uint64_t, 4>;

std::optional<Fields> entryOf(int pid) {
  for (const auto& entry : priorityList()) {
    if (entry.pid != pid) continue;
    return Fields{static_cast<std::uint64_t>(entry.priority), entry.user_data,
                  static_cast<std::uint64_t>(entry.limit), entry.state};
  }
  return std::nullopt;
}

std::vector<int> listedAmong(const std::vector<int>& pids) {
  std::vector<int> listed;
  for (const auto& entry : priorityList()) {
    if (std::find(pids.begin(), pids.end(), entry.pid) != pids.end()) listed.push_back(entry.pid);
  }
  return listed;
}

TEST(PrivilegedMemorystatus, ReadsBackBandAndLimits) {
  const Process process("vl-band");
  const int pid = process.pid();
  EXPECT_EQ(setBand(pid, 100, 7), kSuccess);
  EXPECT_EQ(setLimits(pid, {60, 0, 60, 0}), kSuccess);
  EXPECT_EQ(entryOf(pid), (Fields{100, 7, 60, 0}));
  EXPECT_EQ(setBand(pid, 120, 9, platform::MEMORYSTATUS_SET_PRIORITY_ASSERTION), kSuccess);
  EXPECT_EQ(entryOf(pid), (Fields{120, 9, 60, kAssertionState}));
  EXPECT_EQ(setBand(pid, -1), kSuccess);
  EXPECT_EQ(entryOf(pid).value_or(Fields{})[0], 180U);

  EXPECT_EQ(setLimits(pid, {60, 0, 40, kFatal}), kSuccess);
  memorystatus_memlimit_properties read{};
  EXPECT_EQ(getLimits(pid, read), kSuccess);
  EXPECT_EQ(read.memlimit_active, 60);
  EXPECT_EQ(read.memlimit_active_attr, 0U);
  EXPECT_EQ(read.memlimit_inactive, 40);
  EXPECT_EQ(read.memlimit_inactive_attr, kFatal);
}

TEST(PrivilegedMemorystatus, ListsByBandThenArrival) {
  const Process a("vl-a");
  const Process b("vl-b");
  const Process c("vl-c");
  const std::vector<int> all = {a.pid(), b.pid(), c.pid()};
  EXPECT_EQ(setBand(a.pid(), 100), kSuccess);
  EXPECT_EQ(setBand(b.pid(), 100), kSuccess);
  EXPECT_EQ(setBand(c.pid(), 50), kSuccess);
  EXPECT_EQ(listedAmong(all), (std::vector{c.pid(), a.pid(), b.pid()}));
  EXPECT_EQ(setBand(a.pid(), 100), kSuccess);
  EXPECT_EQ(listedAmong(all), (std::vector{c.pid(), b.pid(), a.pid()}));
}

TEST(PrivilegedMemorystatus, TakesStates) {
  const Process process("vl-states");
  const int pid = process.pid();
  EXPECT_EQ(isManaged(pid), kSuccess);
  EXPECT_EQ(setState(kSetManaged, pid, 1), kSuccess);
  EXPECT_EQ(isManaged(pid), (Answer{1, kUntouchedErrno}));
  EXPECT_EQ(setState(kSetManaged, pid, 0), kSuccess);
  EXPECT_EQ(isManaged(pid), kSuccess);
  EXPECT_EQ(setState(kSetFreezable, pid, 0), kSuccess);
  EXPECT_EQ(setState(kSetFreezable, pid, 1), kSuccess);
  EXPECT_EQ(elevate(pid), kSuccess);
  EXPECT_EQ(elevate(pid), kSuccess);
  EXPECT_EQ(control(platform::MEMORYSTATUS_CMD_ELEVATED_INACTIVEJETSAMPRIORITY_DISABLE, pid),
            kSuccess);
}

TEST(PrivilegedMemorystatus, RefusesMissingProcesses) {
  Process process("vl-gone");
  const int pid = process.pid();
  EXPECT_EQ(setBand(pid, 100), kSuccess);
  process.end();
  memorystatus_memlimit_properties limits{};
  for (const Answer& answer : {setBand(pid, 100), setLimits(pid, limits), getLimits(pid, limits),
                               setState(kSetManaged, pid, 1), setState(kSetFreezable, pid, 1),
                               isManaged(pid), elevate(pid)}) {
    EXPECT_EQ(answer, (Answer{-1, ESRCH}));
  }
  EXPECT_EQ(entryOf(pid), std::nullopt);
}

TEST(PrivilegedMemorystatus, RefusesMeaninglessArguments) {
  const Process process("vl-invalid");
  const int pid = process.pid();
  memorystatus_priority_properties properties{100, 0, 0};
  constexpr std::size_t kSize = sizeof(properties);
  memorystatus_priority_entry entry{};
  const std::pair<const char*, Answer> answers[] = {
      {"pid 0", control(kSetPriority, 0, 0, &properties, kSize)},
      {"no buffer", control(kSetPriority, pid, 0, nullptr, kSize)},
      {"small buffer", control(kSetPriority, pid, 0, &properties, kSize - 1)},
      {"unknown flag", control(kSetPriority, pid, 2, &properties, kSize)},
      {"high band", setBand(pid, 999)},
      {"low band", setBand(pid, -3)},
      {"unknown command", control(999, pid)},
      {"large buffer",
       control(platform::MEMORYSTATUS_CMD_GET_PROCESS_IS_MANAGED, pid, 0, nullptr, 65537)},
      {"small list", control(kGetList, 0, 0, &entry, sizeof(entry) - 1)},
  };
  for (const auto& [what, answer] : answers) EXPECT_EQ(answer, (Answer{-1, EINVAL})) << what;
}

Answer setPriority(int which, std::uint32_t who, int value) {
  return ask([&] { return platform::setpriority(which, who, value); });
}

Answer getPriority(int which, std::uint32_t who) {
  return ask([&] { return platform::getpriority(which, who); });
}

void expectNiceReadBack(const Process& process, int nice) {
  const auto who = static_cast<std::uint32_t>(process.pid());
  EXPECT_EQ(setPriority(PRIO_PROCESS, who, nice), kSuccess);
  EXPECT_EQ(getPriority(PRIO_PROCESS, who), (Answer{nice, kUntouchedErrno}));
}

TEST(Priorities, ReadBackNiceValues) {
  const Process process("vl-nice");
  for (const int nice : {15, 19}) expectNiceReadBack(process, nice);
}

TEST(Priorities, TellMissingProcessFromUnknownKind) {
  Process process("vl-missing");
  const auto pid = static_cast<std::uint32_t>(process.pid());
  EXPECT_EQ(getPriority(99, pid), (Answer{-1, EINVAL}));
  EXPECT_EQ(setPriority(99, pid, 0), (Answer{-1, EINVAL}));
  EXPECT_EQ(getPriority(PRIO_PROCESS, 0x80000000U), (Answer{-1, EINVAL}));
  process.end();
  EXPECT_EQ(getPriority(PRIO_PROCESS, pid), (Answer{-1, ESRCH}));
  EXPECT_EQ(setPriority(PRIO_PROCESS, pid, 0), (Answer{-1, ESRCH}));
}

TEST(PrivilegedPriorities, TellMinusOneFromFailure) {
  const Process process("vl-minus");
  for (const int nice : {-1, -20}) expectNiceReadBack(process, nice);
}

TEST(PrivilegedPriorities, GiveRolesToAppsAlone) {
  const Process process("vl-role");
  EXPECT_EQ(setPriority(platform::PRIO_DARWIN_ROLE, static_cast<std::uint32_t>(process.pid()),
                        platform::PRIO_DARWIN_ROLE_UI_FOCAL),
            (Answer{-1, ENOTSUP}));
}

}  // namespace
}  // namespace vorlatch::conformance
