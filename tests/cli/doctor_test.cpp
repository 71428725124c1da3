// vorlatchctl doctor: how the installation stands.
#include <sys/utsname.h>
#include <unistd.h>

#include <filesystem>

#include <gtest/gtest.h>

#include "platform/memorystatus.h"
#include "tests/cli/control_run.h"

namespace vorlatch::tests {
namespace {

using plist::Dictionary;

std::string systemName() {
  utsname system{};
  uname(&system);
  return std::string(system.sysname) + " " + system.release;
}

std::string userLine() {
  return geteuid() == 0 ? "" : "user: not root, so the kernel answers only in part\n";
}

std::string kernelLine(const std::string& by_daemon) {
  return "kernel: " + systemName() + ", highest jetsam band unknown by its version, " + by_daemon +
         " by the daemon's own\n";
}

// A story in which nothing is installed but the daemon's program.
struct Installation : ControlStory {
  Installation() { writePreferences({}); }

  [[nodiscard]] std::string rootLine() const {
    return "jailbreak root: " + rootPath("") + " (by " + rootPath("/usr/lib/libroot.so") + ")\n";
  }
  [[nodiscard]] std::string preferencesSize() const {
    return std::to_string(std::filesystem::file_size(preferencesFile()));
  }
};

TEST(Doctor, ADaemonAtWork) {
  Installation story;
  const auto pid = story.launchDaemon();
  story.startAndSettle();
  story.device.launch({.name = "alpha"});
  story.writeTargets({{"alpha", Dictionary{}}});
  story.postAndRun();
  story.device.find(pid)->nice_value = -20;
  const auto size = [](const std::string& path) {
    return std::to_string(std::filesystem::file_size(path)) + " bytes\n";
  };
  const std::string file = ": file, mode 0666, ";
  EXPECT_EQ(story.run({"doctor"}),
            (Output{0,
                    story.rootLine() + story.preferencesFile() + file +
                        size(story.preferencesFile()) + story.statusFile() + file +
                        size(story.statusFile()) + story.logFile() + file + size(story.logFile()) +
                        "daemon: runs as 100, jetsam band 180, nice -20\n"
                        "daemon: memory limits 1450 MB active, 1450 MB inactive\n" +
                        kernelLine("unknown") + userLine(),
                    ""}));
}

TEST(Doctor, ADaemonOfFewMegabytes) {
  Installation story;
  const auto pid = story.launchDaemon();
  platform::memorystatus_memlimit_properties limits{.memlimit_active = -1,
                                                    .memlimit_active_attr = 0,
                                                    .memlimit_inactive = 6,
                                                    .memlimit_inactive_attr = 1};
  platform::memorystatus_control(platform::MEMORYSTATUS_CMD_SET_MEMLIMIT_PROPERTIES, pid, 0,
                                 &limits, sizeof(limits));
  const std::string out = story.run({"doctor"}).out;
  const std::string said =
      "daemon: memory limits 1450 MB active, 6 MB inactive\n"
      "daemon: the system ends it above so low a limit; this target of its own gives it more: "
      "vorlatchctl set vorlatchd MemLimitActive=32 MemLimitInactive=32 JetsamPriority=-1 "
      "NiceValue=-20\n";
  EXPECT_NE(out.find(said), std::string::npos) << out;
}

TEST(Doctor, NothingButPreferencesOfAnUnexpectedMode) {
  Installation story;
  std::filesystem::permissions(story.preferencesFile(), std::filesystem::perms::owner_read);
  EXPECT_EQ(story.run({"doctor"}),
            (Output{0,
                    story.rootLine() + story.preferencesFile() + ": file, mode 0400, " +
                        story.preferencesSize() + " bytes (expected: a file of mode 0666)\n" +
                        story.statusFile() + ": missing\n" + story.logFile() +
                        ": missing\n"
                        "daemon: does not run\n" +
                        kernelLine("unknown") + userLine(),
                    ""}));
}

TEST(Doctor, NothingIsChanged) {
  ControlStory story;
  EXPECT_EQ(story.run({"doctor"}).status, 0);
  const std::filesystem::path directory = story.rootPath("/var/mobile/Library/Preferences");
  EXPECT_EQ(std::filesystem::is_empty(directory), true);
  EXPECT_EQ(story.takeCalls().size(), 2U);  // the kernel's list, its size first
}

TEST(Doctor, AsJson) {
  Installation story;
  story.launchDaemon();
  std::filesystem::create_directory_symlink("/nowhere", story.logFile());
  writeAll(story.preferencesFile() + ".released", "x");
  const auto link_size = std::filesystem::read_symlink(story.logFile()).string().size();
  const std::string root = story.rootPath("");
  EXPECT_EQ(story.run({"doctor", "--json"}), (Output{0,
                                                     R"({
  "root_prefix": {
    "path": ")" + root + R"(",
    "found_by": ")" + root + R"(/usr/lib/libroot.so"
  },
  "files": [
    {
      "path": ")" + story.preferencesFile() +
                                                         R"(",
      "exists": true,
      "type": "file",
      "mode": "0666",
      "size_bytes": )" + story.preferencesSize() +
                                                         R"(
    },
    {
      "path": ")" + story.statusFile() +
                                                         R"(",
      "exists": false
    },
    {
      "path": ")" + story.logFile() +
                                                         R"(",
      "exists": true,
      "type": "link",
      "mode": "0777",
      "size_bytes": )" + std::to_string(link_size) +
                                                         R"(
    }
  ],
  "release_was_interrupted": true,
  "daemons": [
    {
      "pid": 100,
      "band": 180,
      "nice": 0,
      "active_limit_mb": 1450,
      "inactive_limit_mb": 1450
    }
  ],
  "kernel": {
    "system": ")" + systemName() +
                                                         R"(",
    "highest_band_by_version": null,
    "highest_band_by_daemon": null
  },
  "is_root": )" + (geteuid() == 0 ? "true" : "false") + "\n}\n",
                                                     ""}));
}

