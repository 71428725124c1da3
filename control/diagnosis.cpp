#include "control/diagnosis.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <string_view>

#include "config/status_file.h"
#include "control/memory_view.h"
#include "control/setting_views.h"
#include "control/translation.h"
#include "log/log_file.h"
#include "platform/jetsam_bands.h"
#include "platform/memory_use.h"
#include "platform/root_prefix_library.h"
#include "rootprefix/libroot.h"
#include "rootprefix/pref_path.h"

namespace vorlatch::control {
namespace {

// Far more than the daemon needs; a lower limit is reported.
constexpr std::int32_t kAmpleLimitMb = 16;
constexpr mode_t kPermissionBits = 07777;
constexpr mode_t kExpectedMode = 0666;

const char* typeText(mode_t mode) {
  if (S_ISREG(mode)) return english("file");
  if (S_ISDIR(mode)) return english("directory");
  return S_ISLNK(mode) ? english("link") : english("special file");
}

std::string octal(mode_t mode) {
  std::array<char, 8> text{};
  std::snprintf(text.data(), text.size(), "%04o", static_cast<unsigned>(mode & kPermissionBits));
  return text.data();
}

struct Diagnosis {
  Json& report;
  std::vector<std::string>& lines;

  void say(std::string line) { lines.push_back(std::move(line)); }
  // Adds something that is wrong: its word for programs, what it is, and what to do about it.
  void find(const char* code, const std::string& what, const std::string& next_step) {
    report["findings"].push_back({{"code", code}, {"message", what}, {"next_step", next_step}});
    say("! " + what);
    say("  -> " + next_step);
  }
};

void lookAtRoot(Diagnosis& diagnosis) {
  const std::string prefix = libroot_get_jbroot_prefix();  // loads the library, if it exists
  const char* library = platform::rootPrefixLibraryName();
  void* loaded = dlopen(library, RTLD_LAZY | RTLD_NOLOAD);
  if (loaded != nullptr) dlclose(loaded);
  const std::string found_by = loaded != nullptr ? library : "built-in";
  diagnosis.report["root_prefix"] = {{"path", prefix}, {"found_by", found_by}};
  diagnosis.say(loaded != nullptr
                    ? tr("jailbreak root: %s (by %s)", prefix, found_by)
                    : tr("jailbreak root: %s (built in: there is no %s)", prefix, library));
}

// What to do about a file that is missing or is no file of the right mode.
struct WatchedFile {
  const char* name;
  const char* if_missing;
};
constexpr std::array<WatchedFile, 3> kFiles = {{
    {kPreferencesFileName, english("start the daemon, which writes its default preset, or run "
                                   "vorlatchctl preset")},
    {kStatusFileName, english("start the daemon and run vorlatchctl apply: it writes this file")},
    {kLogFileName, english("start the daemon: it opens its log at once")},
}};

void lookAtFile(Diagnosis& diagnosis, const WatchedFile& watched) {
  const std::optional<std::string> path = getPrefPath(watched.name);
  Json file{{"path", jsonOf(path)}, {"exists", false}};
  struct stat status {};
  if (!path || ::lstat(path->c_str(), &status) != 0) {
    diagnosis.find("missing-file", tr("%s: missing", path.value_or(watched.name)),
                   translated(watched.if_missing));
  } else {
    const bool as_expected =
        S_ISREG(status.st_mode) && (status.st_mode & kPermissionBits) == kExpectedMode;
    file["exists"] = true;
    file["type"] = typeText(status.st_mode);
    file["mode"] = octal(status.st_mode);
    file["size_bytes"] = static_cast<std::int64_t>(status.st_size);
    const std::string facts =
        tr("%s: %s, mode %s, %s bytes", *path, translated(typeText(status.st_mode)),
           octal(status.st_mode), status.st_size);
    if (as_expected) {
      diagnosis.say(facts);
    } else {
      diagnosis.find("wrong-file", tr("%s (expected: a file of mode 0666)", facts),
                     tr("remove what stands there, or chmod 0666 it, and restart the daemon"));
    }
  }
  diagnosis.report["files"].push_back(file);
}

void lookAtSetAside(Diagnosis& diagnosis) {
  const std::optional<std::string> path = getPrefPath(kPreferencesFileName);
  struct stat status {};
  const bool left = path && ::lstat((*path + ".released").c_str(), &status) == 0;
  diagnosis.report["release_was_interrupted"] = left;
  if (left) {
    diagnosis.find("interrupted-release",
                   tr("%s.released: preferences that an interrupted release set aside", *path),
                   tr("vorlatchctl release --keep-preferences puts them back"));
  }
}

std::string limitText(std::int32_t limit_mb) {
  return limit_mb > 0 ? tr("%s MB", limit_mb) : tr("none");
}

bool isLow(std::int32_t limit_mb) {
  return limit_mb > 0 && limit_mb < kAmpleLimitMb;
}

// launchd gives a daemon that it does not know a memory limit of a few megabytes.
void sayLimits(Diagnosis& diagnosis, const MemoryLimits& now) {
  diagnosis.say(tr("daemon: memory limits %s active, %s inactive", limitText(now.active_mb),
                   limitText(now.inactive_mb)));
  if (!isLow(now.active_mb) && !isLow(now.inactive_mb)) return;
  diagnosis.find("low-limit", tr("the system ends the daemon above so low a limit"),
                 tr("make it a target of its own: vorlatchctl set vorlatchd MemLimitActive=32 "
                    "MemLimitInactive=32 JetsamPriority=-1 NiceValue=-20"));
}

void lookAtDaemon(Diagnosis& diagnosis, const Observation& observation) {
  diagnosis.report["daemons"] = Json::array();
  for (const std::int32_t pid : observation.daemon_pids) {
    const std::optional<std::int32_t> band = observation.band(pid);
    const ProcessState now = observeProcess(pid);
    const MemoryView memory = memoryOf(observation, pid);
    const auto limit = [&now](std::int32_t MemoryLimits::*which) {
      return now.memory_limits ? Json(*now.memory_limits.*which) : Json();
    };
    diagnosis.report["daemons"].push_back({{"pid", pid},
                                           {"band", jsonOf(band)},
                                           {"nice", jsonOf(now.nice_value)},
                                           {"active_limit_mb", limit(&MemoryLimits::active_mb)},
                                           {"inactive_limit_mb", limit(&MemoryLimits::inactive_mb)},
                                           {"memory", memoryJson(memory)}});
    diagnosis.say(tr("daemon: runs as %s, jetsam band %s, nice %s, memory MB %s", pid,
                     numberText(band), numberText(now.nice_value), memoryText(memory, false)));
    if (now.memory_limits) sayLimits(diagnosis, *now.memory_limits);
  }
  if (observation.daemon_pids.empty()) {
    diagnosis.find(
        "daemon-not-running", tr("daemon: does not run"),
        tr("start it: sudo launchctl bootstrap system "
           "%s/Library/LaunchDaemons/com.zel.vorlatch.plist, or install the package again",
           libroot_get_jbroot_prefix()));
  }
  if (observation.daemon_pids.size() > 1) {
    diagnosis.find("several-daemons",
                   tr("daemon: more than one runs, and they work against each other"),
                   tr("end all but one"));
  }
}

void lookAtMemory(Diagnosis& diagnosis, const Observation& observation) {
  constexpr std::size_t kLargest = 5;
  Json& report = diagnosis.report["memory"];
  report = {{"total_bytes", nullptr}, {"free_bytes", nullptr}, {"compressed_bytes", nullptr}};
  if (const auto machine = platform::memoryOfMachine()) {
    report = {{"total_bytes", machine->total_bytes},
              {"free_bytes", machine->free_bytes},
              {"compressed_bytes", machine->compressed_bytes}};
    diagnosis.say(tr("memory: %s MB, of which %s MB free and %s MB taken by compressed memory",
                     megabytesOf(machine->total_bytes), megabytesOf(machine->free_bytes),
                     megabytesOf(machine->compressed_bytes)));
  }
  std::vector<std::pair<MemoryView, const RunningProcess*>> by_size;
  for (const RunningProcess& process : observation.processes) {
    const MemoryView view = memoryOf(observation, process.pid);
    if (view.memory) by_size.emplace_back(view, &process);
  }
  std::stable_sort(by_size.begin(), by_size.end(), [](const auto& a, const auto& b) {
    return a.first.memory->footprint_bytes > b.first.memory->footprint_bytes;
  });
  by_size.resize(std::min(by_size.size(), kLargest));
  report["largest"] = Json::array();
  for (const auto& [view, process] : by_size) {
    report["largest"].push_back(
        {{"pid", process->pid}, {"name", process->name}, {"memory", memoryJson(view)}});
    diagnosis.say(
        tr("memory: %s (%s) uses MB %s", process->name, process->pid, memoryText(view, false)));
  }
}

// Returns Darwin's major version: 21 is iOS 15, 22 is iOS 16. Empty on another system.
std::optional<int> darwinMajor(const utsname& system) {
  if (std::string_view(system.sysname) != "Darwin") return std::nullopt;
  const std::string_view release = system.release;
  int major = 0;
  if (std::from_chars(release.data(), release.data() + release.size(), major).ec != std::errc{}) {
    return std::nullopt;
  }
  return major;
}

void lookAtKernel(Diagnosis& diagnosis, const Observation& observation) {
  constexpr int kDarwinOfIOS16 = 22;
  utsname system{};
  ::uname(&system);
  const std::optional<int> major = darwinMajor(system);
  std::optional<std::int32_t> by_version;
  if (major) {
    by_version =
        *major < kDarwinOfIOS16 ? platform::kHighestBandToIOS15 : platform::kHighestBandSinceIOS16;
  }
  // The daemon requests the highest band, so its band shows the generation if it is 21 or 210.
  std::optional<std::int32_t> by_daemon;
  if (!observation.daemon_pids.empty()) {
    by_daemon = observation.band(observation.daemon_pids.front());
  }
  const std::int32_t own_band = by_daemon.value_or(platform::kNoSuchBand);
  if (own_band != platform::kHighestBandToIOS15 && own_band != platform::kHighestBandSinceIOS16)
    by_daemon.reset();
  const std::string name = std::string(system.sysname) + " " + system.release;
  diagnosis.report["kernel"] = {{"system", name},
                                {"highest_band_by_version", jsonOf(by_version)},
                                {"highest_band_by_daemon", jsonOf(by_daemon)}};
  diagnosis.say(tr("kernel: %s, highest jetsam band %s by its version, %s by the daemon's own",
                   name, by_version ? std::to_string(*by_version) : tr("unknown"),
                   by_daemon ? std::to_string(*by_daemon) : tr("unknown")));
  if (by_version && by_daemon && by_version != by_daemon) {
    diagnosis.find(
        "band-mismatch", tr("kernel: the version and the daemon's own band differ"),
        tr("see the first lines of vorlatchctl log: they show what the daemon was refused"));
  }
}

}  // namespace

nlohmann::ordered_json diagnose(std::vector<std::string>& lines) {
  Json report{{"findings", Json::array()}};
  Diagnosis diagnosis{.report = report, .lines = lines};
  const Observation observation = Observation::now();
  lookAtRoot(diagnosis);
  for (const WatchedFile& file : kFiles) lookAtFile(diagnosis, file);
  lookAtSetAside(diagnosis);
  lookAtDaemon(diagnosis, observation);
  lookAtMemory(diagnosis, observation);
  lookAtKernel(diagnosis, observation);
  report["is_root"] = ::geteuid() == 0;
  if (::geteuid() != 0) diagnosis.say(tr("user: not root, so the kernel answers only in part"));
  return report;
}

}  // namespace vorlatch::control
