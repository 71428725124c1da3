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
  installation.expectLog(startLines(installation.daemon()));
  EXPECT_EQ(filesIn(usual_place), (Lines{"Vorlatch.log", "com.zel.vorlatch.plist"}));

  installation.writePreferences(preferencesWith({}));
  installation.post();
  installation.expectStatus("");
  EXPECT_EQ(filesIn(installed_place), Lines{"com.zel.vorlatch.plist"});
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
  installation.expectLog(log);
  EXPECT_EQ(installation.passes(), 1);
  const auto preset = platform::parsePropertyList(tests::readAll(installation.preferencesPath()));
  EXPECT_TRUE(preset && *preset == plist::Value(defaultPreset()));
  EXPECT_EQ(filesIn(installation.preferencesDirectory()),
            (Lines{"Vorlatch.log", "com.zel.vorlatch.plist"}));

  const Target keyboard(programNamed(installation.path(""), "kbd"));
  const pid_t pid = pidInItsTable(keyboard.pid());
  installation.post();
  installation.expectLog(startedLines("kbd", pid) + appliedLines("kbd", pid, {.nice = -18}));
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
