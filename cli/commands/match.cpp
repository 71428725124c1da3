// vorlatchctl match
#include <array>

#include "cli/completion.h"
#include "cli/table.h"
#include "control/name_search.h"
#include "control/nearest.h"

namespace vorlatch::cli {
namespace {

using control::FoundName;

const char* textOf(control::NameRule rule) {
  static constexpr std::array<const char*, 6> kTexts = {english("name and bundle identifier"),
                                                        english("name"),
                                                        english("bundle identifier"),
                                                        english("another case"),
                                                        english("a part"),
                                                        english("a part")};
  return translated(kTexts.at(static_cast<std::size_t>(rule)));
}

std::string ruleText(const FoundName& found) {
  return found.display_name.empty() ? textOf(found.rule)
                                    : tr("display name %s", found.display_name);
}

Json jsonOrNull(const std::string& text) {
  return text.empty() ? Json() : Json(text);
}

Json jsonOfMatch(const FoundName& found) {
  return {{"pid", found.pid != 0 ? Json(found.pid) : Json()},
          {"name", found.name},
          {"bundle_identifier", jsonOrNull(found.bundle_identifier)},
          {"display_name", jsonOrNull(found.display_name)},
          {"rule", codeOf(found.rule)},
          {"rule_text", ruleText(found)}};
}

std::string chosenBy(std::int32_t pid, std::int32_t for_pass, std::int32_t for_timer) {
  if (pid == 0 || (pid != for_pass && pid != for_timer)) return "-";
  if (for_pass == for_timer) return tr("pass, watch timer");
  return pid == for_pass ? tr("pass") : tr("watch timer");
}

ExitStatus showMatches(const Session& session, const std::string& key) {
  const control::Observation observation = control::Observation::now();
  const control::NameSearch search = searchNames(observation, key);
  const std::int32_t for_pass = observation.pidForPass(key);
  const std::int32_t for_timer = observation.pidForWatchTimer(key);
  if (session.wants_json) {
    Json processes = Json::array();
    for (const FoundName& found : search.found) processes.push_back(jsonOfMatch(found));
    print(session, {{"text", key},
                    {"pid_for_pass", for_pass},
                    {"pid_for_watch_timer", for_timer},
                    {"processes", processes}});
    return kDone;
  }
  if (search.found.empty()) {
    printLine(session, tr("no running process and no installed app has %s in its name", key) +
                           control::suggestion(key, search.known));
    return kDone;
  }
  Table table({{.heading = english("PID")},
               {.heading = english("NAME"), .is_typed = true},
               {.heading = english("BUNDLE IDENTIFIER"), .is_typed = true},
               {.heading = english("FOUND BY"), .rank = 2},
               {.heading = english("CHOSEN BY"), .rank = 1}});
  for (const FoundName& found : search.found) {
    table.add({found.pid != 0 ? std::to_string(found.pid) : "-", found.name,
               found.bundle_identifier.empty() ? "-" : found.bundle_identifier, ruleText(found),
               chosenBy(found.pid, for_pass, for_timer)});
  }
  session.terminal.out(table.text(session.terminal));
  if (!search.found.front().isExact()) {
    printLine(session,
              tr("The daemon finds a target only by its whole name or bundle identifier."));
  }
  if (for_pass != for_timer) {
    printLine(session,
              tr("The two differ: among several processes a pass takes the first name and the last "
                 "bundle identifier of the kernel's list, a watch timer the first of either."));
  }
  return kDone;
}

Run prepare(Arguments& arguments) {
  const auto text = std::make_shared<std::string>();
  arguments = {{.name = "TEXT",
                .description = english("a name, a bundle identifier, or a part of one"),
                .value = text.get(),
                .offer = runningNames,
                .is_required = true}};
  return [text](const Session& session) { return showMatches(session, *text); };
}

const RegisteredCommand kMatch({
    .name = "match",
    .description = english("which processes and apps a text finds, and by which rule"),
    .examples = "  vorlatchctl match com.apple.Preferences\n  vorlatchctl match 微信",
    .place = 130,
    .prepare = prepare,
});

}  // namespace
}  // namespace vorlatch::cli
