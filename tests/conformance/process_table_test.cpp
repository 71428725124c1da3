#include "platform/process_table.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/conformance/driver.h"

namespace {

using vorlatch::conformance::endProcess;
using vorlatch::conformance::executablePath;
using vorlatch::conformance::startProcess;
using vorlatch::platform::PROC_ALL_PIDS;
using vorlatch::platform::proc_listpids;
using vorlatch::platform::proc_name;
using vorlatch::platform::proc_pidpath;

std::vector<std::int32_t> listedPids() {
  const int size = proc_listpids(PROC_ALL_PIDS, 0, nullptr, 0);
  std::vector<std::int32_t> pids(static_cast<std::size_t>(size) / sizeof(std::int32_t));
  const int written = proc_listpids(PROC_ALL_PIDS, 0, pids.data(), size);
  pids.resize(static_cast<std::size_t>(written) / sizeof(std::int32_t));
  return pids;
}

// Where a process stands in the list, or the list's length.
std::ptrdiff_t placeOf(int pid, const std::vector<std::int32_t>& pids) {
  return std::find(pids.begin(), pids.end(), pid) - pids.begin();
}

bool isListed(int pid) {
  const std::vector<std::int32_t> pids = listedPids();
  return std::find(pids.begin(), pids.end(), pid) != pids.end();
}

// A call's result with its text or, when the result is 0, its errno.
struct Answer {
  int result;
  std::string text;
  int error;
  friend bool operator==(const Answer&, const Answer&) = default;
};

template <typename Call>
Answer answerOf(const Call& call, int pid, std::uint32_t size) {
  std::vector<char> buffer(8192, '#');
  errno = 0;
  const int result = call(pid, buffer.data(), size);
  if (result == 0) return {0, "", errno};
  return {result, buffer.data(), 0};
}

constexpr std::uint32_t kNameBuffer = 256;
constexpr std::uint32_t kPathBuffer = 4096;

Answer nameOf(int pid, std::uint32_t size = kNameBuffer) {
  return answerOf(proc_name, pid, size);
}
Answer pathOf(int pid, std::uint32_t size = kPathBuffer) {
  return answerOf(proc_pidpath, pid, size);
}
Answer textAnswer(const std::string& text) {
  return {static_cast<int>(text.size()), text, 0};
}

TEST(ProcessTable, AProcessIsListedWithItsNameAndPathUntilItEnds) {
  const std::string path = executablePath("vl-listed");
  const int pid = startProcess(path);
  ASSERT_GT(pid, 0);
  EXPECT_TRUE(isListed(pid));
  EXPECT_EQ(nameOf(pid), textAnswer("vl-listed"));
  EXPECT_EQ(pathOf(pid), textAnswer(path));
  endProcess(pid);
  EXPECT_FALSE(isListed(pid));
  EXPECT_EQ(nameOf(pid), (Answer{0, "", ESRCH}));
  EXPECT_EQ(pathOf(pid), (Answer{0, "", ESRCH}));
}

TEST(ProcessTable, NamesAreWholeUpToThirtyOneCharacters) {
  for (const std::string& name :
       {std::string("vl-fifteen-char"), std::string("vl-a-name-of-more-than-fifteen"),
        std::string("vl-a-name-of-thirty-one-charact"),
        std::string("vl-a-name-of-thirty-one-characters-and-more")}) {
    const int pid = startProcess(executablePath(name));
    ASSERT_GT(pid, 0);
    EXPECT_EQ(nameOf(pid), textAnswer(name.substr(0, 31)));
    endProcess(pid);
  }
}

TEST(ProcessTable, TheNewestProcessComesFirst) {
  const int first = startProcess(executablePath("vl-first"));
  const int second = startProcess(executablePath("vl-second"));
  const int third = startProcess(executablePath("vl-third"));
  ASSERT_TRUE(first > 0 && second > 0 && third > 0);
  const std::vector<std::int32_t> pids = listedPids();
  EXPECT_LT(placeOf(third, pids), placeOf(second, pids));
  EXPECT_LT(placeOf(second, pids), placeOf(first, pids));
  for (const int pid : {first, second, third}) {
    EXPECT_EQ(std::count(pids.begin(), pids.end(), pid), 1);
    endProcess(pid);
  }
}

TEST(ProcessTable, TheSizeToldHasRoomForProcessesThatStartMeanwhile) {
  const int size = proc_listpids(PROC_ALL_PIDS, 0, nullptr, 0);
  const int pid = startProcess(executablePath("vl-meanwhile"));
  ASSERT_GT(pid, 0);
  std::vector<std::int32_t> pids(static_cast<std::size_t>(size) / sizeof(std::int32_t));
  const int written = proc_listpids(PROC_ALL_PIDS, 0, pids.data(), size);
  EXPECT_GT(written, 0);
  EXPECT_LE(written, size);
  EXPECT_LT(placeOf(pid, pids), std::ssize(pids));
  endProcess(pid);
}

TEST(ProcessTable, AListThatDoesNotFitIsCutAfterTheNewest) {
  const int older = startProcess(executablePath("vl-older"));
  const int newer = startProcess(executablePath("vl-newer"));
  ASSERT_TRUE(older > 0 && newer > 0);
  const std::vector<std::int32_t> all = listedPids();
  const std::size_t room = static_cast<std::size_t>(placeOf(newer, all)) + 1;
  std::vector<std::int32_t> pids(room + 1, -1);
  // Three bytes more than the entries that fit; nothing is written into them.
  const int size = static_cast<int>(room * sizeof(std::int32_t)) + 3;
  EXPECT_EQ(proc_listpids(PROC_ALL_PIDS, 0, pids.data(), size), size - 3);
  EXPECT_NE(pids.front(), -1);
  EXPECT_EQ(pids.back(), -1);
  endProcess(older);
  endProcess(newer);
}

TEST(ProcessTable, BuffersThatAreTooSmallAreRefused) {
  const int pid = startProcess(executablePath("vl-small"));
  ASSERT_GT(pid, 0);
  EXPECT_EQ(nameOf(pid, 31), (Answer{0, "", ENOMEM}));
  EXPECT_EQ(nameOf(pid, 32), textAnswer("vl-small"));
  EXPECT_EQ(pathOf(pid, 1023), (Answer{0, "", ENOMEM}));
  EXPECT_EQ(pathOf(pid, 1024).error, 0);
  EXPECT_EQ(pathOf(pid, 4097), (Answer{0, "", EOVERFLOW}));
  std::array<std::int32_t, 1> pids{};
  errno = 0;
  EXPECT_EQ(proc_listpids(PROC_ALL_PIDS, 0, pids.data(), 3), 0);
  EXPECT_EQ(errno, ENOMEM);
  endProcess(pid);
}

}  // namespace
