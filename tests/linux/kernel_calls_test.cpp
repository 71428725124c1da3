#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/linux/installation.h"
#include "platform/linux/jetsam_state_file.h"
#include "platform/memorystatus.h"
#include "tests/linux/machine.h"
#include "tests/support/files.h"

namespace vorlatch::platform {
namespace {

constexpr int kUntouchedErrno = 1234;

struct Answer {
  int result;
  int error;
  friend bool operator==(const Answer&, const Answer&) = default;
};

std::ostream& operator<<(std::ostream& out, const Answer& answer) {
  return out << '{' << answer.result << ", errno " << answer.error << '}';
}

constexpr Answer kDone{0, kUntouchedErrno};

template <typename Call>
Answer ask(const Call& call) {
  errno = kUntouchedErrno;
  const int result = call();
  return {result, errno};
}

Answer setNice(std::uint32_t who, int value) {
  return ask([&] { return platform::setpriority(::PRIO_PROCESS, who, value); });
}

Answer nice(std::uint32_t who) {
  return ask([&] { return platform::getpriority(::PRIO_PROCESS, who); });
}

Answer setRole(std::uint32_t who, int role) {
  return ask([&] { return platform::setpriority(PRIO_DARWIN_ROLE, who, role); });
}

Answer role(std::uint32_t who) {
  return ask([&] { return platform::getpriority(PRIO_DARWIN_ROLE, who); });
}

Answer setBand(pid_t pid, std::int32_t band) {
  memorystatus_priority_properties properties{band, 0, 0};
  return ask([&] {
    return memorystatus_control(MEMORYSTATUS_CMD_SET_PRIORITY_PROPERTIES, pid, 0, &properties,
                                sizeof(properties));
  });
}

// The band that the priority list shows; -999 for a process that it does not.
std::int32_t listedBand(pid_t pid) {
  const int size = memorystatus_control(MEMORYSTATUS_CMD_GET_PRIORITY_LIST, 0, 0, nullptr, 0);
  std::vector<memorystatus_priority_entry> entries(static_cast<std::size_t>(size) / 24 + 64);
  const int bytes = memorystatus_control(MEMORYSTATUS_CMD_GET_PRIORITY_LIST, 0, 0, entries.data(),
                                         entries.size() * 24);
  entries.resize(bytes < 0 ? 0 : static_cast<std::size_t>(bytes) / 24);
  for (const memorystatus_priority_entry& entry : entries) {
    if (entry.pid == pid) return entry.priority;
  }
  return -999;
}

std::uint32_t idOf(const Child& child) {
  return static_cast<std::uint32_t>(child.pid());
}

// The nice values of a process's threads, of which there must be as many as said; a sanitizer may
// add one of its own.
std::set<int> nicesOfThreads(pid_t pid, std::size_t least_count) {
  std::vector<int> nices;
  const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
  for (const auto& task : std::filesystem::directory_iterator(tasks)) {
    const int thread = std::stoi(task.path().filename());
    nices.push_back(::getpriority(::PRIO_PROCESS, static_cast<id_t>(thread)));
  }
  EXPECT_GE(nices.size(), least_count);
  return {nices.begin(), nices.end()};
}

// Starts threads that do the work and wait for ever; comes back when all of them wait.
void startThreads(
    int count, const std::function<void()>& work = [] {}) {
  static std::mutex mutex;
  static std::condition_variable changed;
  static int running = 0;
  for (int i = 0; i < count; ++i) {
    std::thread([&work] {
      work();
      {
        const std::lock_guard lock(mutex);
        ++running;
      }
      changed.notify_one();
      while (true) pause();
    }).detach();
  }
  std::unique_lock lock(mutex);
  changed.wait(lock, [count] { return running == count; });
}

// The tests themselves may run under nice.
int ownNice() {
  return ::getpriority(::PRIO_PROCESS, 0);
}

TEST(KernelCalls, GivesEveryThreadOfAProcessItsNiceValue) {
  const Child child([] { startThreads(3); });
  ASSERT_EQ(nicesOfThreads(child.pid(), 4), (std::set<int>{ownNice()}));
  const int higher = std::min(ownNice() + 7, 19);
  EXPECT_EQ(setNice(idOf(child), higher), kDone);
  EXPECT_EQ(nice(idOf(child)), (Answer{higher, kUntouchedErrno}));
  EXPECT_EQ(nicesOfThreads(child.pid(), 4), (std::set<int>{higher}));
}

TEST(KernelCalls, ClampsTheNiceValueAsTheKernelDoes) {
  const Child child;
  EXPECT_EQ(setNice(idOf(child), 20), kDone);
  EXPECT_EQ(nice(idOf(child)), (Answer{19, kUntouchedErrno}));
}

TEST(KernelCalls, MeansTheCallersWholeProcessByZero) {
  const Child child([] {
    startThreads(2, [] {
      EXPECT_EQ(setNice(0, 3), kDone);
      EXPECT_EQ(nice(0), (Answer{3, kUntouchedErrno}));
    });
    if (::testing::Test::HasFailure()) _exit(1);
  });
  EXPECT_EQ(nicesOfThreads(child.pid(), 3), (std::set<int>{3}));
}

TEST(KernelCalls, RefusesWhatNamesNoProcess) {
  Child child;
  child.end();
  EXPECT_EQ(nice(idOf(child)), (Answer{-1, ESRCH}));
  EXPECT_EQ(setNice(idOf(child), 1), (Answer{-1, ESRCH}));
  EXPECT_EQ(nice(0x80000000U), (Answer{-1, EINVAL}));
  EXPECT_EQ(setNice(0xffffffffU, 1), (Answer{-1, EINVAL}));
  EXPECT_EQ(role(0x80000000U), (Answer{-1, EINVAL}));
  EXPECT_EQ(setRole(0x80000000U, 1), (Answer{-1, EINVAL}));
  for (const int which : {-1, 1, 2, 3, 5, 7}) {
    EXPECT_EQ(ask([which] { return platform::getpriority(which, 0); }), (Answer{-1, EINVAL}));
    EXPECT_EQ(ask([which] { return platform::setpriority(which, 0, 0); }), (Answer{-1, EINVAL}));
  }
}

TEST(KernelCalls, LowersANiceValueForNobodyWithoutPrivilege) {
  const Child child([] {
    if (geteuid() == 0 && setuid(65534) != 0) _exit(1);
    EXPECT_EQ(setNice(0, ownNice() - 1), (Answer{-1, EACCES}));
    EXPECT_EQ(nice(0), (Answer{ownNice(), kUntouchedErrno}));
    if (::testing::Test::HasFailure()) _exit(1);
  });
}

TEST(KernelCalls, RefusesMemoryStatusWithoutPrivilege) {
  const Child child([] {
    if (geteuid() == 0 && setuid(65534) != 0) _exit(1);
    EXPECT_EQ(setBand(getpid(), 30), (Answer{-1, EPERM}));
    EXPECT_EQ(setRole(0, 1), (Answer{-1, EPERM}));
    if (::testing::Test::HasFailure()) _exit(1);
  });
}

TEST(PrivilegedKernelCalls, TellsAValueOfMinusOneFromAFailure) {
  const Child child;
  EXPECT_EQ(setNice(idOf(child), -1), kDone);
  EXPECT_EQ(nice(idOf(child)), (Answer{-1, kUntouchedErrno}));
  EXPECT_EQ(setNice(idOf(child), -21), kDone);
  EXPECT_EQ(nice(idOf(child)), (Answer{-20, kUntouchedErrno}));
}

TEST(PrivilegedKernelCalls, GivesDarwinRolesToProgramsInAppBundlesAlone) {
  const TemporaryDirectory directory;
  std::filesystem::create_directories(directory / "Notes.app/Helpers");
  for (const char* name : {"Notes.app/Notes", "Notes.app/Helpers/helper"}) {
    std::filesystem::copy_file("/bin/cat", directory / name);
  }
  const Child app(Program{directory / "Notes.app/Notes"});
  const Child helper(Program{directory / "Notes.app/Helpers/helper"});
  EXPECT_EQ(setRole(idOf(app), PRIO_DARWIN_ROLE_UI_FOCAL), kDone);
  EXPECT_EQ(role(idOf(app)), (Answer{1, kUntouchedErrno}));
  EXPECT_EQ(setRole(idOf(app), 7), (Answer{-1, EINVAL}));
  EXPECT_EQ(setRole(idOf(helper), PRIO_DARWIN_ROLE_UI_FOCAL), (Answer{-1, ENOTSUP}));
  EXPECT_EQ(role(idOf(helper)), (Answer{0, kUntouchedErrno}));
  EXPECT_EQ(setRole(0, PRIO_DARWIN_ROLE_UI_FOCAL), (Answer{-1, ENOTSUP}));
}

TEST(PrivilegedKernelCalls, RefusesTheRolesOfTheDead) {
  Child child;
  child.kill();
  EXPECT_EQ(role(idOf(child)), (Answer{-1, ESRCH}));
  EXPECT_EQ(setRole(idOf(child), 1), (Answer{-1, ESRCH}));
}

TEST(PrivilegedKernelCalls, ListsTheBandsOfLiveProcessesAlone) {
  Child child;
  EXPECT_EQ(listedBand(child.pid()), 180);
  EXPECT_EQ(setBand(child.pid(), 30), kDone);
  EXPECT_EQ(listedBand(child.pid()), 30);
  EXPECT_EQ(listedBand(1), -999);
  child.kill();
  EXPECT_EQ(listedBand(child.pid()), -999);
  EXPECT_EQ(setBand(child.pid(), 30), (Answer{-1, ESRCH}));
}

TEST(PrivilegedKernelCalls, ReportsTheSystemsLimitWhereAProcessHasNone) {
  const Child child;
  memorystatus_memlimit_properties limits{};
  const Answer answer = ask([&] {
    return memorystatus_control(MEMORYSTATUS_CMD_GET_MEMLIMIT_PROPERTIES, child.pid(), 0, &limits,
                                sizeof(limits));
  });
  EXPECT_EQ(answer, kDone);
  EXPECT_EQ((std::vector<std::int32_t>{limits.memlimit_active, limits.memlimit_inactive}),
            (std::vector<std::int32_t>{2048, 2048}));
}

TEST(PrivilegedKernelCalls, ShareTheirStateWithEveryProgramOfTheRoot) {
  const Child target;
  Child writer([&target] {
    if (setBand(target.pid(), 40) != kDone) _exit(1);
  });
  EXPECT_EQ(listedBand(target.pid()), 40);
  writer.kill();
  EXPECT_EQ(listedBand(target.pid()), 40);
  const Child reader([&target] {
    if (listedBand(target.pid()) != 40 || setBand(target.pid(), 50) != kDone) _exit(1);
  });
  EXPECT_EQ(listedBand(target.pid()), 50);
}

TEST(PrivilegedKernelCalls, ForgetTheStateWithTheProcess) {
  const auto is_kept = [](pid_t pid) {
    std::string boot_id = tests::readAll("/proc/sys/kernel/random/boot_id");
    boot_id.resize(36);
    const auto table = decodeJetsamTable(tests::readAll(runtimePath("jetsam.state")), boot_id);
    return table && table->records.contains(pid);
  };
  Child gone;
  const Child lasting;
  ASSERT_EQ(setBand(gone.pid(), 30), kDone);
  EXPECT_TRUE(is_kept(gone.pid()));
  gone.end();
  ASSERT_EQ(setBand(lasting.pid(), 30), kDone);
  EXPECT_FALSE(is_kept(gone.pid()));
  EXPECT_TRUE(is_kept(lasting.pid()));
}

}  // namespace
}  // namespace vorlatch::platform
