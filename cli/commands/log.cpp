// vorlatchctl log
#include <algorithm>
#include <deque>

#include "base/display_text.h"
#include "cli/completion.h"
#include "config/preferences.h"
#include "control/log_filter.h"
#include "control/log_messages.h"
#include "control/moment.h"
#include "control/nearest.h"
#include "control/preferences_edit.h"
#include "log/log_file.h"

namespace vorlatch::cli {
namespace {

struct Options {
  std::optional<std::size_t> lines;
  bool shows_all = false;
  bool follows = false;
  std::optional<std::string> target;
  std::optional<std::string> category;  // with or without its brackets
  bool in_english = false;
};

constexpr std::chrono::milliseconds kLookInterval{250};
constexpr std::size_t kLines = 40;
constexpr std::size_t kLinesBeforeFollowing = 10;

Colour colourOf(const control::LogLine& line) {
  if (line.text.find("失败") != line.text.npos) return Colour::Red;
  if (line.text.find("覆盖") != line.text.npos) return Colour::Yellow;
  if (line.text.find("成功") != line.text.npos) return Colour::Green;
  return line.category.empty() ? Colour::Dim : Colour::Plain;
}

Json jsonOfLine(const Session& session, const control::LogLine& line,
                const control::LogLine& shown) {
  const auto known = control::recognised(line);
  const auto seconds = control::secondsOfStamp(line.stamp, session.terminal.wall_seconds());
  return {{"time", seconds ? Json(control::isoTextOf(control::localMoment(*seconds))) : Json()},
          {"stamp", shown.stamp},
          {"category", shown.category},
          {"text", shown.text},
          {"code", known ? Json(known->message->code) : Json()}};
}

void show(const Session& session, const control::LogLine& line, bool in_english) {
  const Terminal& terminal = session.terminal;
  const control::LogLine shown = in_english ? control::inEnglish(line) : line;
  if (session.wants_json) return terminal.out(streamed(jsonOfLine(session, line, shown)));
  if (shown.stamp.empty()) return terminal.out(visible(shown.text) + "\n");
  std::string text = terminal.in(Colour::Dim, visible("[" + shown.stamp + "]"));
  if (!shown.category.empty()) {
    text += " " + terminal.in(Colour::Cyan, visible("[" + shown.category + "]"));
  }
  if (!shown.text.empty()) text += " " + terminal.in(colourOf(line), visible(shown.text));
  terminal.out(text + "\n");
}

// Returns the daemon's name of the category, which may have brackets or be in English.
std::string categoryNamed(const std::string& text) {
  const bool bracketed = text.starts_with('[') && text.ends_with(']');
  const std::string name = bracketed ? text.substr(1, text.size() - 2) : text;
  std::string names;
  for (const control::LogCategory& category : control::logCategories()) {
    if (name == category.name || name == category.english) return category.name;
    names += (names.empty() ? "" : ", ") + std::string(category.name) + " " + category.english;
  }
  failWrongUsage(tr("there is no category %s; there are: %s", name, names));
}

// Throws a Failure if the target is neither configured nor named in the log.
void expectKnown(const std::string& target, const control::LogFilter& filter) {
  if (filter.namedTargets().contains(target)) return;
  const auto preferences =
      control::readStoredPreferences(control::daemonFile(kPreferencesFileName));
  const TargetDictionaries configured = appConfigs(preferences.dictionary);
  if (configured.contains(target)) return;
  Words known(filter.namedTargets().begin(), filter.namedTargets().end());
  for (const auto& [key, settings] : configured) known.push_back(key);
  failWrongUsage(tr("no target %s is configured, and the log does not name it", target) +
                 control::suggestion(target, known));
}

ExitStatus showLog(const Session& session, const Options& options) {
  if (options.shows_all && options.lines)
    failWrongUsage(tr("--all and --lines exclude each other"));
  if (options.follows) session.terminal.catch_signals();
  const bool in_english = options.in_english || session.asked_for_english;
  const std::size_t most = options.lines.value_or(options.follows ? kLinesBeforeFollowing : kLines);
  control::LogReader reader(control::daemonFile(kLogFileName));
  control::LogFilter filter(options.target,
                            options.category ? categoryNamed(*options.category) : "");
  const auto show_it = [&](const control::LogLine& line) { show(session, line, in_english); };
  std::deque<control::LogLine> last;
  const auto keep = [&](const control::LogLine& line) {
    if (options.shows_all) return show_it(line);
    last.push_back(line);
    if (last.size() > most) last.pop_front();
  };
  reader.readNew([&](const control::LogLine& line) { filter.take(line, keep); });
  if (options.target) expectKnown(*options.target, filter);
  for (const control::LogLine& line : last) show_it(line);

  while (options.follows && !session.terminal.interrupted()) {
    session.terminal.wait(kLookInterval);
    reader.readNew([&](const control::LogLine& line) { filter.take(line, show_it); });
  }
  return kDone;
}

Words categories(const std::string& /*unfinished*/) {
  Words names;
  for (const control::LogCategory& category : control::logCategories()) {
    names.emplace_back(category.name);
    names.emplace_back(category.english);
  }
  return names;
}

Run prepare(Arguments& arguments) {
  const auto options = std::make_shared<Options>();
  arguments = {{.name = "-n,--lines",
                .description = english("the last so many lines; otherwise 40, with --follow 10"),
                .value = &options->lines,
                .highest = 1'000'000},
               {.name = "--all", .description = english("all lines"), .value = &options->shows_all},
               {.name = "-f,--follow",
                .description = english("go on with what comes, until Ctrl-C"),
                .value = &options->follows},
               {.name = "--target",
                .description = english("only what concerns this target"),
                .value = &options->target,
                .offer = configuredTargets},
               {.name = "--category",
                .description = english("only this category, as 内核 or kernel"),
                .value = &options->category,
                .offer = categories},
               {.name = "--english",
                .description = english("the lines in English, as with --lang en"),
                .value = &options->in_english}};
  return [options](const Session& session) { return showLog(session, *options); };
}

const RegisteredCommand kLog({
    .name = "log",
    .description = english("the daemon's log"),
    .examples = "  vorlatchctl log -n 50\n  vorlatchctl log -f --category kernel --english",
    .place = 160,
    .prepare = prepare,
});

}  // namespace
}  // namespace vorlatch::cli
