#include "platform/linux/jetsam_state_file.h"

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/linux/machine.h"
#include "tests/support/files.h"

namespace vorlatch::platform {
namespace {

namespace fs = std::filesystem;
using model::JetsamRecord;
using model::JetsamTable;

// Holds every pid up to 1000 to be alive since tick 0, and no other.
class ThousandProcesses final : public model::ProcessList {
 public:
  [[nodiscard]] std::vector<model::LiveProcess> all() const override { return {}; }
  [[nodiscard]] std::optional<model::LiveProcess> find(std::int32_t pid) const override {
    if (pid > 1000) return std::nullopt;
    return model::LiveProcess{.pid = pid};
  }
  [[nodiscard]] bool isApp(std::int32_t /*pid*/) const override { return false; }
};

const ThousandProcesses kThousandProcesses;

JetsamTable sampleTable() {
  JetsamTable table;
  JetsamRecord& everything = table.records[7];
  everything = {.start_time = UINT64_MAX,
                .arrival = INT64_MIN,
                .requested_band = -1,
                .effective_band = 210,
                .user_data = 0x0102030405060708U,
                .active = {.limit_mb = 300, .fatal = false},
                .inactive = {.limit_mb = INT32_MIN, .fatal = true},
                .darwin_role = 6,
                .assertion = true,
                .managed = false,
                .freezable = true,
                .elevated = false};
  JetsamRecord& opposite = table.records[INT32_MAX];
  opposite.active.fatal = true;
  opposite.inactive.fatal = false;
  opposite.managed = true;
  opposite.elevated = true;
  table.next_arrival = 77;
  return table;
}

JetsamTable read(JetsamStateFile& file) {
  JetsamTable copy;
  file.update(kThousandProcesses, [&copy](JetsamTable& table) { copy = table; });
  return copy;
}

void addRecord(JetsamStateFile& file, std::int32_t pid) {
  file.update(kThousandProcesses, [pid](JetsamTable& table) {
    table.records[pid].user_data = static_cast<std::uint64_t>(table.next_arrival++);
  });
}

using Pids = std::vector<std::int32_t>;

// -1 for a file that cannot be read.
Pids pidsIn(const std::string& path) {
  Pids pids;
  const auto table = decodeJetsamTable(tests::readAll(path), bootId());
  if (!table) return {-1};
  for (const auto& entry : table->records) pids.push_back(entry.first);
  return pids;
}

TEST(JetsamStateFile, ReadsBackWholeFilesOfItsBoot) {
  EXPECT_EQ(decodeJetsamTable(encodeJetsamTable({}, ""), ""), JetsamTable{});
  const std::string bytes = encodeJetsamTable(sampleTable(), "a boot");
  EXPECT_EQ(decodeJetsamTable(bytes, "a boot"), sampleTable());
  EXPECT_EQ(decodeJetsamTable(bytes, "b boot"), std::nullopt);
  EXPECT_EQ(decodeJetsamTable(bytes, ""), std::nullopt);
  EXPECT_EQ(decodeJetsamTable(bytes + '\0', "a boot"), std::nullopt);
  for (std::size_t at = 0; at < bytes.size(); ++at) {
    EXPECT_EQ(decodeJetsamTable(bytes.substr(0, at), "a boot"), std::nullopt) << at;
    std::string changed = bytes;
    changed[at] = static_cast<char>(changed[at] ^ 1);
    EXPECT_EQ(decodeJetsamTable(changed, "a boot"), std::nullopt) << at;
  }
}

TEST(JetsamStateFile, MakesDirectoriesAndAPrivateFile) {
  const TemporaryDirectory root;
  JetsamStateFile file(root / "var/run/vorlatch/jetsam.state");
  const mode_t before = umask(077);
  addRecord(file, 5);
  umask(before);
  EXPECT_EQ(tests::modeOf(root / "var"), 0755U);
  EXPECT_EQ(tests::modeOf(root / "var/run"), 0755U);
  EXPECT_EQ(tests::modeOf(root / "var/run/vorlatch"), 01777U);
  EXPECT_EQ(tests::modeOf(root / "var/run/vorlatch/jetsam.state"), 0600U);
  EXPECT_EQ(tests::modeOf(root / "var/run/vorlatch/jetsam.state.lock"), 0600U);
  EXPECT_EQ(pidsIn(root / "var/run/vorlatch/jetsam.state"), (Pids{5}));
}

TEST(JetsamStateFile, WritesOnlyWhatChangedAndForgetsTheDead) {
  const TemporaryDirectory root;
  JetsamStateFile file(root / "state");
  EXPECT_EQ(read(file), JetsamTable{});
  EXPECT_FALSE(fs::exists(root / "state"));
  file.update(kThousandProcesses, [](JetsamTable& table) {
    table.records[1001].managed = true;  // no such process
    table.records[6].start_time = 99;    // another process by now
    table.records[7].managed = true;
  });
  EXPECT_EQ(pidsIn(root / "state"), (Pids{7}));
  const auto written = fs::last_write_time(root / "state");
  EXPECT_EQ(read(file).records.size(), 1U);
  EXPECT_EQ(fs::last_write_time(root / "state"), written);
}

TEST(JetsamStateFile, ShowsChangesWhileOthersHoldTheLock) {
  const TemporaryDirectory directory;
  JetsamStateFile writer(directory / "state");
  JetsamStateFile reader(directory / "state");
  const auto band_seen = [&reader] {
    std::int32_t band = -1;
    reader.look([&band](const JetsamTable& table) {
      const auto entry = table.records.find(7);
      if (entry != table.records.end()) band = entry->second.effective_band;
    });
    return band;
  };
  EXPECT_EQ(band_seen(), -1);
  for (const std::int32_t band : {10, 20, 10}) {
    writer.update(kThousandProcesses,
                  [band](JetsamTable& table) { table.records[7].effective_band = band; });
    EXPECT_EQ(band_seen(), band);
  }
  writer.update(kThousandProcesses, [&](JetsamTable& table) {
    table.records[7].effective_band = 30;
    EXPECT_EQ(band_seen(), 10);
  });
  EXPECT_EQ(band_seen(), 30);
}

TEST(JetsamStateFile, StartsAnewOverDamagedAndLeftFiles) {
  const TemporaryDirectory root;
  for (const std::string& damaged :
       {std::string(), std::string("rubbish"), std::string(300, 'x')}) {
    tests::writeAll(root / "state", damaged);
    tests::writeAll(root / "state.new", "left by a killed process");
    JetsamStateFile file(root / "state");
    EXPECT_EQ(read(file), JetsamTable{});
    addRecord(file, 8);
    EXPECT_EQ(pidsIn(root / "state"), (Pids{8}));
    EXPECT_FALSE(fs::exists(root / "state.new"));
  }
}

// A file that is not the daemon's own at one of its paths. Whoever may open the lock file could
// keep its lock, and the daemon waiting.
struct Foreign {
  const char* name;
  std::function<void(const std::string& path, const std::string& elsewhere)> put;
  bool keeps_a_file;  // otherwise the state is kept in memory
};

void expectNotUsed(const std::vector<Foreign>& all) {
  const std::string bytes = encodeJetsamTable(sampleTable(), bootId());
  for (const Foreign& foreign : all) {
    SCOPED_TRACE(foreign.name);
    const TemporaryDirectory root;
    tests::writeAll(root / "elsewhere", bytes);
    fs::permissions(root / "elsewhere", fs::perms(0600));
    foreign.put(root / foreign.name, root / "elsewhere");
    JetsamStateFile file(root / "state");
    EXPECT_EQ(read(file), JetsamTable{});
    addRecord(file, 5);
    addRecord(file, 6);
    EXPECT_EQ(read(file).records.size(), 2U);
    EXPECT_EQ(tests::readAll(root / "elsewhere"), bytes);
    EXPECT_EQ(pidsIn(root / "state") == (Pids{5, 6}), foreign.keeps_a_file);
  }
}

TEST(JetsamStateFile, UsesNoForeignFile) {
  const auto link = [](const std::string& path, const std::string& elsewhere) {
    fs::create_symlink(elsewhere, path);
  };
  const auto second_name = [](const std::string& path, const std::string& elsewhere) {
    fs::create_hard_link(elsewhere, path);
  };
  const auto open_to_others = [](const std::string& path, const std::string& /*elsewhere*/) {
    tests::writeAll(path, "");
    fs::permissions(path, fs::perms(0666));
  };
  expectNotUsed({{"state", link, false},
                 {"state.new", link, true},
                 {"state.lock", link, false},
                 {"state.lock", second_name, false},
                 {"state.lock", open_to_others, false}});
}

TEST(PrivilegedJetsamStateFile, TrustsNoFileOfAnotherUser) {
  const auto of_another_user = [](const std::string& path, const std::string& elsewhere) {
    fs::copy_file(elsewhere, path);
    EXPECT_EQ(chown(path.c_str(), 65534, 65534), 0);
  };
  expectNotUsed({{"state", of_another_user, false}, {"state.lock", of_another_user, false}});
}

TEST(JetsamStateFile, LosesNothingBetweenThreadsAndProcesses) {
  constexpr std::int32_t kRounds = 50;
  const TemporaryDirectory root;
  const auto add_many = [&root](std::int32_t first) {
    JetsamStateFile file(root / "state");
    std::thread other([&file, first] {
      for (std::int32_t pid = first + kRounds; pid < first + 2 * kRounds; ++pid)
        addRecord(file, pid);
    });
    for (std::int32_t pid = first; pid < first + kRounds; ++pid) addRecord(file, pid);
    other.join();
  };
  std::vector<pid_t> children;
  for (const std::int32_t first : {100, 200, 300}) {
    const pid_t pid = fork();
    if (pid == 0) {
      add_many(first);
      _exit(0);
    }
    children.push_back(pid);
  }
  add_many(400);
  for (const pid_t pid : children) {
    int status = -1;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_EQ(status, 0);
  }
  const auto table = decodeJetsamTable(tests::readAll(root / "state"), bootId());
  ASSERT_TRUE(table);
  EXPECT_EQ(table->records.size(), 400U);
  EXPECT_EQ(table->next_arrival, 401);
}

TEST(JetsamStateFile, IsWholeWheneverItsWriterIsKilled) {
  const TemporaryDirectory root;
  JetsamStateFile file(root / "state");
  std::int64_t last = 1;
  for (int round = 0; round < 25; ++round) {
    const pid_t writer = fork();
    if (writer == 0) {
      JetsamStateFile mine(root / "state");
      while (true) addRecord(mine, 5);
    }
    while (read(file).next_arrival <= last + round) std::this_thread::yield();
    ::kill(writer, SIGKILL);
    EXPECT_EQ(waitpid(writer, nullptr, 0), writer);
    EXPECT_EQ(pidsIn(root / "state"), (Pids{5}));
    last = read(file).next_arrival;
  }
}

}  // namespace
}  // namespace vorlatch::platform
