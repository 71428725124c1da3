// vorlatchctl show
#include "cli/completion.h"
#include "cli/table.h"
#include "config/preferences.h"
#include "control/edits.h"
#include "control/preferences_edit.h"
#include "control/setting_text.h"

namespace vorlatch::cli {
namespace {

ExitStatus show(const Session& session, const std::string& target) {
  const auto preferences =
      control::readStoredPreferences(control::daemonFile(kPreferencesFileName));
  const TargetDictionaries targets = appConfigs(preferences.dictionary);
  const auto entry = targets.find(target);
  if (entry == targets.end()) {
    std::vector<std::string> known;
    for (const auto& [key, settings] : targets) known.push_back(key);
    control::failUnknownTarget(known, target);
  }
  if (session.wants_json) {
    print(session, {{"target", target}, {"settings", jsonOf(entry->second)}});
    return kDone;
  }
  Table table({"KEY", "VALUE", "MEANING"});
  for (const auto& [key, value] : entry->second) {
    const SettingKey* row = findSettingKey(key);
    table.add({key, control::settingText(value),
               row != nullptr ? row->meaning : "unknown to the daemon"});
  }
  session.terminal.out(table.text(session.terminal));
  return kDone;
}

Run prepare(Arguments& arguments) {
  const auto target = std::make_shared<std::string>();
  arguments = {{.name = "TARGET",
                .description = "the target",
                .value = target.get(),
                .offer = configuredTargets,
                .is_required = true}};
  return [target](const Session& session) { return show(session, *target); };
}

const RegisteredCommand kShow({
    .name = "show",
    .description = "one target's settings and what each means",
    .examples = "  vorlatchctl show backboardd",
    .place = 30,
    .prepare = prepare,
});

}  // namespace
}  // namespace vorlatch::cli
