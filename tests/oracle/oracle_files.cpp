// The oracle's rules for the files: log limit, targets and preset.
#include <array>
#include <cstdio>

#include "tests/oracle/oracle.h"
#include "tests/oracle/reading.h"

namespace vorlatch::tests {

using plist::Dictionary;

void Oracle::clearLog() {
  std::int64_t limit_bytes = 2097152;
  const auto preferences = daemon_.readsPreferences();
  if (preferences && preferences->contains("LogSizeLimit")) {
    limit_bytes = longIn(*preferences, "LogSizeLimit");
    if (limit_bytes < 1) return;
  }
  if (!daemon_.clearsLog(limit_bytes)) return;
  std::array<char, 64> megabytes{};
  std::snprintf(megabytes.data(), megabytes.size(), "%.1f",
                static_cast<double>(limit_bytes) / 1048576);
  line("[守护] 日志大小超过设定限制(", megabytes.data(), "MB)，已自动清空。");
}

// Ignores entries that are not dictionaries.
std::optional<Oracle::Targets> Oracle::targetsIn(const std::optional<Dictionary>& preferences) {
  if (!preferences) return std::nullopt;
  const auto enabled = preferences->find("Enabled");
  if (enabled == preferences->end() || !isTrue(enabled->second)) return std::nullopt;
  Targets targets;
  const auto entry = preferences->find("AppConfigs");
  if (entry == preferences->end()) return targets;
  const auto* configs = entry->second.as<Dictionary>();
  if (configs == nullptr) return targets;
  for (const auto& [key, value] : *configs) {
    if (const auto* settings = value.as<Dictionary>()) targets[key] = *settings;
  }
  return targets;
}

Dictionary Oracle::preset() {
  struct Row {
    const char* key;
    const char* remark;
    int band;
    int nice;
  };
  constexpr std::array<Row, 7> kRows = {{{"SpringBoard", "视图", 210, -19},
                                         {"backboardd", "触控", 210, -20},
                                         {"com.tencent.xin", "微信.xin", 160, 0},
                                         {"dasd", "后台刷新", -1, 1},
                                         {"kbd", "键盘", -1, -18},
                                         {"runningboardd", "任务调度", -1, -17},
                                         {"sharingd", "分享", -1, -16}}};
  Dictionary targets;
  for (const Row& row : kRows) {
    targets.emplace(row.key, Dictionary{{"Remark", row.remark},
                                        {"JetsamPriority", row.band},
                                        {"NiceValue", row.nice},
                                        {"MemLimitActive", 0},
                                        {"MemLimitInactive", 0},
                                        {"CheckInterval", 0}});
  }
  return {{"Enabled", true}, {"AppConfigs", targets}};
}

}  // namespace vorlatch::tests
