// The process table of Linux, beyond what the conformance suite holds every platform to.
#include "platform/process_table.h"

#include <array>
#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/linux/process_stat.h"
#include "tests/blackbox/processes.h"
#include "tests/conformance/process_texts.h"
#include "tests/linux/machine.h"

namespace vorlatch::platform {
namespace {

using conformance::Answer;
using conformance::ask;
using conformance::nameOf;
using conformance::pathOf;
using conformance::refused;
using conformance::TextAnswer;

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
  std::array<std::int32_t, 4> pids{};
  for (const std::uint32_t type : {0U, 2U, 6U, 0xffffffffU}) {
    EXPECT_EQ(ask([&] { return proc_listpids(type, 0, pids.data(), 16); }), (Answer{0, EINVAL}));
  }
  for (const int size : {0, -1, INT32_MIN}) {
    EXPECT_EQ(ask([&] { return proc_listpids(PROC_ALL_PIDS, 0, pids.data(), size); }),
              (Answer{0, ENOMEM}));
  }
}

TEST(LinuxProcessTable, GivesNamesThatProcessesTook) {
  // The last is not cut from the executable's name.
  for (const char* taken :
       {"short", "vor latch", "a) S (b", "\xe6\x97\xa5\xe5\xbf\x97", "x\ny", "vorlatch-anothe"}) {
    const Child child([taken] { prctl(PR_SET_NAME, taken); });
    EXPECT_EQ(nameOf(child.pid()), (TextAnswer{taken}));
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
  std::filesystem::copy_file(VORLATCH_IDLER, program);
  std::filesystem::create_symlink(program, link);
  const ChildProcess long_named(program);
  const ChildProcess linked(link);
  for (const bool is_deleted : {false, true}) {
    if (is_deleted) std::filesystem::remove(program);
    EXPECT_EQ(nameOf(long_named.pid()), (TextAnswer{"vorlatchlongnamedprogram1"}));
    EXPECT_EQ(nameOf(linked.pid()), (TextAnswer{"vorlatchlongna"}));
    for (const ChildProcess* process : {&long_named, &linked}) {
      EXPECT_EQ(pathOf(process->pid()), (TextAnswer{program}));
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
  const auto stat = parseProcessStat("42 (a) b (c) S" + numbers + "3 0 12345 99 88 184467");
  ASSERT_TRUE(stat);
  EXPECT_EQ(stat->nameView(), "a) b (c");
  EXPECT_EQ(stat->start_time_ticks, 12345U);
  EXPECT_FALSE(stat->has_exited);
  // A main thread that ended alone leaves its process alive.
  EXPECT_FALSE(parseProcessStat("1 (x) Z" + numbers + "2 0 5")->has_exited);
  EXPECT_TRUE(parseProcessStat("1 (x) Z" + numbers + "1 0 5")->has_exited);
  EXPECT_TRUE(parseProcessStat("1 (x) X" + numbers + "2 0 5")->has_exited);
  EXPECT_FALSE(parseProcessStat("1 (x) R" + numbers + "1 0 5")->has_exited);

  for (const std::string& text :
       {std::string(), std::string("42"), std::string("42 (name"), std::string("42 )name("),
        std::string("42 (name)"), std::string("42 (name) S 1 2 3"),
        "42 (name) S" + numbers + "3 0 many"}) {
    EXPECT_FALSE(parseProcessStat(text)) << text;
  }
}

}  // namespace
}  // namespace vorlatch::platform
