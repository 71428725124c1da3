#include "config/target_settings.h"

#include <algorithm>

namespace vorlatch {

const SettingKey* findSettingKey(std::string_view key) {
  const auto* const row = std::find_if(kSettingKeys.begin(), kSettingKeys.end(),
                                       [key](const SettingKey& each) { return each.key == key; });
  return row == kSettingKeys.end() ? nullptr : row;
}

TargetSettings readTargetSettings(const plist::Dictionary& dictionary) {
  TargetSettings settings;
  for (const SettingKey& row : kSettingKeys) {
    const plist::Value* value = plist::find(dictionary, row.key);
    if (value == nullptr) continue;
    if (row.integer != nullptr) {
      const std::int32_t number = plist::int32Value(*value);
      settings.*row.integer = row.is_clamped ? std::clamp(number, row.lowest, row.highest) : number;
    } else if (row.boolean != nullptr) {
      settings.*row.boolean = plist::truthValue(*value);
    }
  }
  return settings;
}

}  // namespace vorlatch
