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

const std::string kNoStatusAndLog =
    "! {status}: missing\n"
    "  -> start the daemon and run vorlatchctl apply: it writes this file\n"
    "! {log}: missing\n"
    "  -> start the daemon: it opens its log at once\n";
const std::string kNoDaemon =
    "! daemon: does not run\n"
    "  -> start it: sudo launchctl bootstrap system "
    "{root}/Library/LaunchDaemons/com.zel.vorlatch.plist, or install the package again\n";

// A story in which nothing is installed but the daemon's program and preferences.
struct Installation : ControlStory {
  Installation() { writePreferences({}); }

  // The doctor says this between the root and the kernel. Ends with 1 if it finds something.
  void expectSaid(const std::string& of_files, const std::string& of_daemons) {
    const bool finds = (of_files + of_daemons).find("! ") != std::string::npos;
    EXPECT_EQ(answer("doctor"),
              "jailbreak root: {root} (by {root}/usr/lib/libroot.so)\n" + of_files + of_daemons +
                  "kernel: " + systemName() +
                  ", highest jetsam band unknown by its version, unknown by the daemon's own\n" +
                  (geteuid() == 0 ? "" : "user: not root, so the kernel answers only in part\n") +
                  (finds ? "exit 1\n" : ""));
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
  const std::string runs = "daemon: runs as 100, jetsam band 180, nice -20, memory MB -\n";
  story.expectSaid(files, runs + "daemon: memory limits 1450 MB active, 1450 MB inactive\n");
  platform::memorystatus_memlimit_properties limits{.memlimit_active = -1,
                                                    .memlimit_active_attr = 0,
                                                    .memlimit_inactive = 6,
                                                    .memlimit_inactive_attr = 1};
  platform::memorystatus_control(platform::MEMORYSTATUS_CMD_SET_MEMLIMIT_PROPERTIES, pid, 0,
                                 &limits, sizeof(limits));
  story.expectSaid(
      files, runs +
                 "daemon: memory limits 1450 MB active, 6 MB inactive\n"
                 "! the system ends the daemon above so low a limit\n"
                 "  -> make it a target of its own: vorlatchctl set vorlatchd MemLimitActive=32 "
                 "MemLimitInactive=32 JetsamPriority=-1 NiceValue=-20\n");
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
  story.expectSaid("! {preferences}: file, mode 0400, " + sizeOf(story.preferencesFile()) +
                       " bytes (expected: a file of mode 0666)\n"
                       "  -> remove what stands there, or chmod 0666 it, and restart the daemon\n" +
                       kNoStatusAndLog,
                   kNoDaemon);
}

TEST(Doctor, ChangesNothing) {
  Installation story;
  std::filesystem::remove(story.preferencesFile());
  story.expectSaid(
      "! {preferences}: missing\n"
      "  -> start the daemon, which writes its default preset, or run vorlatchctl "
      "preset\n" +
          kNoStatusAndLog,
      kNoDaemon);
  EXPECT_EQ(std::filesystem::is_empty(story.file("")), true);
  // The kernel's list, and its snapshot for the memory that is hidden; the size first.
  EXPECT_EQ(story.takeCalls(), (Lines{"memorystatus_control(1, 0, 0, null, 0) = 24",
                                      "memorystatus_control(1, 0, 0, buffer, 264) = 24",
                                      "memorystatus_control(3, 0, 1, null, 0) = -1 errno 22"}));
}

TEST(Doctor, SeesAnInterruptedRelease) {
  Installation story;
  writeAll(story.preferencesFile() + ".released", "x");
  story.launchDaemon();
  story.launchDaemon();
  story.device.kernel.caller_is_privileged = false;
  story.expectSaid("{preferences}" + fileText(story.preferencesFile()) + kNoStatusAndLog +
                       "! {preferences}.released: preferences that an interrupted release set "
                       "aside\n  -> vorlatchctl release --keep-preferences puts them back\n",
                   "daemon: runs as 101, jetsam band -, nice 0, memory MB -\n"
                   "daemon: runs as 100, jetsam band -, nice 0, memory MB -\n"
                   "! daemon: more than one runs, and they work against each other\n"
                   "  -> end all but one\n");
}

TEST(Doctor, AsJson) {
  Installation story;
  story.launchDaemon();
  std::filesystem::create_directory_symlink("/nowhere", story.logFile());
  writeAll(story.preferencesFile() + ".released", "x");
  story.device.memory = {.total_bytes = 3 << 20, .free_bytes = 2 << 20, .compressed_bytes = 1};
  story.device.find(100)->memory = {{.footprint_bytes = 1 << 20, .peak_bytes = 1 << 20}};
  const std::string is_root = geteuid() == 0 ? "true" : "false";
  const std::string memory =
      R"({"used_bytes": 1048576, "peak_bytes": 1048576, "limit_mb": 1450, "used_percent": 0})";
  EXPECT_EQ(story.answer("doctor --json"),
            pretty(R"j({"findings": [
  {"code": "missing-file", "message": "{status}: missing",
   "next_step": "start the daemon and run vorlatchctl apply: it writes this file"},
  {"code": "wrong-file",
   "message": "{log}: link, mode 0777, 8 bytes (expected: a file of mode 0666)",
   "next_step": "remove what stands there, or chmod 0666 it, and restart the daemon"
},
  {"code": "interrupted-release",
   "message": "{preferences}.released: preferences that an interrupted release set aside",
   "next_step": "vorlatchctl release --keep-preferences puts them back"}],
  "root_prefix": {"path": "{root}", "found_by": "{root}/usr/lib/libroot.so"},
  "files": [{"path": "{preferences}", "exists": true, "type": "file", "mode": "0666",
  "size_bytes": )j" +
                   sizeOf(story.preferencesFile()) +
                   R"(}, {"path": "{status}", "exists": false}, {"path": "{log}",
  "exists": true, "type": "link", "mode": "0777", "size_bytes": 8}],
  "release_was_interrupted": true, "daemons": [{"pid": 100, "band": 180, "nice": 0,
  "active_limit_mb": 1450, "inactive_limit_mb": 1450, "memory": )" +
                   memory + R"(}],
  "memory": {"total_bytes": 3145728, "free_bytes": 2097152, "compressed_bytes": 1,
  "largest": [{"pid": 100, "name": "vorlatchd", "memory": )" +
                   memory + R"(}]}, "kernel": {"system": ")" + systemName() + R"(",
  "highest_band_by_version": null, "highest_band_by_daemon": null}, "is_root": )" +
                   is_root + "}") +
                "exit 1\n");
}

TEST(Doctor, NamesABuiltInRoot) {
  ControlStory story;
  story.device.root_prefix_library = "no-such-library";
  EXPECT_TRUE(story.answer("doctor").starts_with(
      "jailbreak root: /var/jb (built in: there is no no-such-library)\n"));
}

}  // namespace
}  // namespace vorlatch::tests
