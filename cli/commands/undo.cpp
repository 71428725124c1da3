// vorlatchctl undo
#include "cli/edit_report.h"
#include "control/history.h"
#include "control/moment.h"

namespace vorlatch::cli {
namespace {

using control::Difference;

// How many differences of an edit the list shows.
constexpr std::size_t kMostShown = 3;

struct Options {
  int steps = 1;
  bool lists = false;
  EditOptions edit;
};

std::vector<Difference> differencesOf(const control::UndoStep& step) {
  if (step.before == nullptr || step.after == nullptr) return {};
  return control::differencesBetween(*step.before, *step.after);
}

Json listed(const control::UndoStep& step, std::size_t number) {
  const std::vector<Difference> differences = differencesOf(step);
  const bool is_comparable = step.before != nullptr && step.after != nullptr;
  Json changes = Json::array();
  for (std::size_t i = 0; i < differences.size() && i < kMostShown; ++i) {
    changes.push_back(jsonOf(differences[i]));
  }
  return {{"number", number},
          {"time", control::isoTextOf(control::localMoment(step.edited_at_s))},
          {"file", step.copy},
          {"changes", changes},
          {"count", is_comparable ? Json(differences.size()) : Json()}};
}

void show(const Session& session, const control::UndoStep& step, std::size_t number) {
  const std::string time = control::textOf(control::localMoment(step.edited_at_s));
  if (step.before == nullptr || step.after == nullptr) {
    return printLine(session, tr("%s: %s, not to be compared: the file before it or after it holds "
                                 "no dictionary",
                                 number, time));
  }
  const std::vector<Difference> differences = differencesOf(step);
  printLine(session, tr("%s: %s, changes: %s", number, time, differences.size()));
  for (std::size_t i = 0; i < differences.size() && i < kMostShown; ++i) {
    printLine(session, "  " + textOf(differences[i]));
  }
  if (differences.size() > kMostShown) {
    printLine(session, "  " + tr("and %s more", differences.size() - kMostShown));
  }
}

ExitStatus list(const Session& session) {
  Json edits = Json::array();
  std::size_t number = 0;
  control::visitUndoSteps([&](const control::UndoStep& step) {
    ++number;
    if (session.wants_json) {
      edits.push_back(listed(step, number));
    } else {
      show(session, step, number);
    }
  });
  if (session.wants_json) {
    print(session, {{"edits", edits}});
  } else if (number == 0) {
    printLine(session, tr("there is no edit to take back"));
  }
  return kDone;
}

Run prepare(Arguments& arguments) {
  const auto options = std::make_shared<Options>();
  arguments = {{.name = "N",
                .description = english("take back the last so many edits"),
                .value = &options->steps,
                .lowest = 1,
                .highest = static_cast<int>(control::kMostUndoSteps)},
               {.name = "--list",
                .description = english("show the edits that can be taken back, the last one first"),
                .value = &options->lists}};
  addEditOptions(arguments, options->edit);
  return [options](const Session& session) {
    if (options->lists) return list(session);
    return applyAndReport(
        session, options->edit,
        control::takeBack(static_cast<std::size_t>(options->steps), !options->edit.is_dry_run));
  };
}

const RegisteredCommand kUndo({
    .name = "undo",
    .description = english("put the preferences back as they were before the last edit"),
    .examples = "  vorlatchctl undo --list\n  vorlatchctl undo\n  vorlatchctl undo 3 --dry-run",
    .place = 92,
    .prepare = prepare,
});

}  // namespace
}  // namespace vorlatch::cli
