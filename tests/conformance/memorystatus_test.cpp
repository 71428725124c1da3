#include "platform/memorystatus.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <vector>

#include <gtest/gtest.h>

#include "tests/conformance/driver.h"

namespace {

using vorlatch::conformance::endProcess;
using vorlatch::conformance::executablePath;
using vorlatch::conformance::startProcess;
namespace platform = vorlatch::platform;  // the system has calls of the same names

// A call's result and, when that is -1, its errno.
struct Answer {
  int result;
  int error;
  friend bool operator==(const Answer&, const Answer&) = default;
};

Answer control(std::uint32_t command, int pid, std::uint32_t flags, void* buffer,
               std::size_t size) {
  errno = 0;
  const int result = platform::memorystatus_control(command, pid, flags, buffer, size);
  return {result, result == -1 ? errno : 0};
}

Answer setBand(int pid, int band, std::uint64_t user_data = 0, std::uint32_t flags = 0) {
  platform::memorystatus_priority_properties properties{band, 0, user_data};
  return control(platform::MEMORYSTATUS_CMD_SET_PRIORITY_PROPERTIES, pid, flags, &properties,
                 sizeof(properties));
}

Answer setState(std::uint32_t command, int pid, std::uint32_t state) {
  return control(command, pid, 0, &state, sizeof(state));
}

Answer isManaged(int pid) {
  return control(platform::MEMORYSTATUS_CMD_GET_PROCESS_IS_MANAGED, pid, 0, nullptr, 0);
}

std::vector<platform::memorystatus_priority_entry> priorityList() {
  const int size = platform::memorystatus_control(platform::MEMORYSTATUS_CMD_GET_PRIORITY_LIST, 0,
                                                  0, nullptr, 0);
  // Room for processes that start in between, of which a machine may have some.
  std::vector<platform::memorystatus_priority_entry> entries(
      static_cast<std::size_t>(std::max(size, 0)) / sizeof(platform::memorystatus_priority_entry) +
      100);
  const int written = platform::memorystatus_control(
      platform::MEMORYSTATUS_CMD_GET_PRIORITY_LIST, 0, 0, entries.data(),
      entries.size() * sizeof(platform::memorystatus_priority_entry));
  entries.resize(static_cast<std::size_t>(std::max(written, 0)) /
                 sizeof(platform::memorystatus_priority_entry));
  return entries;
}

using Fields = std::array<std::uint64_t, 5>;

Fields fields(int pid, int band, std::uint64_t user_data, int limit_mb, std::uint32_t state) {
  return {static_cast<std::uint64_t>(pid), static_cast<std::uint64_t>(band), user_data,
          static_cast<std::uint64_t>(limit_mb), state};
}

std::optional<Fields> entryOf(int pid) {
  for (const auto& entry : priorityList()) {
    if (entry.pid != pid) continue;
    return fields(entry.pid, entry.priority, entry.user_data, entry.limit, entry.state);
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

// A process that runs as long as the object lives.
class Process {
 public:
  explicit Process(const std::string& name) : pid_(startProcess(executablePath(name))) {}
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  ~Process() { end(); }
  void end() {
    if (!ended_ && pid_ > 0) endProcess(pid_);
    ended_ = true;
  }
  [[nodiscard]] int pid() const { return pid_; }

 private:
  const int pid_;
  bool ended_ = false;
};

constexpr Answer kSuccess{0, 0};
constexpr std::uint32_t kAssertionState = 0x40;

TEST(PrivilegedMemorystatus, ABandAndLimitsAreReadBackThroughTheList) {
  const Process process("vl-band");
  const int pid = process.pid();
  ASSERT_GT(pid, 0);
  EXPECT_EQ(setBand(pid, 100, 7), kSuccess);
  platform::memorystatus_memlimit_properties limits{60, 0, 60, 0};
  EXPECT_EQ(
      control(platform::MEMORYSTATUS_CMD_SET_MEMLIMIT_PROPERTIES, pid, 0, &limits, sizeof(limits)),
      kSuccess);
  EXPECT_EQ(entryOf(pid), fields(pid, 100, 7, 60, 0));
  EXPECT_EQ(setBand(pid, 120, 9, platform::MEMORYSTATUS_SET_PRIORITY_ASSERTION), kSuccess);
  EXPECT_EQ(entryOf(pid), fields(pid, 120, 9, 60, kAssertionState));
}

TEST(PrivilegedMemorystatus, ADefaultBandIsMeantByMinusOne) {
  const Process process("vl-default");
  ASSERT_GT(process.pid(), 0);
  EXPECT_EQ(setBand(process.pid(), 30), kSuccess);
  EXPECT_EQ(entryOf(process.pid()).value_or(Fields{})[1], 30U);
  EXPECT_EQ(setBand(process.pid(), -1), kSuccess);
  EXPECT_EQ(entryOf(process.pid()).value_or(Fields{})[1], 180U);
}

TEST(PrivilegedMemorystatus, LimitsAreReadBackWithTheirAttributes) {
  const Process process("vl-limits");
  const int pid = process.pid();
  ASSERT_GT(pid, 0);
  platform::memorystatus_memlimit_properties limits{60, 0, 40,
                                                    platform::MEMORYSTATUS_MEMLIMIT_ATTR_FATAL};
  EXPECT_EQ(
      control(platform::MEMORYSTATUS_CMD_SET_MEMLIMIT_PROPERTIES, pid, 0, &limits, sizeof(limits)),
      kSuccess);
  platform::memorystatus_memlimit_properties read{};
  EXPECT_EQ(
      control(platform::MEMORYSTATUS_CMD_GET_MEMLIMIT_PROPERTIES, pid, 0, &read, sizeof(read)),
      kSuccess);
  EXPECT_EQ(read.memlimit_active, 60);
  EXPECT_EQ(read.memlimit_active_attr, 0U);
  EXPECT_EQ(read.memlimit_inactive, 40);
  EXPECT_EQ(read.memlimit_inactive_attr, platform::MEMORYSTATUS_MEMLIMIT_ATTR_FATAL);
}

TEST(PrivilegedMemorystatus, TheListGoesByBandAndThenByArrival) {
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

TEST(PrivilegedMemorystatus, ManagedIsOffUntilItIsSet) {
  const Process process("vl-managed");
  const int pid = process.pid();
  ASSERT_GT(pid, 0);
  EXPECT_EQ(isManaged(pid), (Answer{0, 0}));
  EXPECT_EQ(setState(platform::MEMORYSTATUS_CMD_SET_PROCESS_IS_MANAGED, pid, 1), kSuccess);
  EXPECT_EQ(isManaged(pid), (Answer{1, 0}));
  EXPECT_EQ(setState(platform::MEMORYSTATUS_CMD_SET_PROCESS_IS_MANAGED, pid, 0), kSuccess);
  EXPECT_EQ(isManaged(pid), (Answer{0, 0}));
}

TEST(PrivilegedMemorystatus, FreezingAndElevationAreAccepted) {
  const Process process("vl-freeze");
  const int pid = process.pid();
  ASSERT_GT(pid, 0);
  EXPECT_EQ(setState(platform::MEMORYSTATUS_CMD_SET_PROCESS_IS_FREEZABLE, pid, 0), kSuccess);
  EXPECT_EQ(setState(platform::MEMORYSTATUS_CMD_SET_PROCESS_IS_FREEZABLE, pid, 1), kSuccess);
  for (const std::uint32_t command :
       {platform::MEMORYSTATUS_CMD_ELEVATED_INACTIVEJETSAMPRIORITY_ENABLE,
        platform::MEMORYSTATUS_CMD_ELEVATED_INACTIVEJETSAMPRIORITY_ENABLE,
        platform::MEMORYSTATUS_CMD_ELEVATED_INACTIVEJETSAMPRIORITY_DISABLE}) {
    EXPECT_EQ(control(command, pid, 0, nullptr, 0), kSuccess);
  }
}

TEST(PrivilegedMemorystatus, AMissingProcessIsNotFound) {
  Process process("vl-gone");
  const int pid = process.pid();
  ASSERT_GT(pid, 0);
  EXPECT_EQ(setBand(pid, 100), kSuccess);
  process.end();
  const Answer not_found{-1, ESRCH};
  platform::memorystatus_memlimit_properties limits{};
  EXPECT_EQ(setBand(pid, 100), not_found);
  EXPECT_EQ(
      control(platform::MEMORYSTATUS_CMD_SET_MEMLIMIT_PROPERTIES, pid, 0, &limits, sizeof(limits)),
      not_found);
  EXPECT_EQ(
      control(platform::MEMORYSTATUS_CMD_GET_MEMLIMIT_PROPERTIES, pid, 0, &limits, sizeof(limits)),
      not_found);
  EXPECT_EQ(setState(platform::MEMORYSTATUS_CMD_SET_PROCESS_IS_MANAGED, pid, 1), not_found);
  EXPECT_EQ(setState(platform::MEMORYSTATUS_CMD_SET_PROCESS_IS_FREEZABLE, pid, 1), not_found);
  EXPECT_EQ(isManaged(pid), not_found);
  EXPECT_EQ(control(platform::MEMORYSTATUS_CMD_ELEVATED_INACTIVEJETSAMPRIORITY_ENABLE, pid, 0,
                    nullptr, 0),
            not_found);
  EXPECT_EQ(entryOf(pid), std::nullopt);
}

TEST(PrivilegedMemorystatus, ArgumentsThatMeanNothingAreInvalid) {
  const Process process("vl-invalid");
  const int pid = process.pid();
  ASSERT_GT(pid, 0);
  const Answer invalid{-1, EINVAL};
  platform::memorystatus_priority_properties properties{100, 0, 0};
  const auto set = [&](int target, std::uint32_t flags, void* buffer, std::size_t size) {
    return control(platform::MEMORYSTATUS_CMD_SET_PRIORITY_PROPERTIES, target, flags, buffer, size);
  };
  EXPECT_EQ(set(0, 0, &properties, sizeof(properties)), invalid);
  EXPECT_EQ(set(pid, 0, nullptr, sizeof(properties)), invalid);
  EXPECT_EQ(set(pid, 0, &properties, sizeof(properties) - 1), invalid);
  EXPECT_EQ(set(pid, 2, &properties, sizeof(properties)), invalid);
  EXPECT_EQ(setBand(pid, 999), invalid);
  EXPECT_EQ(setBand(pid, -3), invalid);
  EXPECT_EQ(control(999, pid, 0, nullptr, 0), invalid);
  EXPECT_EQ(control(platform::MEMORYSTATUS_CMD_GET_PROCESS_IS_MANAGED, pid, 0, nullptr, 65537),
            invalid);
  platform::memorystatus_priority_entry entry{};
  EXPECT_EQ(control(platform::MEMORYSTATUS_CMD_GET_PRIORITY_LIST, 0, 0, &entry, sizeof(entry) - 1),
            invalid);
}

TEST(Priorities, ANiceValueIsReadBack) {
  const Process process("vl-nice");
  ASSERT_GT(process.pid(), 0);
  const auto pid = static_cast<std::uint32_t>(process.pid());
  EXPECT_EQ(platform::setpriority(PRIO_PROCESS, pid, 15), 0);
  EXPECT_EQ(platform::getpriority(PRIO_PROCESS, pid), 15);
  EXPECT_EQ(platform::setpriority(PRIO_PROCESS, pid, 19), 0);
  EXPECT_EQ(platform::getpriority(PRIO_PROCESS, pid), 19);
}

TEST(Priorities, AMissingProcessAndAnUnknownKindAreToldApart) {
  Process process("vl-missing");
  ASSERT_GT(process.pid(), 0);
  const auto pid = static_cast<std::uint32_t>(process.pid());
  const auto answer = [](auto call) {
    errno = 0;
    const int result = call();
    return Answer{result, result == -1 ? errno : 0};
  };
  EXPECT_EQ(answer([&] { return platform::getpriority(99, pid); }), (Answer{-1, EINVAL}));
  EXPECT_EQ(answer([&] { return platform::setpriority(99, pid, 0); }), (Answer{-1, EINVAL}));
  EXPECT_EQ(answer([&] { return platform::getpriority(PRIO_PROCESS, 0x80000000U); }),
            (Answer{-1, EINVAL}));
  process.end();
  EXPECT_EQ(answer([&] { return platform::getpriority(PRIO_PROCESS, pid); }), (Answer{-1, ESRCH}));
  EXPECT_EQ(answer([&] { return platform::setpriority(PRIO_PROCESS, pid, 0); }),
            (Answer{-1, ESRCH}));
}

TEST(PrivilegedPriorities, MinusOneIsANiceValueAndNoFailure) {
  const Process process("vl-minus");
  ASSERT_GT(process.pid(), 0);
  const auto pid = static_cast<std::uint32_t>(process.pid());
  EXPECT_EQ(platform::setpriority(PRIO_PROCESS, pid, -1), 0);
  errno = 0;
  EXPECT_EQ(platform::getpriority(PRIO_PROCESS, pid), -1);
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(platform::setpriority(PRIO_PROCESS, pid, -20), 0);
  EXPECT_EQ(platform::getpriority(PRIO_PROCESS, pid), -20);
}

TEST(PrivilegedPriorities, ARoleIsForAppsAlone) {
  const Process process("vl-role");
  ASSERT_GT(process.pid(), 0);
  errno = 0;
  EXPECT_EQ(
      platform::setpriority(platform::PRIO_DARWIN_ROLE, static_cast<std::uint32_t>(process.pid()),
                            platform::PRIO_DARWIN_ROLE_UI_FOCAL),
      -1);
  EXPECT_EQ(errno, ENOTSUP);
}

}  // namespace
