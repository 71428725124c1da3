#include "config/default_preset.h"

#include <optional>
#include <string>

#include "base/files.h"
#include "config/preferences.h"
#include "config/property_list_file.h"
#include "log/log_line.h"
#include "rootprefix/pref_path.h"

namespace vorlatch {
namespace {

plist::Dictionary presetTarget(const char* remark, int jetsam_priority, int nice_value) {
  return {{keys::kRemark, remark},        {keys::kJetsamPriority, jetsam_priority},
          {keys::kNiceValue, nice_value}, {keys::kMemLimitActive, 0},
          {keys::kMemLimitInactive, 0},   {keys::kCheckInterval, 0}};
}

}  // namespace

plist::Dictionary defaultPreset() {
  const plist::Dictionary targets{
      {"SpringBoard", presetTarget("视图", 210, -19)},
      {"backboardd", presetTarget("触控", 210, -20)},
      {"com.tencent.xin", presetTarget("微信.xin", 160, 0)},
      {"dasd", presetTarget("后台刷新", -1, 1)},
      {"kbd", presetTarget("键盘", -1, -18)},
      {"runningboardd", presetTarget("任务调度", -1, -17)},
      {"sharingd", presetTarget("分享", -1, -16)},
  };
  return {{keys::kEnabled, true}, {keys::kAppConfigs, targets}};
}

void checkAndGenerateDefaultConfig() {
  const std::optional<std::string> path = getPrefPath(kPreferencesFileName);
  if (path && fileExists(*path)) return;
  if (path) {
    removeTemporariesOf(*path);
    writePropertyList(*path, defaultPreset());
    letEveryoneReadAndWrite(*path);
  }
  writeLogLine("[%s] [配置] 已生成默认预设参数\n");
}

}  // namespace vorlatch
