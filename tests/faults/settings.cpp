#include "tests/faults/settings.h"

namespace vorlatch::faults {

plist::Dictionary dictionaryOf(const Preferences& preferences) {
  plist::Dictionary targets;
  for (const auto& [key, settings] : preferences.targets) {
    plist::Dictionary entry{{"MemLimitActive", settings.active_mb},
                            {"MemLimitInactive", settings.inactive_mb},
                            {"NiceValue", settings.nice},
                            {"JetsamPriority", settings.band},
                            {"CheckInterval", settings.interval_s}};
    if (settings.strip) entry.insert_or_assign("StripManaged", *settings.strip);
    targets.insert_or_assign(key, entry);
  }
  return {{"Enabled", preferences.is_enabled},
          {"LogSizeLimit", preferences.log_limit_bytes},
          {"AppConfigs", targets}};
}

Preferences presetPreferences() {
  return {.targets = {{"SpringBoard", {.nice = -19, .band = 210}},
                      {"backboardd", {.nice = -20, .band = 210}},
                      {"com.tencent.xin", {.nice = 0, .band = 160}},
                      {"dasd", {.nice = 1, .band = -1}},
                      {"kbd", {.nice = -18, .band = -1}},
                      {"runningboardd", {.nice = -17, .band = -1}},
                      {"sharingd", {.nice = -16, .band = -1}}}};
}

}  // namespace vorlatch::faults
