#include "config/preferences.h"

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

TargetDictionaries appConfigs(plist::Dictionary preferences) {
  TargetDictionaries targets;
  const auto entry = preferences.find(keys::kAppConfigs);
  if (entry == preferences.end()) return targets;
  auto* configs = entry->second.as<plist::Dictionary>();
  if (configs == nullptr) return targets;
  while (!configs->empty()) {
    // Extracts the entry, because its key may be moved only while the entry is in no map.
    auto target = configs->extract(configs->begin());
    auto* dictionary = target.mapped().as<plist::Dictionary>();
    if (dictionary == nullptr) continue;
    targets.emplace_hint(targets.end(), std::move(target.key()), std::move(*dictionary));
  }
  return targets;
}

Targets configuredTargets(plist::Dictionary preferences) {
  Targets targets;
  TargetDictionaries dictionaries = appConfigs(std::move(preferences));
  while (!dictionaries.empty()) {
    auto target = dictionaries.extract(dictionaries.begin());
    TargetSettings settings = readTargetSettings(target.mapped());
    std::string stored_form = plist::comparisonForm(std::move(target.mapped()));
    targets.emplace_hint(targets.end(), std::move(target.key()),
                         ConfiguredTarget{settings, std::move(stored_form)});
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

}  // namespace vorlatch
