// Memory of other users' processes: what the kernel's snapshot tells, in the forms of each version.
#include "control/jetsam_snapshot.h"

#include <unistd.h>

#include <cstring>

#include <gtest/gtest.h>

#include "control/memory_view.h"
#include "tests/cli/control_run.h"
#include "tests/support/text.h"

namespace vorlatch::tests {
namespace {

constexpr std::size_t kHeaderBytes = 200;
constexpr std::size_t kCountOffset = 192;
constexpr std::uint64_t kPage = 16384;
constexpr int kSnapshot = 3;  // the command

void putNumber(std::string& bytes, std::size_t offset, std::uint64_t number, std::size_t size) {
  std::memcpy(bytes.data() + offset, &number, size);
}

struct Managed {
  std::int32_t pid;
  std::string name;
  std::uint64_t pages;
  std::uint64_t most_pages;
};

// A snapshot as a kernel makes it whose entries have this size, with room for one entry more.
std::string snapshotOf(const std::vector<Managed>& processes, std::size_t entry_bytes) {
  std::string bytes(kHeaderBytes + entry_bytes * (processes.size() + 1), '\0');
  putNumber(bytes, kCountOffset, processes.size(), 8);
  for (std::size_t i = 0; i < processes.size(); ++i) {
    const std::size_t begin = kHeaderBytes + i * entry_bytes;
    putNumber(bytes, begin, static_cast<std::uint32_t>(processes[i].pid), 4);
    processes[i].name.copy(bytes.data() + begin + 4, 32);
    std::memset(bytes.data() + begin + 56, 0xA5, 16);  // the UUID
    putNumber(bytes, begin + 88, processes[i].pages, 8);
    putNumber(bytes, begin + 96, processes[i].most_pages, 8);
    std::memset(bytes.data() + begin + 104, 0x11, entry_bytes - 104);  // what counts no more here
  }
  return bytes;
}

const std::vector<Managed> kProcesses{
    {.pid = 1, .name = "launchd", .pages = 700, .most_pages = 900},
    {.pid = 0, .name = "kernel_task", .pages = 0, .most_pages = 0},
    {.pid = 100, .name = "backboardd", .pages = 64, .most_pages = 32}};

std::string textOf(const control::MemoryByPid& memory) {
  std::string text;
  for (const auto& [pid, use] : memory) {
    text += std::to_string(pid) + ": " + std::to_string(use.footprint_bytes / kPage) + " of " +
            std::to_string(use.peak_bytes / kPage) + "\n";
  }
  return text;
}

TEST(JetsamSnapshot, IsReadInTheFormOfEachVersion) {
  for (const std::size_t entry_bytes : {256U, 272U, 280U, 336U, 512U}) {
    EXPECT_EQ(textOf(control::readJetsamSnapshot(snapshotOf(kProcesses, entry_bytes), kPage)),
              "0: 0 of 0\n1: 700 of 900\n100: 64 of 64\n")
        << entry_bytes;
  }
}

TEST(JetsamSnapshot, TellsNothingInAnotherForm) {
  const std::string whole = snapshotOf(kProcesses, 272);
  std::string too_many = whole;
  putNumber(too_many, kCountOffset, 1000, 8);
  std::string twice = whole;
  putNumber(twice, kHeaderBytes + 272, 1, 4);
  std::string negative = whole;
  putNumber(negative, kHeaderBytes, 0xFFFFFFFF, 4);
  std::string no_name = whole;
  std::memset(no_name.data() + kHeaderBytes + 4, 'x', 33);
  for (const std::string& bytes :
       {std::string(), whole.substr(0, 100), whole.substr(0, kHeaderBytes), too_many, twice,
        negative, no_name, snapshotOf(kProcesses, 248), snapshotOf(kProcesses, 520),
        snapshotOf({}, 256), whole + "x"}) {
    EXPECT_EQ(textOf(control::readJetsamSnapshot(bytes, kPage)), "") << bytes.size();
  }
}

// mobile may not ask for root's processes one by one.
TEST(JetsamSnapshot, TellsOfHiddenProcesses) {
  ControlStory story;
  story.writeTargets({});
  story.device.launch({.name = "backboardd"});
  story.device.launch({.name = "ended"});
  const auto page_bytes = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
  const std::string snapshot = snapshotOf(kProcesses, 280);
  story.device.script({.function = "memorystatus_control",
                       .command = kSnapshot,
                       .result = static_cast<int>(snapshot.size()),
                       .buffer = snapshot});
  const std::string shown = std::to_string(control::megabytesOf(64 * page_bytes));
  EXPECT_EQ(rowsOf(story.answer("ps backboardd"), 1),
            "100 | backboardd | - | 180 | 0 | 1450 | " + shown + ", peak " + shown + ", 0 %\n");
  // Without the flag 1, the kernel would forget its last kills.
  const Lines calls = story.device.takeTrace({"memorystatus_control"});
  EXPECT_EQ(Lines(calls.end() - 2, calls.end()),
            (Lines{"memorystatus_control(3, 0, 1, null, 0) = 1320",
                   "memorystatus_control(3, 0, 1, buffer, 9512) = 1320"}));
}

}  // namespace
}  // namespace vorlatch::tests
