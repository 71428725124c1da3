#include "control/diagnosis.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <cstdio>
#include <string_view>

#include "config/status_file.h"
#include "control/setting_views.h"
#include "log/log_file.h"
#include "platform/jetsam_bands.h"
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
  if (S_ISREG(mode)) return "file";
  if (S_ISDIR(mode)) return "directory";
  return S_ISLNK(mode) ? "link" : "special file";
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
};

void lookAtRoot(Diagnosis& diagnosis) {
  const std::string prefix = libroot_get_jbroot_prefix();  // loads the library, if it exists
  const char* library = platform::rootPrefixLibraryName();
  void* loaded = dlopen(library, RTLD_LAZY | RTLD_NOLOAD);
  if (loaded != nullptr) dlclose(loaded);
  const std::string found_by = loaded != nullptr ? library : "built-in";
  diagnosis.report["root_prefix"] = {{"path", prefix}, {"found_by", found_by}};
  diagnosis.say("jailbreak root: " + prefix +
                (loaded != nullptr ? " (by " + found_by + ")"
                                   : " (built in: there is no " + std::string(library) + ")"));
}

void lookAtFile(Diagnosis& diagnosis, const char* name) {
  const std::optional<std::string> path = getPrefPath(name);
  Json file{{"path", jsonOf(path)}, {"exists", false}};
  struct stat status {};
  if (!path || ::lstat(path->c_str(), &status) != 0) {
    diagnosis.say(path.value_or(name) + ": missing");
  } else {
    const bool as_expected =
        S_ISREG(status.st_mode) && (status.st_mode & kPermissionBits) == kExpectedMode;
    file["exists"] = true;
    file["type"] = typeText(status.st_mode);
    file["mode"] = octal(status.st_mode);
    file["size_bytes"] = static_cast<std::int64_t>(status.st_size);
    diagnosis.say(*path + ": " + typeText(status.st_mode) + ", mode " + octal(status.st_mode) +
                  ", " + std::to_string(status.st_size) + " bytes" +
                  (as_expected ? "" : " (expected: a file of mode 0666)"));
  }
  diagnosis.report["files"].push_back(file);
}

void lookAtSetAside(Diagnosis& diagnosis) {
  const std::optional<std::string> path = getPrefPath(kPreferencesFileName);
  struct stat status {};
  const bool left = path && ::lstat((*path + ".released").c_str(), &status) == 0;
  diagnosis.report["release_was_interrupted"] = left;
  if (left) {
    diagnosis.say(*path + ".released: preferences that an interrupted release set aside; " +
                  "vorlatchctl release --keep-preferences puts them back");
  }
}

std::string limitText(std::int32_t limit_mb) {
  return limit_mb > 0 ? std::to_string(limit_mb) + " MB" : "none";
}

bool isLow(std::int32_t limit_mb) {
  return limit_mb > 0 && limit_mb < kAmpleLimitMb;
}

// launchd gives a daemon that it does not know a memory limit of a few megabytes.
void sayLimits(Diagnosis& diagnosis, const MemoryLimits& now) {
  diagnosis.say("daemon: memory limits " + limitText(now.active_mb) + " active, " +
                limitText(now.inactive_mb) + " inactive");
  if (!isLow(now.active_mb) && !isLow(now.inactive_mb)) return;
  diagnosis.say(
      "daemon: the system ends it above so low a limit; this target of its own gives it more: "
      "vorlatchctl set vorlatchd MemLimitActive=32 MemLimitInactive=32 JetsamPriority=-1 "
      "NiceValue=-20");
}

void lookAtDaemon(Diagnosis& diagnosis, const Observation& observation) {
  diagnosis.report["daemons"] = Json::array();
  for (const std::int32_t pid : observation.daemon_pids) {
    const std::optional<std::int32_t> band = observation.band(pid);
    const ProcessState now = observeProcess(pid);
    const auto limit = [&now](std::int32_t MemoryLimits::*which) {
      return now.memory_limits ? Json(*now.memory_limits.*which) : Json();
    };
    diagnosis.report["daemons"].push_back(
        {{"pid", pid},
         {"band", jsonOf(band)},
         {"nice", jsonOf(now.nice_value)},
         {"active_limit_mb", limit(&MemoryLimits::active_mb)},
         {"inactive_limit_mb", limit(&MemoryLimits::inactive_mb)}});
    diagnosis.say("daemon: runs as " + std::to_string(pid) + ", jetsam band " + numberText(band) +
                  ", nice " + numberText(now.nice_value));
    if (now.memory_limits) sayLimits(diagnosis, *now.memory_limits);
  }
  if (observation.daemon_pids.empty()) diagnosis.say("daemon: does not run");
  if (observation.daemon_pids.size() > 1) {
    diagnosis.say("daemon: more than one runs, and they work against each other; end all but one");
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
  diagnosis.say("kernel: " + name + ", highest jetsam band " +
                (by_version ? std::to_string(*by_version) : "unknown") + " by its version, " +
                (by_daemon ? std::to_string(*by_daemon) : "unknown") + " by the daemon's own");
  if (by_version && by_daemon && by_version != by_daemon) {
    diagnosis.say("kernel: the two differ; the log's first lines show what the daemon was refused");
  }
}

}  // namespace

nlohmann::ordered_json diagnose(std::vector<std::string>& lines) {
  Json report;
  Diagnosis diagnosis{.report = report, .lines = lines};
  const Observation observation = Observation::now();
  lookAtRoot(diagnosis);
  for (const char* name : {kPreferencesFileName, kStatusFileName, kLogFileName}) {
    lookAtFile(diagnosis, name);
  }
  lookAtSetAside(diagnosis);
  lookAtDaemon(diagnosis, observation);
  lookAtKernel(diagnosis, observation);
  report["is_root"] = ::geteuid() == 0;
  if (::geteuid() != 0) diagnosis.say("user: not root, so the kernel answers only in part");
  return report;
}

}  // namespace vorlatch::control
