// The process table of Linux, beyond what the conformance suite holds every platform to.
#include "platform/process_table.h"

#include <array>
#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/linux/process_stat.h"
#include "tests/conformance/calls.h"
#include "tests/conformance/driver.h"
#include "tests/linux/machine.h"

namespace vorlatch::conformance {
namespace {

using platform::parseProcessStat;
using platform::PROC_ALL_PIDS;
using platform::proc_listpids;

std::vector<std::int32_t> listedPids() {
  std::vector<std::int32_t> pids(1U << 16);
  const int bytes = proc_listpids(PROC_ALL_PIDS, 0, pids.data(), 1 << 18);
  pids.resize(static_cast<std::size_t>(bytes) / 4);
  return pids;
}

TEST(LinuxProcessTable, AsksForTwentyEntriesMore) {
  // Other programs come and go; a quiet moment shows the rule.
  bool seen = false;
  for (int attempt = 0; attempt < 1000 && !seen; ++attempt) {
    const auto before = listedPids();
    const int bytes = proc_listpids(PROC_ALL_PIDS, 0, nullptr, 0);
    if (before != listedPids()) continue;
    EXPECT_EQ(bytes, static_cast<int>((before.size() + 20) * 4));
    seen = true;
  }
  EXPECT_TRUE(seen);
}

TEST(LinuxProcessTable, RefusesOtherListsAndNoRoom) {
  const auto expect_refused = [](std::uint32_t type, int size, int error) {
    std::array<std::int32_t, 4> pids{};
    EXPECT_EQ(ask([&] { return proc_listpids(type, 0, pids.data(), size); }),
              (Answer{.result = 0, .error = error}));
  };
  for (const std::uint32_t type : {0U, 2U, 0xffffffffU}) expect_refused(type, 16, EINVAL);
  for (const int size : {0, INT32_MIN}) expect_refused(PROC_ALL_PIDS, size, ENOMEM);
}

TEST(LinuxProcessTable, GivesNamesThatProcessesTook) {
  // The last is not cut from the executable's name.
  for (const char* taken :
       {"short", "vor latch", "a) S (b", "\xe6\x97\xa5\xe5\xbf\x97", "x\ny", "vorlatch-anothe"}) {
    const Child child([taken] { prctl(PR_SET_NAME, taken); });
    EXPECT_EQ(nameOf(child.pid()), (TextAnswer{.text = taken}));
  }
}

TEST(LinuxProcessTable, CompletesCutNamesFromExecutables) {
  const TemporaryDirectory directory;
  // The path has nearly 1100 bytes: too long for the least buffer, not for the greatest.
  std::string deep = directory / std::string(250, 'a');
  for (int level = 0; level < 3; ++level) deep += "/" + std::string(250, 'b');
  std::filesystem::create_directories(deep);
  const std::string program = deep + "/vorlatchlongnamedprogram1";
  // Fourteen characters are a whole name, even when the executable's goes on behind them.
  const std::string link = directory / "vorlatchlongna";
  const Process long_named(program);
  std::filesystem::create_symlink(program, link);
  const Process linked(link);
  for (const bool is_deleted : {false, true}) {
    if (is_deleted) std::filesystem::remove(program);
    EXPECT_EQ(nameOf(long_named.pid()), (TextAnswer{.text = "vorlatchlongnamedprogram1"}));
    EXPECT_EQ(nameOf(linked.pid()), (TextAnswer{.text = "vorlatchlongna"}));
    for (const Process* process : {&long_named, &linked}) {
      EXPECT_EQ(pathOf(process->pid()), (TextAnswer{.text = program}));
      EXPECT_EQ(pathOf(process->pid(), 1024), refused(ENOSPC));
    }
  }
}

TEST(LinuxProcessTable, KnowsNeitherZombiesNorTheGone) {
  const Child zombie;
  zombie.kill();
  for (const int pid : {zombie.pid(), 0, -1, INT32_MIN, INT32_MAX}) {
    EXPECT_EQ(nameOf(pid), refused(ESRCH)) << pid;
    EXPECT_EQ(pathOf(pid), refused(ESRCH)) << pid;
  }
}

TEST(ProcessStat, ReadsNameStartTimeAndExit) {
  const std::string numbers = " 1 7 7 0 -1 0 1 2 3 4 5 6 7 8 20 0 ";
  struct Case {
    std::string text;
    std::string read;  // the name and the start time, and whether it has exited
  };
  const Case cases[] = {
      {"42 (a) b (c) S" + numbers + "3 0 12345 99 88 184467", "a) b (c 12345"},
      // A main thread that ended alone leaves its process alive.
      {"1 (x) Z" + numbers + "2 0 5", "x 5"},
      {"1 (x) Z" + numbers + "1 0 5", "x 5 exited"},
      {"1 (x) X" + numbers + "2 0 5", "x 5 exited"},
      {"1 (x) R" + numbers + "1 0 5", "x 5"},
      {"", "none"},
      {"42", "none"},
      {"42 (name", "none"},
      {"42 )name(", "none"},
      {"42 (name)", "none"},
      {"42 (name) S 1 2 3", "none"},
      {"42 (name) S" + numbers + "3 0 many", "none"},
  };
  for (const auto& [text, read] : cases) {
    const auto stat = parseProcessStat(text);
    const std::string got = !stat ? "none"
                                  : std::string(stat->nameView()) + " " +
                                        std::to_string(stat->start_time_ticks) +
                                        (stat->has_exited ? " exited" : "");
    EXPECT_EQ(got, read) << text;
  }
}

}  // namespace
}  // namespace vorlatch::conformance
