// The files of a daemon that holds some of a crowd of processes.
#pragma once

#include <cstddef>
#include <string>

#include "benchmarks/crowd.h"
#include "benchmarks/installation.h"
#include "config/preferences.h"
#include "config/property_list_file.h"
#include "config/status_file.h"

namespace vorlatch::benchmarks {

// The names of a crowd's processes begin so.
inline constexpr const char* kTargetPrefix = "target-";

// Writes the preferences and the status file for the first `count` processes of a crowd.
inline void writeFilesOf(const Crowd& crowd, std::size_t count) {
  plist::Dictionary targets;
  plist::Dictionary entries;
  for (const pid_t pid : crowd.pids()) {
    if (targets.size() == count) break;
    const std::string name = kTargetPrefix + std::to_string(targets.size());
    targets.insert_or_assign(name, plist::Dictionary{{"JetsamPriority", -1}, {"NiceValue", 0}});
    entries.insert_or_assign(name, plist::Dictionary{{"pid", pid}, {"n", 0}, {"p", 180}});
  }
  writePropertyList(Installation::preferences(kPreferencesFileName),
                    plist::Dictionary{{"Enabled", true}, {"AppConfigs", targets}});
  writePropertyList(Installation::preferences(kStatusFileName), entries);
}

}  // namespace vorlatch::benchmarks
