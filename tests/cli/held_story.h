// A story in which the daemon runs as 100 and holds one target, the process alpha, which is 101.
#pragma once

#include <filesystem>
#include <string>

#include "tests/cli/control_run.h"

namespace vorlatch::tests {

inline const plist::Dictionary kAlphaSettings{{"NiceValue", -7},
                                              {"JetsamPriority", 100},
                                              {"MemLimitActive", 1500},
                                              {"MemLimitInactive", 1000}};

struct HeldStory : ControlStory {
  explicit HeldStory(const plist::Dictionary& settings = kAlphaSettings,
                     const simulated::Launch& alpha = {.name = "alpha"},
                     const std::string& key = "alpha") {
    launchDaemon();
    device.launch(alpha);
    writeTargets({{key, settings}});
    startAndSettle();
  }

  // The preferences change a minute after the daemon last wrote its status file.
  void editLater(const plist::Dictionary& targets) const {
    writeTargets(targets);
    const auto written = std::filesystem::last_write_time(statusFile());
    std::filesystem::last_write_time(preferencesFile(), written + 1min);
  }
};

}  // namespace vorlatch::tests
