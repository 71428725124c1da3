// vorlatchctl status
#include <algorithm>
#include <chrono>
#include <utility>

#include "cli/commands.h"
#include "cli/display_text.h"
#include "cli/nearest.h"
#include "cli/preferences_edit.h"
#include "cli/table.h"
#include "cli/verdict.h"

namespace vorlatch::cli {
namespace {

using Number = std::optional<std::int32_t>;

std::string text(const Number& number) {
  return number ? std::to_string(*number) : "-";
}

std::string managedText(const std::optional<bool>& managed) {
  if (!managed) return "-";
  return *managed ? "yes" : "no";
}

// The value now, and in front of it the wanted one when the two differ.
std::string wantedAndNow(const std::string& wanted, const std::string& now) {
  return wanted == now ? now : wanted + " > " + now;
}

std::string bandText(const TargetView& target) {
  const std::string now = text(target.now.band);
  if (target.wanted.jetsam_priority == -1) return "any > " + now;
  if (target.wanted.jetsam_priority == 0) return "system > " + now;
  return wantedAndNow(std::to_string(target.wanted.jetsam_priority), now);
}

std::string limitText(std::int32_t wanted_mb, const Number& now_mb) {
  return wantedAndNow(wanted_mb < 1 ? "system" : std::to_string(wanted_mb), text(now_mb));
}

std::string limitsText(const TargetView& target) {
  return limitText(target.wanted.active_limit_mb, target.details.active_limit_mb) + " / " +
         limitText(target.wanted.inactive_limit_mb, target.details.inactive_limit_mb);
}

std::string writtenText(const DaemonWrote* written) {
  if (written == nullptr) return "-";
  return std::to_string(written->pid) + " n:" + std::to_string(written->nice_value) +
         " b:" + text(written->band);
}

std::string managedCell(const TargetView& target) {
  std::string now = managedText(target.details.is_managed);
  if (!target.wanted.strips_managed) return now;
  return wantedAndNow(*target.wanted.strips_managed ? "no" : "yes", now);
}

Colour colourOf(Verdict verdict) {
  if (verdict == Verdict::Held) return Colour::Green;
  if (verdict == Verdict::Overridden) return Colour::Red;
  return verdict == Verdict::NotRunning || verdict == Verdict::SwitchedOff ? Colour::Dim
                                                                           : Colour::Yellow;
}

Table tableOf(const std::vector<TargetView>& targets) {
  Table table({"TARGET", "PID", "NAME", "BAND", "NICE", "LIMITS MB", "MANAGED", "TIMER",
               "DAEMON WROTE", "VERDICT"});
  for (const TargetView& target : targets) {
    const bool runs = target.pid != 0;
    const auto now = [runs](std::string cell) { return runs ? std::move(cell) : "-"; };
    table.add(
        {target.key,
         now(std::to_string(target.pid)),
         target.process != nullptr ? target.process->name : "-",
         now(bandText(target)),
         now(wantedAndNow(std::to_string(target.wanted.nice_value), text(target.now.nice_value))),
         now(limitsText(target)),
         now(managedCell(target)),
         target.wanted.check_interval_s > 0 ? std::to_string(target.wanted.check_interval_s) + "s"
                                            : "-",
         writtenText(target.written),
         {verdictText(target.verdict), colourOf(target.verdict)}});
  }
  return table;
}

Json jsonOfTarget(const TargetView& target) {
  Json json;
  json["target"] = target.key;
  json["verdict"] = verdictText(target.verdict);
  json["wanted"] = {{"band", target.wanted.jetsam_priority},
                    {"nice", target.wanted.nice_value},
                    {"active_limit_mb", target.wanted.active_limit_mb},
                    {"inactive_limit_mb", target.wanted.inactive_limit_mb},
                    {"strip_managed", jsonOf(target.wanted.strips_managed)},
                    {"interval_s", target.wanted.check_interval_s}};
  json["daemon_wrote"] = nullptr;
  if (target.written != nullptr) {
    json["daemon_wrote"] = {{"pid", target.written->pid},
                            {"nice", target.written->nice_value},
                            {"band", jsonOf(target.written->band)}};
  }
  json["now"] = nullptr;
  if (target.pid != 0) {
    json["now"] = {{"pid", target.pid},
                   {"name", target.process != nullptr ? Json(target.process->name) : Json()},
                   {"band", jsonOf(target.now.band)},
                   {"nice", jsonOf(target.now.nice_value)},
                   {"active_limit_mb", jsonOf(target.details.active_limit_mb)},
                   {"inactive_limit_mb", jsonOf(target.details.inactive_limit_mb)},
                   {"managed", jsonOf(target.details.is_managed)}};
  }
  return json;
}

std::vector<TargetView> lookAt(const Observation& observation,
                               const std::vector<std::string>& wanted_targets) {
  std::vector<std::string> known;
  for (const auto& [key, target] : observation.targets) known.push_back(key);
  for (const std::string& key : wanted_targets) {
    if (observation.targets.contains(key)) continue;
    failWrongUsage("no target " + key + " is configured" + suggestion(key, known));
  }
  std::vector<TargetView> views;
  for (const auto& [key, target] : observation.targets) {
    const bool is_wanted =
        wanted_targets.empty() ||
        std::find(wanted_targets.begin(), wanted_targets.end(), key) != wanted_targets.end();
    if (is_wanted) views.push_back(viewOf(observation, key, target.settings));
  }
  return views;
}

std::string headLine(const Observation& observation) {
  std::string line = observation.isSwitchedOn() ? "switched on" : "switched off";
  if (observation.daemon_pids.empty()) {
    line += ", the daemon does not run";
  } else {
    line += ", the daemon runs as " + std::to_string(observation.daemon_pids.front());
  }
  return line;
}

struct Picture {
  std::string text;
  ExitStatus status;
};

Picture take(const Session& session, const StatusOptions& options) {
  const Observation observation =
      Observation::now(readStoredPreferences(daemonFile(kPreferencesFileName)).dictionary);
  const std::vector<TargetView> views = lookAt(observation, options.targets);
  const bool overridden = std::any_of(views.begin(), views.end(), [](const TargetView& view) {
    return view.verdict == Verdict::Overridden;
  });
  std::string text;
  if (session.wants_json) {
    Json json{{"enabled", observation.isSwitchedOn()},
              {"daemon_pids", observation.daemon_pids},
              {"targets", Json::array()}};
    for (const TargetView& view : views) json["targets"].push_back(jsonOfTarget(view));
    text = textOf(json, 2) + "\n";
  } else {
    text = headLine(observation) + "\n";
    text += views.empty() ? "no targets\n" : tableOf(views).text(session.terminal);
  }
  return {.text = std::move(text), .status = overridden ? kFinding : kDone};
}

// Draws over the last picture in one write, line by line, so that nothing flickers: what is left of
// a longer line is erased behind it, and what is left of a longer picture below it. No more lines
// than the terminal has, and none that goes on in the next one, as it would scroll.
std::string drawnOver(const std::string& picture, std::size_t rows) {
  std::string drawn = "\x1b[?7l\x1b[H";
  std::size_t begin = 0;
  for (std::size_t row = 1; begin < picture.size() && (rows == 0 || row < rows); ++row) {
    const std::size_t end = picture.find('\n', begin);
    drawn += picture.substr(begin, end - begin) + "\x1b[K\n";
    begin = end + 1;
  }
  return drawn + "\x1b[J\x1b[?7h";
}

}  // namespace

ExitStatus statusCommand(const Session& session, const StatusOptions& options) {
  const Terminal& terminal = session.terminal;
  const bool draws_over = options.watches && terminal.is_terminal && !session.wants_json;
  if (options.watches) terminal.catch_signals();
  if (draws_over) terminal.out("\x1b[2J");
  while (true) {
    const std::chrono::nanoseconds begin = terminal.now();
    const Picture picture = take(session, options);
    terminal.out(draws_over ? drawnOver(picture.text, terminal.rows()) : picture.text);
    if (!options.watches) return picture.status;
    // Looking takes no more than a hundredth of the time, however much there is to look at.
    const auto taken =
        std::chrono::duration_cast<std::chrono::milliseconds>(terminal.now() - begin);
    terminal.wait(
        std::max<std::chrono::milliseconds>(std::chrono::seconds(options.interval_s), 100 * taken));
    if (terminal.interrupted()) return picture.status;
  }
}

}  // namespace vorlatch::cli
