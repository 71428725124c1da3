// vorlatchctl list, show and bands
#include "cli/bands.h"
#include "cli/commands.h"
#include "cli/nearest.h"
#include "cli/preferences_edit.h"
#include "cli/settings_schema.h"
#include "cli/table.h"
#include "config/preferences.h"

namespace vorlatch::cli {
namespace {

std::string textOf(const plist::Dictionary& settings, const char* key) {
  const plist::Value* value = plist::find(settings, key);
  return value != nullptr ? settingText(*value) : "-";
}

}  // namespace

ExitStatus listCommand(const Session& session) {
  const auto preferences = readStoredPreferences(daemonFile(kPreferencesFileName));
  const bool enabled = isEnabled(preferences.dictionary);
  const TargetDictionaries targets = appConfigs(preferences.dictionary);
  if (session.wants_json) {
    Json json{{"enabled", enabled}, {"targets", Json::object()}};
    for (const auto& [key, settings] : targets) json["targets"][key] = jsonOf(settings);
    print(session, json);
    return kDone;
  }
  printLine(session, enabled ? "switched on" : "switched off");
  std::vector<std::string> headings{"TARGET"};
  for (const std::string& key : settingKeys()) headings.push_back(key);
  Table table(headings);
  for (const auto& [target, settings] : targets) {
    std::vector<Cell> row{target};
    for (const SettingRule& rule : settingRules()) row.emplace_back(textOf(settings, rule.key));
    table.add(row);
  }
  if (table.isEmpty()) {
    printLine(session, "no targets");
  } else {
    session.terminal.out(table.text(session.terminal));
  }
  return kDone;
}

ExitStatus showCommand(const Session& session, const std::string& target) {
  const auto preferences = readStoredPreferences(daemonFile(kPreferencesFileName));
  const TargetDictionaries targets = appConfigs(preferences.dictionary);
  const auto entry = targets.find(target);
  if (entry == targets.end()) {
    std::vector<std::string> known;
    for (const auto& [key, settings] : targets) known.push_back(key);
    failWrongUsage("no target " + target + " is configured" + suggestion(target, known));
  }
  if (session.wants_json) {
    print(session, {{"target", target}, {"settings", jsonOf(entry->second)}});
    return kDone;
  }
  Table table({"KEY", "VALUE", "MEANING"});
  for (const auto& [key, value] : entry->second) {
    const SettingRule* rule = settingRule(key);
    table.add({key, settingText(value), rule != nullptr ? rule->meaning : "unknown to the daemon"});
  }
  session.terminal.out(table.text(session.terminal));
  return kDone;
}

ExitStatus bandsCommand(const Session& session) {
  const auto number = [](std::int32_t band) { return band == kNoSuchBand ? Json() : Json(band); };
  if (session.wants_json) {
    Json bands = Json::array();
    for (const Band& band : jetsamBands()) {
      bands.push_back({{"name", band.name},
                       {"to_ios15", number(band.to_ios15)},
                       {"since_ios16", band.since_ios16},
                       {"reserved", band.is_reserved}});
    }
    print(session, {{"bands", bands}});
    return kDone;
  }
  Table table({"NAME", "TO IOS 15", "SINCE IOS 16", ""});
  for (const Band& band : jetsamBands()) {
    table.add({band.name, band.to_ios15 == kNoSuchBand ? "-" : std::to_string(band.to_ios15),
               std::to_string(band.since_ios16),
               band.is_reserved ? "reserved: the kernel makes it idle" : ""});
  }
  session.terminal.out(table.text(session.terminal));
  return kDone;
}

}  // namespace vorlatch::cli
