#include "platform/process_table.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/linux/process_stat.h"
#include "tests/linux/machine.h"

namespace vorlatch::platform {
namespace {

struct Answer {
  int result;
  int error;
  std::string text;
  friend bool operator==(const Answer&, const Answer&) = default;
};

std::ostream& operator<<(std::ostream& out, const Answer& answer) {
  return out << '{' << answer.result << ", errno " << answer.error << ", \"" << answer.text
             << "\"}";
}

constexpr int kUntouchedErrno = 1234;

using TextCall = int (*)(int, void*, std::uint32_t);

// What the call answers, and the text up to the NUL that it must have written.
Answer ask(TextCall call, int pid, std::uint32_t size) {
  std::vector<char> buffer(size + 1, '#');
  errno = kUntouchedErrno;
  const int result = call(pid, buffer.data(), size);
  const int error = errno;
  const std::string all(buffer.begin(), buffer.end());
  return {result, error, result > 0 ? all.substr(0, all.find('\0')) : all.substr(0, 1)};
}

Answer name(int pid) {
  return ask(proc_name, pid, 256);
}
Answer path(int pid) {
  return ask(proc_pidpath, pid, 4096);
}

Answer given(const std::string& text) {
  return {static_cast<int>(text.size()), kUntouchedErrno, text};
}
Answer refused(int error) {
  return {0, error, "#"};
}

std::vector<std::int32_t> listPids(std::size_t room) {
  std::vector<std::int32_t> pids(room);
  const int bytes = proc_listpids(PROC_ALL_PIDS, 0, pids.data(), static_cast<int>(room * 4));
  EXPECT_EQ(bytes % 4, 0);
  pids.resize(static_cast<std::size_t>(bytes) / 4);
  return pids;
}

std::vector<std::int32_t> listPids() {
  const int bytes = proc_listpids(PROC_ALL_PIDS, 0, nullptr, 0);
  return listPids(static_cast<std::size_t>(bytes));
}

TEST(ProcessTable, ListsEveryProcessNewestFirst) {
  const Child first;
  const Child second;
  const std::vector<std::int32_t> pids = listPids();
  EXPECT_TRUE(std::is_sorted(pids.begin(), pids.end(), std::greater_equal<>()));
  for (const pid_t pid : {getpid(), first.pid(), second.pid()}) {
    EXPECT_EQ(std::count(pids.begin(), pids.end(), pid), 1) << pid;
  }
}

TEST(ProcessTable, ListsNoProcessThatHasBeenReaped) {
  Child child;
  child.end();
  const std::vector<std::int32_t> pids = listPids();
  EXPECT_EQ(std::count(pids.begin(), pids.end(), child.pid()), 0);
}

TEST(ProcessTable, AsksForTwentyEntriesMoreThanThereAre) {
  // Other programs come and go; a quiet moment shows the rule.
  bool seen = false;
  for (int attempt = 0; attempt < 1000 && !seen; ++attempt) {
    const auto before = listPids(1U << 16);
    const int bytes = proc_listpids(PROC_ALL_PIDS, 0, nullptr, 0);
    const auto after = listPids(1U << 16);
    if (before != after) continue;
    EXPECT_EQ(bytes, static_cast<int>((before.size() + 20) * 4));
    seen = true;
  }
  EXPECT_TRUE(seen);
}

TEST(ProcessTable, WritesNoMoreEntriesThanFit) {
  const Child child;  // with this process at least two entries
  std::array<std::int32_t, 3> pids = {-7, -7, -7};
  EXPECT_EQ(proc_listpids(PROC_ALL_PIDS, 0, pids.data(), 11), 8);
  EXPECT_EQ(pids[2], -7);
  EXPECT_GT(pids[0], pids[1]);
  EXPECT_EQ(proc_listpids(PROC_ALL_PIDS, 0, pids.data(), 4), 4);
}

TEST(ProcessTable, RefusesOtherListsAndBuffersWithoutRoom) {
  std::array<std::int32_t, 4> pids{};
  for (const std::uint32_t type : {0U, 2U, 6U, 0xffffffffU}) {
    errno = 0;
    EXPECT_EQ(proc_listpids(type, 0, pids.data(), 16), 0);
    EXPECT_EQ(errno, EINVAL);
  }
  for (const int size : {3, 0, -1, INT32_MIN}) {
    errno = 0;
    EXPECT_EQ(proc_listpids(PROC_ALL_PIDS, 0, pids.data(), size), 0);
    EXPECT_EQ(errno, ENOMEM);
  }
}

TEST(ProcessTable, GivesTheNameThatAProcessHasTaken) {
  for (const char* taken : {"short", "vor latch", "a) S (b", "\xe6\x97\xa5\xe5\xbf\x97", "x\ny"}) {
    const Child child([taken] { prctl(PR_SET_NAME, taken); });
    EXPECT_EQ(name(child.pid()), given(taken));
  }
}

TEST(ProcessTable, CompletesACutNameFromTheExecutable) {
  const TemporaryDirectory directory;
  const std::string program = directory / "vorlatchlongnamedprogram1";
  std::filesystem::copy_file("/bin/cat", program);
  const Child child(Program{program});
  EXPECT_EQ(name(child.pid()), given("vorlatchlongnamedprogram1"));
  EXPECT_EQ(path(child.pid()), given(program));
  std::filesystem::remove(program);
  EXPECT_EQ(name(child.pid()), given("vorlatchlongnamedprogram1"));
  EXPECT_EQ(path(child.pid()), given(program));
}

TEST(ProcessTable, CutsACompletedNameAtThirtyOneCharacters) {
  const TemporaryDirectory directory;
  const std::string program = directory / "vorlatch-0123456789-0123456789-0123456789";
  std::filesystem::copy_file("/bin/cat", program);
  const Child child(Program{program});
  EXPECT_EQ(name(child.pid()), given("vorlatch-0123456789-0123456789-"));
  EXPECT_EQ(ask(proc_name, child.pid(), 32), given("vorlatch-0123456789-0123456789-"));
}

TEST(ProcessTable, LeavesACutNameThatIsNotTheExecutables) {
  const Child child([] { prctl(PR_SET_NAME, "vorlatch-another-name"); });
  EXPECT_EQ(name(child.pid()), given("vorlatch-anothe"));
}

// Fourteen characters are a whole name, even when the executable's goes on behind them.
TEST(ProcessTable, LeavesANameOfFourteenCharacters) {
  const TemporaryDirectory directory;
  const std::string program = directory / "vorlatchlongnamedprogram1";
  std::filesystem::copy_file("/bin/cat", program);
  std::filesystem::create_symlink(program, directory / "vorlatchlongna");
  const Child child(Program{directory / "vorlatchlongna"});
  EXPECT_EQ(name(child.pid()), given("vorlatchlongna"));
  EXPECT_EQ(path(child.pid()), given(program));
}

TEST(ProcessTable, KnowsNeitherZombiesNorTheGone) {
  Child child;
  child.kill();
  EXPECT_EQ(name(child.pid()), refused(ESRCH));
  EXPECT_EQ(path(child.pid()), refused(ESRCH));
  child.end();
  EXPECT_EQ(name(child.pid()), refused(ESRCH));
  EXPECT_EQ(path(child.pid()), refused(ESRCH));
  for (const int pid : {0, -1, INT32_MIN, INT32_MAX}) {
    EXPECT_EQ(name(pid), refused(ESRCH));
    EXPECT_EQ(path(pid), refused(ESRCH));
  }
}

TEST(ProcessTable, KeepsToTheKernelsBufferSizes) {
  EXPECT_EQ(ask(proc_name, getpid(), 31), refused(ENOMEM));
  EXPECT_EQ(ask(proc_name, getpid(), 32).error, kUntouchedErrno);
  EXPECT_EQ(ask(proc_pidpath, getpid(), 1023), refused(ENOMEM));
  EXPECT_EQ(ask(proc_pidpath, getpid(), 4097), refused(EOVERFLOW));
  const std::string self = std::filesystem::read_symlink("/proc/self/exe");
  EXPECT_EQ(ask(proc_pidpath, getpid(), 1024), given(self));
  EXPECT_EQ(ask(proc_pidpath, getpid(), 4096), given(self));
}

// A path of nearly 1100 bytes: too long for the least buffer, not for the greatest.
TEST(ProcessTable, RefusesAPathThatDoesNotFit) {
  const TemporaryDirectory directory;
  std::string deep = directory / std::string(250, 'a');
  for (int level = 0; level < 3; ++level) deep += "/" + std::string(250, 'b');
  std::filesystem::create_directories(deep);
  const std::string program = deep + "/" + std::string(60, 'c');
  std::filesystem::copy_file("/bin/cat", program);
  const Child child(Program{program});
  EXPECT_EQ(ask(proc_pidpath, child.pid(), 1024), refused(ENOSPC));
  EXPECT_EQ(path(child.pid()), given(program));
}

constexpr std::string_view kStatTail =
    " S 1 7 7 0 -1 4194560 1 2 3 4 5 6 7 8 20 0 3 0 12345 99 88 184467";

TEST(ProcessStat, ReadsWhatTheModelAndTheTableNeed) {
  const auto stat = parseProcessStat("42 (a) b (c)" + std::string(kStatTail));
  ASSERT_TRUE(stat);
  EXPECT_EQ(stat->nameView(), "a) b (c");
  EXPECT_EQ(stat->start_time_ticks, 12345U);
  EXPECT_FALSE(stat->has_exited);
}

TEST(ProcessStat, CountsAMainThreadThatEndedAloneAsAlive) {
  const std::string numbers = " 1 7 7 0 -1 0 1 2 3 4 5 6 7 8 20 0 ";
  EXPECT_FALSE(parseProcessStat("1 (x) Z" + numbers + "2 0 5")->has_exited);
  EXPECT_TRUE(parseProcessStat("1 (x) Z" + numbers + "1 0 5")->has_exited);
  EXPECT_TRUE(parseProcessStat("1 (x) X" + numbers + "2 0 5")->has_exited);
  EXPECT_FALSE(parseProcessStat("1 (x) R" + numbers + "1 0 5")->has_exited);
}

TEST(ProcessStat, RefusesWhatIsNotAStatLine) {
  for (const std::string& text :
       {std::string(), std::string("42"), std::string("42 (name"), std::string("42 )name("),
        std::string("42 (name)"), std::string("42 (name) S 1 2 3"),
        std::string("42 (name) S 1 7 7 0 -1 4194560 1 2 3 4 5 6 7 8 20 0 3 0 many")}) {
    EXPECT_FALSE(parseProcessStat(text)) << text;
  }
}

TEST(ProcessStat, TellsTwoProcessesApartByTheirStart) {
  const Child child;
  const auto mine = readProcessStat(getpid());
  const auto childs = readProcessStat(child.pid());
  ASSERT_TRUE(mine && childs);
  EXPECT_LE(mine->start_time_ticks, childs->start_time_ticks);
  EXPECT_EQ(childs->start_time_ticks, readProcessStat(child.pid())->start_time_ticks);
}

}  // namespace
}  // namespace vorlatch::platform
