// The daemon among file systems and processes of the test's own, apart from the machine's.
#include <filesystem>
#include <memory>

#include <gtest/gtest.h>

#include "config/default_preset.h"
#include "platform/property_list.h"
#include "tests/blackbox/expected_log.h"
#include "tests/blackbox/installation.h"
#include "tests/blackbox/memory_file_system.h"
#include "tests/blackbox/target.h"
#include "tests/support/files.h"

namespace vorlatch {
namespace {

namespace fs = std::filesystem;

TEST(PrivilegedFileSystems, GiveTheUsualPlaceWithoutLibrary) {
  leaveTheMachinesMounts();
  const MemoryFileSystem var("/var", "mode=755");
  const std::string usual_place = "/var/jb/var/mobile/Library/Preferences";
  fs::create_directories(usual_place);
  Installation installation;
  fs::remove(installation.path("usr/lib/libroot.so"));
  const std::string installed_place = installation.preferencesDirectory();
  installation.useFilesIn(usual_place);
  installation.writePreferences(preferencesWith({{ownName("absent"), plist::Dictionary{}}}));
  installation.start();
  EXPECT_EQ(installation.log(), startLines(installation.daemon()));
  EXPECT_EQ(filesIn(usual_place), (Lines{"Vorlatch.log", "com.zel.vorlatch.plist"}));

  installation.writePreferences(preferencesWith({}));
  installation.post();
  EXPECT_EQ(installation.statusOnce("{}"), "{}");
  EXPECT_EQ(filesIn(installed_place), Lines{"com.zel.vorlatch.plist"});
}

TEST(PrivilegedFileSystems, KeepOldStatusWholeWhileFull) {
  leaveTheMachinesMounts();
  Installation installation;
  const MemoryFileSystem small(installation.preferencesDirectory(), "size=256k");
  installation.watchFiles();
  const Program first = programNamed(installation.path(""), ownName("first"));
  const Program second = programNamed(installation.path(""), ownName("second"));
  plist::Dictionary settings{{"JetsamPriority", -1}, {"NiceValue", 3}};
  const plist::Dictionary unchanged = settings;
  const Target a(first);
  installation.writePreferences(preferencesWith({{first.key, settings}, {second.key, settings}}));
  installation.start();
  const std::string old_status = "{" + statusOf(first.key, a.pid(), 3, 180) + "}";
  ASSERT_EQ(installation.statusOnce(old_status), old_status);
  const std::string old_bytes = tests::readAll(installation.statusPath());

  const Target b(second);
  const std::string filler = installation.preferencesDirectory() + "/filler";
  fillUp(filler);
  installation.post();
  ASSERT_TRUE(installation.waitForRemoval("com.zel.vorlatch.status.plist."));
  EXPECT_EQ(tests::readAll(installation.statusPath()), old_bytes);
  EXPECT_EQ(b.nice(), 3);

  fs::remove(filler);
  EXPECT_EQ(filesIn(installation.preferencesDirectory()),
            (Lines{"Vorlatch.log", "com.zel.vorlatch.plist", "com.zel.vorlatch.status.plist"}));
  settings.insert_or_assign("Remark", "edited");
  installation.writePreferences(preferencesWith({{first.key, settings}, {second.key, unchanged}}));
  installation.post();
  const std::string new_status =
      "{" + statusOf(first.key, a.pid(), 3, 180) + statusOf(second.key, b.pid(), 3, 180) + "}";
  EXPECT_EQ(installation.statusOnce(new_status), new_status);
}

// What is started while the object is there runs apart from the machine's processes. The table goes
// with its first process, which therefore has to outlive the others.
class OwnProcessTable {
 public:
  OwnProcessTable() : machines_(open("/proc/self/ns/pid", O_RDONLY | O_CLOEXEC)) {
    EXPECT_EQ(unshare(CLONE_NEWPID), 0) << std::strerror(errno);
    first_process_ = std::make_unique<ChildProcess>(VORLATCH_IDLER);
  }
  OwnProcessTable(const OwnProcessTable&) = delete;
  OwnProcessTable& operator=(const OwnProcessTable&) = delete;
  ~OwnProcessTable() {
    first_process_.reset();
    EXPECT_EQ(setns(machines_.get(), CLONE_NEWPID), 0) << std::strerror(errno);
  }

 private:
  const Descriptor machines_;
  std::unique_ptr<ChildProcess> first_process_;
};

// The preset names processes that the machine may have, and moves them.
TEST(PrivilegedProcessTable, LetsFreshInstallationUsePreset) {
  const OwnProcessTable table;
  Installation installation;
  fs::remove(installation.preferencesPath());
  installation.start({.umask = 077, .sees_own_process_table = true});

  Lines log = startLines(pidInItsTable(installation.daemon()));
  log.insert(log.begin() + 1, "[配置] 已生成默认预设参数");
  EXPECT_EQ(installation.log(), log);
  EXPECT_EQ(installation.passes(), 1);
  const auto preset = platform::parsePropertyList(tests::readAll(installation.preferencesPath()));
  EXPECT_TRUE(preset && *preset == plist::Value(defaultPreset()));
  EXPECT_EQ(filesIn(installation.preferencesDirectory()),
            (Lines{"Vorlatch.log", "com.zel.vorlatch.plist"}));

  const Target keyboard(programNamed(installation.path(""), "kbd"));
  const pid_t pid = pidInItsTable(keyboard.pid());
  installation.post();
  log = log + startedLines("kbd", pid) + appliedLines("kbd", pid, {.nice = -18});
  EXPECT_EQ(installation.logBehind(0, log.size()), log);
  EXPECT_EQ(keyboard.nice(), -18);
  EXPECT_EQ(filesIn(installation.preferencesDirectory()),
            (Lines{"Vorlatch.log", "com.zel.vorlatch.plist", "com.zel.vorlatch.status.plist"}));
  for (const std::string& path :
       {installation.preferencesPath(), installation.logPath(), installation.statusPath()}) {
    EXPECT_EQ(tests::modeOf(path), 0666U) << path;
  }
}

}  // namespace
}  // namespace vorlatch
