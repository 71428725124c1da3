// vorlatchctl list
#include "cli/command.h"
#include "cli/table.h"
#include "config/preferences.h"
#include "control/preferences_edit.h"
#include "control/setting_text.h"

namespace vorlatch::cli {
namespace {

std::string textOf(const plist::Dictionary& settings, const char* key) {
  const plist::Value* value = plist::find(settings, key);
  return value != nullptr ? control::settingText(*value) : "-";
}

ExitStatus list(const Session& session) {
  const auto preferences =
      control::readStoredPreferences(control::daemonFile(kPreferencesFileName));
  const bool enabled = isEnabled(preferences.dictionary);
  const TargetDictionaries targets = appConfigs(preferences.dictionary);
  if (session.wants_json) {
    Json json{{"enabled", enabled}, {"targets", Json::object()}};
    for (const auto& [key, settings] : targets) json["targets"][key] = jsonOf(settings);
    print(session, json);
    return kDone;
  }
  printLine(session, enabled ? tr("switched on") : tr("switched off"));
  std::vector<Column> columns{{.heading = english("TARGET"), .is_typed = true}};
  int rank = 0;
  for (const SettingKey& row : kSettingKeys) {
    columns.push_back({.heading = row.key, .rank = ++rank});
  }
  Table table(std::move(columns));
  for (const auto& [target, settings] : targets) {
    std::vector<Cell> row{target};
    for (const SettingKey& setting : kSettingKeys) row.emplace_back(textOf(settings, setting.key));
    table.add(row);
  }
  if (table.isEmpty()) {
    printLine(session, tr("no targets"));
  } else {
    session.terminal.out(table.text(session.terminal));
  }
  return kDone;
}

const RegisteredCommand kList({
    .name = "list",
    .description = english("the configured targets"),
    .examples = "  vorlatchctl list --json",
    .place = 20,
    .prepare = [](Arguments&) { return Run(list); },
});

}  // namespace
}  // namespace vorlatch::cli
