// A day of the daemon on a device with 600 processes, with its heap counted.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

#include "platform/property_list.h"
#include "tests/support/heap_count.h"
#include "tests/support/story.h"

namespace vorlatch::tests {

inline constexpr int kHeapDayProcesses = 600;

// Every third process is an app.
class HeapDay : public Story {
 public:
  HeapDay() {
    device.is_tracing = false;
    for (int i = 0; i < kHeapDayProcesses; ++i) {
      const std::string name = "process-" + std::to_string(i);
      const std::string app =
          i % 3 == 0 ? installApp("App" + std::to_string(i) + ".app",
                                  plist::Dictionary{{"CFBundleIdentifier", "org.app." + name}})
                     : "/usr/libexec/" + name;
      device.launch({.name = name, .executable_path = app});
    }
  }

  // The peak heap use above the use before the start. The day: a start with these preferences, a
  // phase with ticks and patrols, an edit, another phase, and the removal of all targets.
  std::size_t peakBytes(const std::string& preferences, const std::string& edited,
                        std::chrono::nanoseconds phase) {
    const std::size_t before_bytes = heapBytes();
    restartHeapPeak();
    writeAll(preferencesFile(), preferences);
    start();
    run(phase);
    held_targets_ = status().size();
    writeAll(preferencesFile(), edited);
    postAndRun();
    run(phase);
    writeAll(preferencesFile(), "");
    postAndRun();
    return heapPeakBytes() - before_bytes;
  }

  // The number of entries in the status file at the end of the first phase.
  [[nodiscard]] std::size_t heldTargets() const { return held_targets_; }

 private:
  std::size_t held_targets_ = 0;
};

// Running targets as users configure them, with every setting and a remark.
inline std::string ordinaryPreferences(int targets, int nice_value) {
  plist::Dictionary configs;
  for (int i = 0; i < targets; ++i) {
    const std::string name = "process-" + std::to_string(i);
    configs.insert_or_assign(i % 3 == 0 ? "org.app." + name : name,
                             plist::Dictionary{{"Remark", "遊戲 " + std::to_string(i)},
                                               {"JetsamPriority", 100},
                                               {"MemLimitActive", 2048},
                                               {"MemLimitInactive", 2048},
                                               {"NiceValue", nice_value},
                                               {"StripManaged", true},
                                               {"CheckInterval", 1200}});
  }
  return platform::writeXmlPropertyList(
      plist::Dictionary{{"Enabled", true}, {"AppConfigs", configs}});
}

}  // namespace vorlatch::tests
