#include "config/preferences.h"

#include <algorithm>
#include <utility>

#include "config/property_list_file.h"
#include "rootprefix/pref_path.h"

namespace vorlatch {
namespace {

constexpr std::int64_t kDefaultLogSizeLimitBytes = 2097152;  // 2 MiB

}  // namespace

plist::Dictionary loadPreferences() {
  const std::optional<std::string> path = getPrefPath(kPreferencesFileName);
  return path ? readDictionary(*path) : plist::Dictionary{};
}

bool isEnabled(const plist::Dictionary& preferences) {
  const plist::Value* enabled = plist::find(preferences, keys::kEnabled);
  return enabled != nullptr && plist::truthValue(*enabled);
}

Targets appConfigs(plist::Dictionary preferences) {
  Targets targets;
  const auto entry = preferences.find(keys::kAppConfigs);
  if (entry == preferences.end()) return targets;
  auto* configs = entry->second.as<plist::Dictionary>();
  if (configs == nullptr) return targets;
  for (auto& [key, value] : *configs) {
    auto* settings = value.as<plist::Dictionary>();
    if (settings != nullptr) targets.emplace_hint(targets.end(), key, std::move(*settings));
  }
  return targets;
}

std::optional<std::int64_t> logSizeLimit(const plist::Dictionary& preferences) {
  const plist::Value* limit = plist::find(preferences, keys::kLogSizeLimit);
  if (limit == nullptr) return kDefaultLogSizeLimitBytes;
  const std::int64_t limit_bytes = plist::int64Value(*limit);
  if (limit_bytes < 1) return std::nullopt;
  return limit_bytes;
}

std::int32_t checkInterval(const TargetSettings& settings) {
  return std::max(0, integerSetting(settings, keys::kCheckInterval));
}

std::int32_t integerSetting(const TargetSettings& settings, const char* key) {
  const plist::Value* value = plist::find(settings, key);
  return value != nullptr ? plist::int32Value(*value) : 0;
}

std::int32_t niceValue(const TargetSettings& settings) {
  return std::clamp(integerSetting(settings, keys::kNiceValue), kLowestNice, kHighestNice);
}

std::optional<bool> stripManaged(const TargetSettings& settings) {
  const plist::Value* strip = plist::find(settings, keys::kStripManaged);
  if (strip == nullptr) return std::nullopt;
  return plist::truthValue(*strip);
}

}  // namespace vorlatch