TEST(Doctor, AnInterruptedReleaseASecondDaemonAndWhatItCannotAsk) {
  Installation story;
  writeAll(story.preferencesFile() + ".released", "x");
  story.launchDaemon();
  story.launchDaemon();
  story.device.kernel.caller_is_privileged = false;
  EXPECT_EQ(story.run({"doctor"}),
            (Output{0,
                    story.rootLine() + story.preferencesFile() + ": file, mode 0666, " +
                        story.preferencesSize() + " bytes\n" + story.statusFile() + ": missing\n" +
                        story.logFile() + ": missing\n" + story.preferencesFile() +
                        ".released: preferences that an interrupted release set aside; "
                        "vorlatchctl release --keep-preferences puts them back\n"
                        "daemon: runs as 101, jetsam band -, nice 0\n"
                        "daemon: runs as 100, jetsam band -, nice 0\n"
                        "daemon: more than one runs, and they work against each other; end all "
                        "but one\n" +
                        kernelLine("unknown") + userLine(),
                    ""}));
}

TEST(Doctor, ADaemonOfAnotherRootIsNotThisOnes) {
  Installation story;
  story.device.launch({.name = "vorlatchd", .executable_path = "/elsewhere/usr/libexec/vorlatchd"});
  story.device.launch(
      {.name = "other", .executable_path = story.rootPath("/usr/libexec/vorlatchd")});
  EXPECT_NE(story.run({"doctor"}).out.find("\ndaemon: does not run\n"), std::string::npos);
}

TEST(Doctor, AProcessWhosePathFillsItsBufferIsNoDaemon) {
  Installation story;
  story.device.script({.function = "proc_pidpath",
                       .pid = story.launchDaemon(),
                       .result = 4096,
                       .buffer = std::string(4096, '/')});
  EXPECT_NE(story.run({"doctor"}).out.find("daemon: does not run\n"), std::string::npos);
}

TEST(Doctor, WithoutTheRootPrefixLibrary) {
  ControlStory story;
  story.device.root_prefix_library = "no-such-library";
  const Output output = story.run({"doctor"});
  EXPECT_EQ(output.out.substr(0, output.out.find('\n')),
            "jailbreak root: /var/jb (built in: there is no no-such-library)");
}

}  // namespace
}  // namespace vorlatch::tests
