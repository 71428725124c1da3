// vorlatchctl doctor: how the installation stands.
#include <sys/utsname.h>
#include <unistd.h>

#include <filesystem>

#include <gtest/gtest.h>

#include "platform/memorystatus.h"
#include "tests/cli/control_run.h"

namespace vorlatch::tests {
namespace {

std::string systemName() {
  utsname system{};
  uname(&system);
  return std::string(system.sysname) + " " + system.release;
}

std::string sizeOf(const std::string& path) {
  return std::to_string(std::filesystem::file_size(path));
}

std::string fileText(const std::string& path) {
  return ": file, mode 0666, " + sizeOf(path) + " bytes\n";
}

// A story in which nothing is installed but the daemon's program and preferences.
struct Installation : ControlStory {
  Installation() { writePreferences({}); }

  // The doctor says this between the root and the kernel.
  void expectSaid(const std::string& of_files, const std::string& of_daemons) {
    EXPECT_EQ(answer("doctor"),
              "jailbreak root: {root} (by {root}/usr/lib/libroot.so)\n" + of_files + of_daemons +
                  "kernel: " + systemName() +
                  ", highest jetsam band unknown by its version, unknown by the daemon's own\n" +
                  (geteuid() == 0 ? "" : "user: not root, so the kernel answers only in part\n"));
  }
};

TEST(Doctor, SeesADaemonAndALowMemoryLimit) {
  Installation story;
  const auto pid = story.launchDaemon();
  story.startAndSettle();
  story.device.launch({.name = "alpha"});
  story.writeTargets({{"alpha", Dictionary{}}});
  story.postAndRun();
  story.device.find(pid)->nice_value = -20;
  const std::string files = "{preferences}" + fileText(story.preferencesFile()) + "{status}" +
                            fileText(story.statusFile()) + "{log}" + fileText(story.logFile());
  const std::string runs = "daemon: runs as 100, jetsam band 180, nice -20\n";
  story.expectSaid(files, runs + "daemon: memory limits 1450 MB active, 1450 MB inactive\n");
  platform::memorystatus_memlimit_properties limits{.memlimit_active = -1,
                                                    .memlimit_active_attr = 0,
                                                    .memlimit_inactive = 6,
                                                    .memlimit_inactive_attr = 1};
  platform::memorystatus_control(platform::MEMORYSTATUS_CMD_SET_MEMLIMIT_PROPERTIES, pid, 0,
                                 &limits, sizeof(limits));
  story.expectSaid(
      files,
      runs +
          "daemon: memory limits 1450 MB active, 6 MB inactive\n"
          "daemon: the system ends it above so low a limit; this target of its own gives it more: "
          "vorlatchctl set vorlatchd MemLimitActive=32 MemLimitInactive=32 JetsamPriority=-1 "
          "NiceValue=-20\n");
}

// A process is no daemon with the program of another root, with another name, nor with a path that
// fills its buffer.
TEST(Doctor, SeesNoDaemonAndAnUnexpectedMode) {
  Installation story;
  std::filesystem::permissions(story.preferencesFile(), std::filesystem::perms::owner_read);
  story.device.launch({.name = "vorlatchd", .executable_path = "/elsewhere/usr/libexec/vorlatchd"});
  story.device.launch(
      {.name = "other", .executable_path = story.rootPath("/usr/libexec/vorlatchd")});
  story.device.script({.function = "proc_pidpath",
                       .pid = story.launchDaemon(),
                       .result = 4096,
                       .buffer = std::string(4096, '/')});
  story.expectSaid("{preferences}: file, mode 0400, " + sizeOf(story.preferencesFile()) +
                       " bytes (expected: a file of mode 0666)\n"
                       "{status}: missing\n{log}: missing\n",
                   "daemon: does not run\n");
}

TEST(Doctor, ChangesNothing) {
  Installation story;
  std::filesystem::remove(story.preferencesFile());
  story.expectSaid("{preferences}: missing\n{status}: missing\n{log}: missing\n",
                   "daemon: does not run\n");
  EXPECT_EQ(std::filesystem::is_empty(story.file("")), true);
  EXPECT_EQ(story.takeCalls().size(), 2U);  // the kernel's list, its size first
}

TEST(Doctor, SeesAnInterruptedRelease) {
  Installation story;
  writeAll(story.preferencesFile() + ".released", "x");
  story.launchDaemon();
  story.launchDaemon();
  story.device.kernel.caller_is_privileged = false;
  story.expectSaid("{preferences}" + fileText(story.preferencesFile()) +
                       "{status}: missing\n{log}: missing\n"
                       "{preferences}.released: preferences that an interrupted release set "
                       "aside; vorlatchctl release --keep-preferences puts them back\n",
                   "daemon: runs as 101, jetsam band -, nice 0\n"
                   "daemon: runs as 100, jetsam band -, nice 0\n"
                   "daemon: more than one runs, and they work against each other; end all but "
                   "one\n");
}

TEST(Doctor, AsJson) {
  Installation story;
  story.launchDaemon();
  std::filesystem::create_directory_symlink("/nowhere", story.logFile());
  writeAll(story.preferencesFile() + ".released", "x");
  const std::string is_root = geteuid() == 0 ? "true" : "false";
  EXPECT_EQ(story.answer("doctor --json"),
            pretty(R"({"root_prefix": {"path": "{root}", "found_by": "{root}/usr/lib/libroot.so"},
  "files": [{"path": "{preferences}", "exists": true, "type": "file", "mode": "0666",
  "size_bytes": )" +
                   sizeOf(story.preferencesFile()) +
                   R"(}, {"path": "{status}", "exists": false}, {"path": "{log}",
  "exists": true, "type": "link", "mode": "0777", "size_bytes": 8}],
  "release_was_interrupted": true, "daemons": [{"pid": 100, "band": 180, "nice": 0,
  "active_limit_mb": 1450, "inactive_limit_mb": 1450}], "kernel": {"system": ")" +
                   systemName() + R"(",
  "highest_band_by_version": null, "highest_band_by_daemon": null}, "is_root": )" +
                   is_root + R"(})"));
}

TEST(Doctor, NamesABuiltInRoot) {
  ControlStory story;
  story.device.root_prefix_library = "no-such-library";
  EXPECT_TRUE(story.answer("doctor").starts_with(
      "jailbreak root: /var/jb (built in: there is no no-such-library)\n"));
}

}  // namespace
}  // namespace vorlatch::tests
