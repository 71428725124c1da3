// vorlatchctl status
#include <algorithm>
#include <chrono>
#include <map>
#include <utility>

#include "base/display_text.h"
#include "cli/completion.h"
#include "cli/table.h"
#include "config/preferences.h"
#include "control/check.h"
#include "control/edits.h"
#include "control/kills.h"
#include "control/preferences_edit.h"
#include "control/setting_views.h"

namespace vorlatch::cli {
namespace {

using control::LastKills;
using control::TargetView;
using control::Verdict;

// A narrower terminal shows a block per target, and so does one that would cut the table's cells.
constexpr std::size_t kTableColumns = 100;

struct Options {
  Words targets;  // empty: all
  bool watches = false;
  int interval_s = 2;
};

std::string writtenText(const control::StatusEntry* written) {
  if (written == nullptr) return "-";
  return std::to_string(written->pid) + " n:" + std::to_string(written->nice_value) +
         " b:" + control::numberText(written->band);
}

Colour colourOf(Verdict verdict) {
  if (verdict == Verdict::Held) return Colour::Green;
  if (verdict == Verdict::Overridden) return Colour::Red;
  return verdict == Verdict::NotRunning || verdict == Verdict::SwitchedOff ? Colour::Dim
                                                                           : Colour::Yellow;
}

std::string lastKillText(const LastKills& kills, const std::string& target) {
  const auto kill = kills.find(target);
  if (kill == kills.end()) return "-";
  return control::timeText(kill->second) + " " + kill->second.process.reason;
}

Table tableOf(const std::vector<TargetView>& targets, const LastKills& kills, bool with_bar) {
  std::vector<Column> columns{{.heading = english("TARGET"), .is_typed = true},
                              {.heading = english("PID")},
                              {.heading = english("NAME")}};
  for (const char* heading : control::settingHeadings()) columns.push_back({.heading = heading});
  columns.push_back({.heading = english("MEMORY MB")});
  columns.push_back({.heading = english("DAEMON WROTE"), .rank = 1});
  // Most devices never have a kill, and the column is wide.
  const bool has_kill =
      std::any_of(targets.begin(), targets.end(),
                  [&kills](const TargetView& target) { return kills.contains(target.key); });
  if (has_kill) columns.push_back({.heading = english("LAST KILL"), .rank = 1});
  columns.push_back({.heading = english("VERDICT")});
  Table table(std::move(columns));
  for (const TargetView& target : targets) {
    std::vector<Cell> row{target.key, target.pid != 0 ? std::to_string(target.pid) : "-",
                          target.process != nullptr ? target.process->name : "-"};
    for (std::string& cell : control::settingCells(target)) row.emplace_back(std::move(cell));
    row.emplace_back(control::memoryText(target.memory, with_bar));
    row.emplace_back(writtenText(target.written));
    if (has_kill) row.emplace_back(lastKillText(kills, target.key));
    row.emplace_back(control::verdictText(target.verdict), colourOf(target.verdict));
    table.add(std::move(row));
  }
  return table;
}

Json jsonOfTarget(const TargetView& target, const LastKills& kills, control::AppNames& names) {
  Json json;
  json["target"] = target.key;
  json["display_name"] = jsonOf(names.ofTarget(target));
  json["verdict"] = control::verdictCode(target.verdict);
  json["verdict_text"] = control::verdictText(target.verdict);
  json["wanted"] = control::wantedJson(target.wanted);
  json["daemon_wrote"] = nullptr;
  if (target.written != nullptr) {
    json["daemon_wrote"] = {{"pid", target.written->pid},
                            {"nice", target.written->nice_value},
                            {"band", jsonOf(target.written->band)}};
  }
  json["now"] = nullptr;
  if (target.pid != 0) {
    Json& now = json["now"];
    now = {{"pid", target.pid},
           {"name", target.process != nullptr ? Json(target.process->name) : Json()}};
    control::addStateJson(target, now);
    now["memory"] = control::memoryJson(target.memory);
  }
  const auto kill = kills.find(target.key);
  json["last_kill"] = kill != kills.end() ? control::killJson(kill->second, names) : Json();
  return json;
}

std::vector<TargetView> lookAt(const control::Observation& observation,
                               const std::vector<std::string>& wanted_targets) {
  std::vector<std::string> known;
  for (const auto& [key, target] : observation.targets) known.push_back(key);
  for (const std::string& key : wanted_targets) {
    if (observation.targets.contains(key)) continue;
    control::failUnknownTarget(known, key);
  }
  std::vector<TargetView> views;
  for (const auto& [key, target] : observation.targets) {
    const bool is_wanted =
        wanted_targets.empty() ||
        std::find(wanted_targets.begin(), wanted_targets.end(), key) != wanted_targets.end();
    if (is_wanted) views.push_back(control::viewOf(observation, key, target.settings));
  }
  return views;
}

std::string headLine(const control::Observation& observation) {
  const bool is_on = observation.isSwitchedOn();
  if (observation.daemon_pids.empty()) {
    return is_on ? tr("switched on, the daemon does not run")
                 : tr("switched off, the daemon does not run");
  }
  const std::int32_t pid = observation.daemon_pids.front();
  return is_on ? tr("switched on, the daemon runs as %s", pid)
               : tr("switched off, the daemon runs as %s", pid);
}

// Returns a finding for each target that is the process of one before it.
std::vector<control::Finding> sharedProcesses(const std::vector<TargetView>& views) {
  std::vector<control::Finding> findings;
  std::map<std::int32_t, const TargetView*> first_by_pid;
  for (const TargetView& view : views) {
    if (view.pid == 0) continue;
    const auto [other, is_first] = first_by_pid.emplace(view.pid, &view);
    if (is_first) continue;
    findings.push_back(
        {{keys::kAppConfigs, view.key},
         "same-process",
         tr("%s and %s are the same process: the daemon applies both, one after the other",
            other->second->key, view.key)});
  }
  return findings;
}

struct Picture {
  std::string text;
  ExitStatus status;
};

Picture take(const Session& session, const Options& options, control::KillFinder& finder) {
  const auto observation = control::Observation::now(
      control::readStoredPreferences(control::daemonFile(kPreferencesFileName)).dictionary);
  const std::vector<TargetView> views = lookAt(observation, options.targets);
  const bool all_held = std::all_of(views.begin(), views.end(), [](const TargetView& view) {
    return view.pid == 0 || view.verdict == Verdict::Held;
  });
  const LastKills kills = control::lastKillsOfTargets(observation, finder);
  const std::vector<control::Finding> findings = sharedProcesses(views);
  std::string text;
  if (session.wants_json) {
    Json json{{"enabled", observation.isSwitchedOn()},
              {"daemon_pids", observation.daemon_pids},
              {"targets", Json::array()},
              {"findings", control::findingsJson(findings)}};
    control::AppNames names;
    for (const TargetView& view : views) {
      json["targets"].push_back(jsonOfTarget(view, kills, names));
    }
    text = options.watches ? streamed(json) : whole(json);
  } else {
    text = headLine(observation) + "\n";
    const Table table = tableOf(views, kills, session.terminal.is_terminal);
    const std::size_t columns = session.terminal.columns();
    if (views.empty()) {
      text += tr("no targets") + "\n";
    } else {
      const bool is_narrow = columns < kTableColumns || !table.fits(columns);
      text +=
          columns != 0 && is_narrow ? table.blocks(session.terminal) : table.text(session.terminal);
    }
    for (const control::Finding& each : findings) text += visible(each.message) + "\n";
  }
  return {.text = std::move(text),
          .status = all_held && !observation.daemon_pids.empty() ? kDone : kFinding};
}

// Returns how many rows the line takes at most on a terminal that wraps it.
std::size_t rowsOf(const std::string& line, std::size_t columns) {
  if (columns == 0) return 1;
  std::string plain;
  for (std::size_t i = 0; i < line.size(); ++i) {
    if (line[i] == '\x1b') {
      i = line.find('m', i);  // a colour
    } else {
      plain += line[i];
    }
  }
  return wrappedToWidth(plain, columns).size();
}

// Returns the text that draws a picture over the last one in a single write, to avoid flicker.
// Erases each line before it is drawn, because erasing behind a line that fills the terminal would
// erase its last character. Prevents scrolling: draws fewer rows than the terminal has, and turns
// line wrapping off except for lines that are too long, whose names would be cut.
std::string drawnOver(const std::string& picture, const Terminal& terminal) {
  const std::size_t rows = terminal.rows();
  std::string drawn = "\x1b[?7l\x1b[H";
  std::size_t drawn_rows = 0;
  for (std::size_t begin = 0; begin < picture.size();) {
    const std::size_t end = picture.find('\n', begin);
    const std::string line = picture.substr(begin, end - begin);
    const std::size_t taken = rowsOf(line, terminal.columns());
    drawn_rows += taken;
    if (rows != 0 && drawn_rows >= rows) break;
    drawn += taken > 1 ? "\x1b[J\x1b[?7h" + line + "\x1b[?7l\n" : "\x1b[K" + line + "\n";
    begin = end + 1;
  }
  return drawn + "\x1b[J\x1b[?7h";
}

ExitStatus status(const Session& session, const Options& options) {
  const Terminal& terminal = session.terminal;
  const bool draws_over = options.watches && terminal.is_terminal && !session.wants_json;
  if (options.watches) terminal.catch_signals();
  if (draws_over) terminal.out("\x1b[2J");
  // Kept for the next look, also of the page's server, because reports take long to read.
  static control::KillFinder& finder = *new control::KillFinder(true);
  while (true) {
    const std::chrono::nanoseconds begin = terminal.now();
    const Picture picture = take(session, options, finder);
    terminal.out(draws_over ? drawnOver(picture.text, terminal) : picture.text);
    if (!options.watches) return picture.status;
    // Waits at least 100 times as long as the look took, to use at most 1 % of the time.
    const auto taken =
        std::chrono::duration_cast<std::chrono::milliseconds>(terminal.now() - begin);
    terminal.wait(
        std::max<std::chrono::milliseconds>(std::chrono::seconds(options.interval_s), 100 * taken));
    if (terminal.interrupted()) return picture.status;
  }
}

Run prepare(Arguments& arguments) {
  const auto options = std::make_shared<Options>();
  arguments = {{.name = "TARGET",
                .description = english("only these targets"),
                .value = &options->targets,
                .offer = configuredTargets},
               {.name = "--watch",
                .description = english("look again and again, until Ctrl-C"),
                .value = &options->watches},
               {.name = "--interval",
                .description = english("seconds between looks"),
                .value = &options->interval_s,
                .lowest = 1,
                .highest = 3600}};
  return [options](const Session& session) { return status(session, *options); };
}

const RegisteredCommand kStatus({
    .name = "status",
    .description = english("what is held, and whether it worked"),
    .examples = "  vorlatchctl status\n  vorlatchctl status SpringBoard --watch",
    .place = 10,
    .prepare = prepare,
});

}  // namespace
}  // namespace vorlatch::cli
