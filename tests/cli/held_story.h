// Stories in which the daemon runs as 100.
#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "tests/cli/control_run.h"

namespace vorlatch::tests {

inline const Dictionary kAlphaSettings = dictionary(
    R"({"NiceValue": -7, "JetsamPriority": 100, "MemLimitActive": 1500, "MemLimitInactive": 1000})");
inline const Dictionary kLeftAlone{{"JetsamPriority", -1}};

// The daemon holds one target, the process alpha, which is 101. prepare() runs before the daemon
// starts.
struct HeldStory : ControlStory {
  explicit HeldStory(const Dictionary& settings = kAlphaSettings,
                     const simulated::Launch& alpha = {.name = "alpha"},
                     const std::function<void(simulated::Device&)>& prepare = {}) {
    launchDaemon();
    device.launch(alpha);
    if (prepare) prepare(device);
    writeTargets({{"alpha", settings}});
    startAndSettle();
  }

  // The preferences change a minute after the daemon last wrote its status file.
  void editLater(const Dictionary& targets) const {
    writeTargets(targets);
    const auto written = std::filesystem::last_write_time(statusFile());
    std::filesystem::last_write_time(preferencesFile(), written + 1min);
  }
};

// The target is an app of two processes: a pass takes the older, App, which is 101, the watch timer
// the newer, Helper, which is 102.
struct WatchedAppStory : ControlStory {
  explicit WatchedAppStory(const Dictionary& settings) {
    launchDaemon();
    const auto app = installApp("A.app", Dictionary{{"CFBundleIdentifier", "org.app"}});
    device.launch({.name = "App", .executable_path = app});
    device.launch({.name = "Helper", .executable_path = app});
    writeTargets({{"org.app", settings}});
    startAndSettle();
  }
};

}  // namespace vorlatch::tests
