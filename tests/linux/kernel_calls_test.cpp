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
#include "tests/conformance/calls.h"
#include "tests/conformance/driver.h"
#include "tests/linux/machine.h"

namespace vorlatch::conformance {
namespace {

using platform::PRIO_DARWIN_ROLE_UI_FOCAL;
constexpr int kNice = ::PRIO_PROCESS;
constexpr int kRole = platform::PRIO_DARWIN_ROLE;

// What the priority list says of a process in this band with the system's limit.
Entry inBand(pid_t pid, std::int64_t band) {
  return {pid, band, 0, 2048, 0};
}

int niceOf(pid_t pid) {
  return getPriority(kNice, pid).result;
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
void startTwoThreads(void (*work)()) {
  static std::latch done(2);
  for (int i = 0; i < 2; ++i) {
    std::thread([work] {
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
  EXPECT_EQ(setPriority(kNice, child.pid(), higher), kSuccess);
  EXPECT_EQ(nicesOfThreads(child.pid(), 3), (std::set<int>{higher}));
  EXPECT_EQ(setPriority(kNice, child.pid(), 20), kSuccess);  // the kernel's highest is 19
  EXPECT_EQ(getPriority(kNice, child.pid()), (Answer{.result = 19}));
}

TEST(KernelCalls, MeanTheCallersProcessByZero) {
  const Child child([] {
    startTwoThreads([] {
      EXPECT_EQ(setPriority(kNice, 0, 3), kSuccess);
      EXPECT_EQ(getPriority(kNice, 0), (Answer{.result = 3}));
    });
  });
  EXPECT_EQ(nicesOfThreads(child.pid(), 3), (std::set<int>{3}));
}

TEST(KernelCalls, RefuseWhatNamesNoProcess) {
  for (const Answer& answer : {getPriority(kNice, INT32_MIN), setPriority(kNice, -1, 1),
                               getPriority(kRole, INT32_MIN), setPriority(kRole, INT32_MIN, 1)}) {
    EXPECT_EQ(answer, refusal(EINVAL));
  }
}

TEST(KernelCalls, RefuseWhatNeedsPrivilege) {
  const Child child([] {
    EXPECT_TRUE(geteuid() != 0 || setuid(kNobody) == 0);
    const int own = niceOf(getpid());
    EXPECT_EQ(setPriority(kNice, 0, own - 1), refusal(EACCES));
    EXPECT_EQ(getPriority(kNice, 0), (Answer{.result = own}));
    EXPECT_EQ(kJetsam.setBand(getpid(), 30), refusal(EPERM));
    EXPECT_EQ(setPriority(kRole, 0, 1), refusal(EPERM));
  });
}

TEST(PrivilegedKernelCalls, GiveRolesToBundledProgramsAlone) {
  const TemporaryDirectory directory;
  std::filesystem::create_directories(directory / "Notes.app/Helpers");
  const Process app(directory / "Notes.app/Notes");
  const Process helper(directory / "Notes.app/Helpers/helper");
  EXPECT_EQ(setPriority(kRole, app.pid(), PRIO_DARWIN_ROLE_UI_FOCAL), kSuccess);
  EXPECT_EQ(getPriority(kRole, app.pid()), (Answer{.result = 1}));
  EXPECT_EQ(setPriority(kRole, app.pid(), 7), refusal(EINVAL));
  EXPECT_EQ(setPriority(kRole, helper.pid(), PRIO_DARWIN_ROLE_UI_FOCAL), refusal(ENOTSUP));
  EXPECT_EQ(getPriority(kRole, helper.pid()), (Answer{.result = 0}));
  EXPECT_EQ(setPriority(kRole, 0, PRIO_DARWIN_ROLE_UI_FOCAL), refusal(ENOTSUP));
}

TEST(PrivilegedKernelCalls, KnowLiveProcessesAlone) {
  const Child child;
  const pid_t pid = child.pid();
  EXPECT_EQ(setPriority(kNice, pid, -21), kSuccess);
  EXPECT_EQ(niceOf(pid), -20);
  EXPECT_EQ(kJetsam.entryOf(pid), inBand(pid, 180));
  EXPECT_EQ(kJetsam.setBand(pid, 30), kSuccess);
  EXPECT_EQ(kJetsam.entryOf(pid), inBand(pid, 30));
  EXPECT_EQ(kJetsam.entryOf(1), std::nullopt);

  child.kill();
  EXPECT_EQ(kJetsam.entryOf(pid), std::nullopt);
  for (const Answer& answer :
       {kJetsam.setBand(pid, 30), getPriority(kRole, pid), setPriority(kRole, pid, 1)}) {
    EXPECT_EQ(answer, refusal(ESRCH));
  }
}

TEST(PrivilegedKernelCalls, ShareStateWithinTheRoot) {
  const auto is_kept = [](pid_t pid) {
    const std::string bytes = tests::readAll(platform::runtimePath("jetsam.state"));
    const auto table = platform::decodeJetsamTable(bytes, bootId());
    return table && table->records.contains(pid);
  };
  Child target;
  const pid_t pid = target.pid();
  const Child writer([pid] { EXPECT_EQ(kJetsam.setBand(pid, 40), kSuccess); });
  EXPECT_EQ(kJetsam.entryOf(pid), inBand(pid, 40));
  writer.kill();
  const Child reader([pid] {
    EXPECT_EQ(kJetsam.entryOf(pid), inBand(pid, 40));
    EXPECT_EQ(kJetsam.setBand(pid, 50), kSuccess);
  });
  EXPECT_EQ(kJetsam.entryOf(pid), inBand(pid, 50));
  EXPECT_TRUE(is_kept(pid));

  // The next change of the state forgets who has gone.
  target.end();
  EXPECT_EQ(kJetsam.setBand(reader.pid(), 30), kSuccess);
  EXPECT_FALSE(is_kept(pid));
  EXPECT_TRUE(is_kept(reader.pid()));
}

}  // namespace
}  // namespace vorlatch::conformance
