// The kernel's calls on Linux, beyond what the conformance suite holds every platform to.
#include <algorithm>
#include <filesystem>
#include <latch>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/linux/installation.h"
#include "platform/linux/jetsam_state_file.h"
#include "platform/memorystatus.h"
#include "tests/blackbox/processes.h"
#include "tests/conformance/answer.h"
#include "tests/linux/machine.h"

namespace vorlatch::platform {
namespace {

using conformance::Answer;
using conformance::ask;
constexpr Answer kDone = conformance::kSuccess;

Answer set(int which, pid_t who, int value) {
  return ask([&] { return platform::setpriority(which, static_cast<std::uint32_t>(who), value); });
}
Answer get(int which, pid_t who) {
  return ask([&] { return platform::getpriority(which, static_cast<std::uint32_t>(who)); });
}
constexpr int kNice = ::PRIO_PROCESS;
constexpr int kRole = PRIO_DARWIN_ROLE;

Answer setBand(pid_t pid, std::int32_t band) {
  memorystatus_priority_properties properties{band, 0, 0};
  return ask([&] {
    return memorystatus_control(MEMORYSTATUS_CMD_SET_PRIORITY_PROPERTIES, pid, 0, &properties,
                                sizeof(properties));
  });
}

// The band that the priority list shows; -999 for a process that it does not.
std::int32_t listedBand(pid_t pid) {
  std::vector<memorystatus_priority_entry> entries(2000);
  const int bytes = memorystatus_control(MEMORYSTATUS_CMD_GET_PRIORITY_LIST, 0, 0, entries.data(),
                                         entries.size() * sizeof(entries[0]));
  EXPECT_GT(bytes, 0);
  entries.resize(bytes < 0 ? 0 : static_cast<std::size_t>(bytes) / sizeof(entries[0]));
  const auto entry = std::ranges::find(entries, pid, &memorystatus_priority_entry::pid);
  return entry != entries.end() ? entry->priority : -999;
}

// The nice values of a process's threads, of which there must be as many as said; a sanitizer may
// add one of its own.
std::set<int> nicesOfThreads(pid_t pid, std::size_t least_count) {
  std::vector<int> nices;
  const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
  for (const auto& task : std::filesystem::directory_iterator(tasks)) {
    nices.push_back(niceOf(std::stoi(task.path().filename())));
  }
  EXPECT_GE(nices.size(), least_count);
  return {nices.begin(), nices.end()};
}

// Starts two threads that do the work and wait for ever; comes back when both wait.
template <typename Work>
void startTwoThreads(const Work& work) {
  static std::latch done(2);
  for (int i = 0; i < 2; ++i) {
    std::thread([&work] {
      work();
      done.count_down();
      while (true) pause();
    }).detach();
  }
  done.wait();
}

TEST(KernelCalls, GiveEveryThreadTheNiceValue) {
  const int own = niceOf(getpid());  // the tests may run under nice
  const Child child([] { startTwoThreads([] {}); });
  ASSERT_EQ(nicesOfThreads(child.pid(), 3), (std::set<int>{own}));
  const int higher = std::min(own + 7, 19);
  EXPECT_EQ(set(kNice, child.pid(), higher), kDone);
  EXPECT_EQ(nicesOfThreads(child.pid(), 3), (std::set<int>{higher}));
  EXPECT_EQ(set(kNice, child.pid(), 20), kDone);  // the kernel's highest is 19
  EXPECT_EQ(get(kNice, child.pid()), (Answer{19}));
}

TEST(KernelCalls, MeanTheCallersProcessByZero) {
  const Child child([] {
    startTwoThreads([] {
      EXPECT_EQ(set(kNice, 0, 3), kDone);
      EXPECT_EQ(get(kNice, 0), (Answer{3}));
    });
  });
  EXPECT_EQ(nicesOfThreads(child.pid(), 3), (std::set<int>{3}));
}

TEST(KernelCalls, RefuseWhatNamesNoProcess) {
  for (const Answer& answer : {get(kNice, INT32_MIN), set(kNice, -1, 1), get(kRole, INT32_MIN),
                               set(kRole, INT32_MIN, 1)}) {
    EXPECT_EQ(answer, (Answer{-1, EINVAL}));
  }
  for (const int which : {-1, 1, 2, 3, 5, 7}) {
    EXPECT_EQ(get(which, 0), (Answer{-1, EINVAL}));
    EXPECT_EQ(set(which, 0, 0), (Answer{-1, EINVAL}));
  }
}

TEST(KernelCalls, RefuseWhatNeedsPrivilege) {
  const Child child([] {
    EXPECT_TRUE(geteuid() != 0 || setuid(kNobody) == 0);
    const int own = niceOf(getpid());
    EXPECT_EQ(set(kNice, 0, own - 1), (Answer{-1, EACCES}));
    EXPECT_EQ(get(kNice, 0), (Answer{own}));
    EXPECT_EQ(setBand(getpid(), 30), (Answer{-1, EPERM}));
    EXPECT_EQ(set(kRole, 0, 1), (Answer{-1, EPERM}));
  });
}

TEST(PrivilegedKernelCalls, GiveRolesToBundledProgramsAlone) {
  const TemporaryDirectory directory;
  std::filesystem::create_directories(directory / "Notes.app/Helpers");
  for (const char* name : {"Notes.app/Notes", "Notes.app/Helpers/helper"}) {
    std::filesystem::copy_file(VORLATCH_IDLER, directory / name);
  }
  const ChildProcess app(directory / "Notes.app/Notes");
  const ChildProcess helper(directory / "Notes.app/Helpers/helper");
  EXPECT_EQ(set(kRole, app.pid(), PRIO_DARWIN_ROLE_UI_FOCAL), kDone);
  EXPECT_EQ(get(kRole, app.pid()), (Answer{1}));
  EXPECT_EQ(set(kRole, app.pid(), 7), (Answer{-1, EINVAL}));
  EXPECT_EQ(set(kRole, helper.pid(), PRIO_DARWIN_ROLE_UI_FOCAL), (Answer{-1, ENOTSUP}));
  EXPECT_EQ(get(kRole, helper.pid()), (Answer{0}));
  EXPECT_EQ(set(kRole, 0, PRIO_DARWIN_ROLE_UI_FOCAL), (Answer{-1, ENOTSUP}));
}

TEST(PrivilegedKernelCalls, KnowLiveProcessesAlone) {
  const Child child;
  EXPECT_EQ(set(kNice, child.pid(), -21), kDone);
  EXPECT_EQ(get(kNice, child.pid()), (Answer{-20}));
  EXPECT_EQ(listedBand(child.pid()), 180);
  EXPECT_EQ(setBand(child.pid(), 30), kDone);
  EXPECT_EQ(listedBand(child.pid()), 30);
  EXPECT_EQ(listedBand(1), -999);
  memorystatus_memlimit_properties limits{};
  EXPECT_EQ(memorystatus_control(MEMORYSTATUS_CMD_GET_MEMLIMIT_PROPERTIES, child.pid(), 0, &limits,
                                 sizeof(limits)),
            0);
  EXPECT_EQ(limits.memlimit_active, 2048);  // the system's
  EXPECT_EQ(limits.memlimit_inactive, 2048);

  child.kill();
  EXPECT_EQ(listedBand(child.pid()), -999);
  for (const Answer& answer :
       {setBand(child.pid(), 30), get(kRole, child.pid()), set(kRole, child.pid(), 1)})
    EXPECT_EQ(answer, (Answer{-1, ESRCH}));
}

TEST(PrivilegedKernelCalls, ShareStateWithinTheRoot) {
  const auto is_kept = [](pid_t pid) {
    const auto table = decodeJetsamTable(tests::readAll(runtimePath("jetsam.state")), bootId());
    return table && table->records.contains(pid);
  };
  Child target;
  const Child writer([&target] { EXPECT_EQ(setBand(target.pid(), 40), kDone); });
  EXPECT_EQ(listedBand(target.pid()), 40);
  writer.kill();
  const Child reader([&target] {
    EXPECT_EQ(listedBand(target.pid()), 40);
    EXPECT_EQ(setBand(target.pid(), 50), kDone);
  });
  EXPECT_EQ(listedBand(target.pid()), 50);
  EXPECT_TRUE(is_kept(target.pid()));

  // The next change of the state forgets who has gone.
  target.end();
  EXPECT_EQ(setBand(reader.pid(), 30), kDone);
  EXPECT_FALSE(is_kept(target.pid()));
  EXPECT_TRUE(is_kept(reader.pid()));
}

}  // namespace
}  // namespace vorlatch::platform
