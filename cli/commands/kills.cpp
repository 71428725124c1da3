// vorlatchctl kills
#include "control/kills.h"

#include <string_view>

#include "base/display_text.h"
#include "cli/completion.h"
#include "cli/table.h"
#include "control/memory_view.h"
#include "control/report_view.h"
#include "platform/system_paths.h"

namespace vorlatch::cli {
namespace {

using control::Kill;
using control::KillList;
using control::numberText;
using control::ReportProblem;
using control::ReportView;

// A narrower terminal shows a block per kill, because a verdict is a sentence.
constexpr std::size_t kTableColumns = 150;
constexpr std::size_t kMostProblems = 3;  // that are described

struct Options {
  std::string target;                 // empty: all
  std::string since;                  // empty: all
  std::optional<std::string> report;  // that is shown as a whole; empty: the kills of all
};

std::string megabytesText(const std::optional<std::uint64_t>& bytes) {
  return bytes ? std::to_string(control::megabytesOf(*bytes)) : "-";
}

std::string textOr(const std::string& text) {
  return text.empty() ? "-" : text;
}

std::string joined(const std::vector<std::string>& words, std::string_view between) {
  std::string text;
  for (const std::string& word : words) {
    if (!text.empty()) text += between;
    text += word;
  }
  return textOr(text);
}

Colour colourOf(const Kill& kill) {
  using Kind = control::KillVerdict::Kind;
  if (!kill.verdict) return Colour::Dim;
  const Kind kind = kill.verdict->kind;
  const bool is_unheld = kind == Kind::BandNotHeld || kind == Kind::OverOtherLimit;
  return is_unheld ? Colour::Red : Colour::Yellow;
}

Table tableOf(const std::vector<Kill>& kills) {
  Table table({{.heading = english("TIME")},
               {.heading = english("PROCESS"), .is_typed = true},
               {.heading = english("TARGET"), .rank = 3, .is_typed = true},
               {.heading = english("MEMORY MB")},
               {.heading = english("HIGHEST MB"), .rank = 2},
               {.heading = english("BAND")},
               {.heading = english("STATE"), .rank = 4},
               {.heading = english("REASON"), .rank = 1},
               {.heading = english("LOG"), .rank = 5},
               {.heading = english("REPORT"), .rank = 6},
               {.heading = english("VERDICT")}});
  for (const Kill& kill : kills) {
    table.add({control::timeText(kill), textOr(kill.process.name), textOr(kill.target),
               megabytesText(kill.process.memory_bytes), megabytesText(kill.process.highest_bytes),
               numberText(kill.process.band), joined(kill.process.states, ", "),
               control::reasonText(kill.process.reason), joined(kill.log_lines, "; "),
               control::reportNameIn(kill.report),
               Cell(kill.verdict ? kill.verdict->text : tr("no target"), colourOf(kill))});
  }
  return table;
}

// Returns a block of lines that fit into the terminal: what was ended, then its values, the reason,
// the verdict, and the log.
std::string blockOf(const Terminal& terminal, const Kill& kill) {
  constexpr std::size_t kIndentation = 2;
  const std::size_t width =
      terminal.columns() > kIndentation ? terminal.columns() - kIndentation : 1;
  std::string text = visible(control::timeText(kill)) + "  " +
                     terminal.in(Colour::Bold, visible(textOr(kill.process.name))) + "\n";
  const auto add = [&](const std::string& words, Colour colour = Colour::Plain) {
    for (const std::string& line : wrappedToWidth(visible(words), width)) {
      text += std::string(kIndentation, ' ') + terminal.in(colour, line) + "\n";
    }
  };
  if (!kill.target.empty() && kill.target != kill.process.name) add(kill.target);
  add(tr("memory MB %s, highest %s, band %s, state %s", megabytesText(kill.process.memory_bytes),
         megabytesText(kill.process.highest_bytes), numberText(kill.process.band),
         joined(kill.process.states, ", ")));
  add(control::reasonText(kill.process.reason));
  if (kill.verdict) add(kill.verdict->text, colourOf(kill));
  for (const std::string& line : kill.log_lines) add(line);
  add(control::reportNameIn(kill.report), Colour::Dim);
  return text;
}

void printProblems(const Session& session, const std::vector<ReportProblem>& problems) {
  for (std::size_t i = 0; i < problems.size() && i < kMostProblems; ++i) {
    printLine(session, control::problemText(problems[i]));
  }
  if (problems.size() <= kMostProblems) return;
  printLine(session, tr("%s more reports have such problems; kills --json names them all",
                        problems.size() - kMostProblems));
}

std::string nothingFound(const KillList& list, const Options& options) {
  if (list.reports == 0) {
    return tr(
        "there are no reports in %s: the system has ended nothing for its memory, or has "
        "removed them",
        platform::crashReportDirectory());
  }
  if (!options.target.empty()) {
    return tr("none of %s reports names %s in this time", list.reports, options.target);
  }
  return tr("none of %s reports names a process that was ended in this time", list.reports);
}

void printText(const Session& session, const KillList& list, const Options& options) {
  const Terminal& terminal = session.terminal;
  const std::size_t columns = terminal.columns();
  if (list.kills.empty()) {
    printLine(session, nothingFound(list, options));
  } else if (columns != 0 && columns < kTableColumns) {
    for (const Kill& kill : list.kills) terminal.out(blockOf(terminal, kill));
  } else {
    terminal.out(tableOf(list.kills).text(terminal));
  }
  printProblems(session, list.problems);
}

Json jsonOfList(const KillList& list) {
  Json json{{"reports", list.reports},
            {"kills", Json::array()},
            {"problems", control::problemsJson(list.problems)}};
  control::AppNames names;
  for (const Kill& kill : list.kills) {
    Json entry = control::killJson(kill, names);
    entry["log_lines"] = kill.log_lines;
    json["kills"].push_back(std::move(entry));
  }
  return json;
}

std::string headLineOf(const ReportView& view) {
  const std::string time = view.time ? textOf(*view.time) : "-";
  const std::int64_t used_mb = control::megabytesOf(view.all.memory_bytes);
  if (!view.free_bytes) {
    return tr("%s: %s processes used %s MB", time, view.all.processes, used_mb);
  }
  return tr("%s: %s processes used %s MB, %s MB were free", time, view.all.processes, used_mb,
            control::megabytesOf(*view.free_bytes));
}

Table tableOf(const ReportView& view) {
  Table table({{.heading = english("PROCESS"), .is_typed = true},
               {.heading = english("TARGET"), .rank = 1, .is_typed = true},
               {.heading = english("MEMORY MB")},
               {.heading = english("HIGHEST MB"), .rank = 2},
               {.heading = english("BAND")},
               {.heading = english("STATE"), .rank = 3},
               {.heading = english("REASON")}});
  for (const auto& [process, target] : view.rows) {
    const bool was_ended = !process.reason.empty();
    table.add({textOr(process.name), textOr(target), megabytesText(process.memory_bytes),
               megabytesText(process.highest_bytes), numberText(process.band),
               joined(process.states, ", "),
               Cell(was_ended ? control::reasonText(process.reason) : "-",
                    was_ended ? Colour::Red : Colour::Plain)});
  }
  return table;
}

ExitStatus showReport(const Session& session, const std::string& name) {
  const ReportView view = control::readReportNamed(name, control::Observation::now());
  if (session.wants_json) {
    print(session, control::reportJson(view));
    return kDone;
  }
  printLine(session, headLineOf(view));
  if (!view.rows.empty()) session.terminal.out(tableOf(view).text(session.terminal));
  if (view.rest.processes > 0) {
    printLine(session, tr("%s more processes used %s MB", view.rest.processes,
                          control::megabytesOf(view.rest.memory_bytes)));
  }
  printProblems(session, view.problems);
  return kDone;
}

ExitStatus showKills(const Session& session, const Options& options) {
  control::KillQuery query{.target = options.target, .since = {}};
  if (!options.since.empty()) {
    query.since = control::secondsMeantBy(options.since, session.terminal.wall_seconds());
    if (!query.since) {
      failWrongUsage(tr("--since takes 30m, 2h, 3d, 2026-11-20 or \"2026-11-20 18:00\", not \"%s\"",
                        options.since));
    }
  }
  control::KillFinder finder(false);
  KillList list = finder.find(control::Observation::now(), query);
  control::addLogLines(list.kills);
  if (session.wants_json) {
    print(session, jsonOfList(list));
  } else {
    printText(session, list, options);
  }
  return kDone;
}

Words namesOfReports(const std::string& /*unfinished*/) {
  return control::reportNames();
}

Run prepare(Arguments& arguments) {
  const auto options = std::make_shared<Options>();
  arguments = {{.name = "TARGET",
                .description = english("only kills of this target or process"),
                .value = &options->target,
                .offer = configuredTargets},
               {.name = "--since",
                .description = english("only kills since then: 30m, 2h, 3d, 2026-11-20"),
                .value = &options->since},
               {.name = "--report",
                .description = english("every process of this report, the largest first"),
                .value = &options->report,
                .offer = namesOfReports}};
  return [options](const Session& session) {
    if (!options->report) return showKills(session, *options);
    if (!options->target.empty() || !options->since.empty()) {
      failWrongUsage(tr("kills takes --report without a target and without --since"));
    }
    return showReport(session, *options->report);
  };
}

const RegisteredCommand kKills({
    .name = "kills",
    .description = english("which processes the system ended for their memory, and why"),
    .examples = "  vorlatchctl kills\n  vorlatchctl kills com.tencent.xin --since 3d\n"
                "  vorlatchctl kills --report JetsamEvent-2026-11-22-105718.ips",
    .place = 35,
    .prepare = prepare,
});

}  // namespace
}  // namespace vorlatch::cli
