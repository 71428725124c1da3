// vorlatchctl log
#include <algorithm>
#include <deque>

#include "base/display_text.h"
#include "cli/completion.h"
#include "control/log_reader.h"
#include "control/preferences_edit.h"
#include "log/log_file.h"

namespace vorlatch::cli {
namespace {

struct Options {
  std::size_t lines = 0;  // 0: all
  bool follows = false;
  std::string target;
  std::string category;  // with or without its brackets
};

constexpr std::chrono::milliseconds kLookInterval{250};

Colour colourOf(const control::LogLine& line) {
  if (line.text.find("失败") != line.text.npos) return Colour::Red;
  if (line.text.find("覆盖") != line.text.npos) return Colour::Yellow;
  if (line.text.find("成功") != line.text.npos) return Colour::Green;
  return line.category.empty() ? Colour::Dim : Colour::Plain;
}

void show(const Session& session, const control::LogLine& line) {
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

// Returns the category without brackets; empty selects all. Throws a Failure if it is unknown.
std::string categoryNamed(const std::string& text) {
  const bool bracketed = text.starts_with('[') && text.ends_with(']');
  std::string category = bracketed ? text.substr(1, text.size() - 2) : text;
  const auto& known = control::logCategories();
  if (!category.empty() && std::find(known.begin(), known.end(), category) == known.end()) {
    std::string names;
    for (const std::string& name : known) names += " " + name;
    failWrongUsage("there is no category " + category + "; there are:" + names);
  }
  return category;
}

ExitStatus showLog(const Session& session, const Options& options) {
  if (options.follows) session.terminal.catch_signals();
  control::LogReader reader(control::daemonFile(kLogFileName));
  control::LogFilter filter(options.target, categoryNamed(options.category));
  const auto show_it = [&session](const control::LogLine& line) { show(session, line); };
  std::deque<control::LogLine> last;
  const auto keep = [&](const control::LogLine& line) {
    if (options.lines == 0) return show_it(line);
    last.push_back(line);
    if (last.size() > options.lines) last.pop_front();
  };
  reader.readNew([&](control::LogLine line) { filter.take(std::move(line), keep); });
  // With --follow, a block that is still being written is shown whole by a later read.
  if (!options.follows) filter.finish(keep);
  for (const control::LogLine& line : last) show(session, line);

  while (options.follows && !session.terminal.interrupted()) {
    session.terminal.wait(kLookInterval);
    const bool any =
        reader.readNew([&](control::LogLine line) { filter.take(std::move(line), show_it); });
    if (!any) filter.finish(show_it);
  }
  return kDone;
}

Words categories(const std::string& /*unfinished*/) {
  return control::logCategories();
}

Run prepare(Arguments& arguments) {
  const auto options = std::make_shared<Options>();
  arguments = {{.name = "-n,--lines",
                .description = english("the last so many lines; 0: all"),
                .value = &options->lines,
                .highest = 1'000'000},
               {.name = "-f,--follow",
                .description = english("go on with what comes, until Ctrl-C"),
                .value = &options->follows},
               {.name = "--target",
                .description = english("only what concerns this target"),
                .value = &options->target,
                .offer = configuredTargets},
               {.name = "--category",
                .description = english("only this category, as 内核 or 守护"),
                .value = &options->category,
                .offer = categories}};
  return [options](const Session& session) { return showLog(session, *options); };
}

const RegisteredCommand kLog({
    .name = "log",
    .description = english("the daemon's log"),
    .examples = "  vorlatchctl log -n 50\n  vorlatchctl log -f --category 内核",
    .place = 160,
    .prepare = prepare,
});

}  // namespace
}  // namespace vorlatch::cli
