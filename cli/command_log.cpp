// vorlatchctl log
#include <algorithm>
#include <deque>

#include "cli/commands.h"
#include "cli/display_text.h"
#include "cli/log_reader.h"
#include "cli/preferences_edit.h"
#include "log/log_file.h"

namespace vorlatch::cli {
namespace {

constexpr std::chrono::milliseconds kLookInterval{250};

Colour colourOf(const LogLine& line) {
  if (line.text.find("失败") != line.text.npos) return Colour::Red;
  if (line.text.find("覆盖") != line.text.npos) return Colour::Yellow;
  if (line.text.find("成功") != line.text.npos) return Colour::Green;
  return line.category.empty() ? Colour::Dim : Colour::Plain;
}

void show(const Session& session, const LogLine& line) {
  if (session.wants_json) {
    const Json json{{"stamp", line.stamp}, {"category", line.category}, {"text", line.text}};
    session.terminal.out(textOf(json, -1) + "\n");
    return;
  }
  const Terminal& terminal = session.terminal;
  if (line.stamp.empty()) {
    terminal.out(visible(line.text) + "\n");
    return;
  }
  std::string text = terminal.in(Colour::Dim, visible("[" + line.stamp + "]"));
  if (!line.category.empty()) {
    text += " " + terminal.in(Colour::Cyan, visible("[" + line.category + "]"));
  }
  if (!line.text.empty()) text += " " + terminal.in(colourOf(line), visible(line.text));
  terminal.out(text + "\n");
}

// Empty for all of them.
std::string categoryNamed(const std::string& text) {
  const bool bracketed = text.starts_with('[') && text.ends_with(']');
  std::string category = bracketed ? text.substr(1, text.size() - 2) : text;
  const auto& known = logCategories();
  if (!category.empty() && std::find(known.begin(), known.end(), category) == known.end()) {
    std::string names;
    for (const std::string& name : known) names += " " + name;
    failWrongUsage("there is no category " + category + "; there are:" + names);
  }
  return category;
}

}  // namespace

ExitStatus logCommand(const Session& session, const LogOptions& options) {
  if (options.follows) session.terminal.catch_signals();
  LogReader reader(daemonFile(kLogFileName));
  LogFilter filter(options.target, categoryNamed(options.category));
  const auto show_it = [&session](const LogLine& line) { show(session, line); };
  std::deque<LogLine> last;
  const auto keep = [&](const LogLine& line) {
    if (options.lines == 0) return show_it(line);
    last.push_back(line);
    if (last.size() > options.lines) last.pop_front();
  };
  reader.readNew([&](LogLine line) { filter.take(std::move(line), keep); });
  // What a pass is just writing is shown whole by the next look, when there is one.
  if (!options.follows) filter.finish(keep);
  for (const LogLine& line : last) show(session, line);

  while (options.follows && !session.terminal.interrupted()) {
    session.terminal.wait(kLookInterval);
    const bool any = reader.readNew([&](LogLine line) { filter.take(std::move(line), show_it); });
    if (!any) filter.finish(show_it);
  }
  return kDone;
}

}  // namespace vorlatch::cli
