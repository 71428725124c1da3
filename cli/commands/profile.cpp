// vorlatchctl profile
#include "cli/edit_report.h"
#include "cli/table.h"
#include "control/nearest.h"
#include "control/profiles.h"

namespace vorlatch::cli {
namespace {

struct Options {
  std::string action;
  std::string name;
  bool replaces = false;
  EditOptions edit;
};

void reportChange(const Session& session, const Options& options, const std::string& text,
                  Json json) {
  if (session.wants_json) {
    json["profile"] = options.name;
    json["written"] = !options.edit.is_dry_run;
    return print(session, json);
  }
  printLine(session, text);
  if (options.edit.is_dry_run) printLine(session, tr("nothing was written"));
}

ExitStatus save(const Session& session, const Options& options) {
  const std::size_t targets =
      control::saveProfile(options.name, options.replaces, !options.edit.is_dry_run);
  reportChange(session, options, tr("profile %s: %s targets", options.name, targets),
               {{"targets", targets}});
  return kDone;
}

ExitStatus use(const Session& session, const Options& options) {
  return editAndReport(session, options.edit, control::useProfile(options.name));
}

ExitStatus remove(const Session& session, const Options& options) {
  control::removeProfile(options.name, !options.edit.is_dry_run);
  reportChange(session, options, tr("profile %s is removed", options.name), Json::object());
  return kDone;
}

ExitStatus list(const Session& session, const Options& /*options*/) {
  Json profiles = Json::array();
  Table table({{.heading = english("PROFILE"), .is_typed = true},
               {.heading = english("TARGETS")},
               {.heading = english("IN USE")}});
  for (const control::Profile& each : control::profiles()) {
    profiles.push_back({{"name", each.name},
                        {"file", each.file},
                        {"targets", each.targets ? Json(*each.targets) : Json()},
                        {"in_use", each.is_in_use}});
    table.add({each.name, each.targets ? std::to_string(*each.targets) : tr("unreadable"),
               each.is_in_use ? tr("yes") : "-"});
  }
  if (session.wants_json) {
    print(session, {{"profiles", profiles}});
  } else if (table.isEmpty()) {
    printLine(session, tr("no profile is saved"));
  } else {
    session.terminal.out(table.text(session.terminal));
  }
  return kDone;
}

struct Action {
  const char* name;
  ExitStatus (*run)(const Session&, const Options&);
  bool takes_name = true;
};

constexpr auto kActions = std::to_array<Action>(
    {{"save", save}, {"use", use}, {"list", list, false}, {"remove", remove}});

Words actionNames(const std::string& /*unfinished*/) {
  Words names;
  for (const Action& action : kActions) names.emplace_back(action.name);
  return names;
}

Words savedNames(const std::string& /*unfinished*/) {
  return control::profileNames();
}

ExitStatus run(const Session& session, const Options& options) {
  for (const Action& action : kActions) {
    if (action.name != options.action) continue;
    if (action.takes_name && options.name.empty()) {
      failWrongUsage(tr("%s is missing; vorlatchctl %s --help says more", "NAME", "profile"));
    }
    if (!action.takes_name && !options.name.empty()) {
      failWrongUsage(tr("nothing takes the argument \"%s\"", options.name));
    }
    return action.run(session, options);
  }
  failWrongUsage(tr("profile takes save, use, list or remove, not \"%s\"", options.action) +
                 control::suggestion(options.action, actionNames("")));
}

Run prepare(Arguments& arguments) {
  const auto options = std::make_shared<Options>();
  arguments = {{.name = "ACTION",
                .description = english("save, use, list or remove"),
                .value = &options->action,
                .offer = actionNames,
                .is_required = true},
               {.name = "NAME",
                .description = english("the profile's name"),
                .value = &options->name,
                .offer = savedNames},
               {.name = "--force",
                .description = english("with save: replace the profile if it exists"),
                .value = &options->replaces}};
  addEditOptions(arguments, options->edit);
  return [options](const Session& session) { return run(session, *options); };
}

const RegisteredCommand kProfile({
    .name = "profile",
    .description = english("keep sets of targets by name, and put one in place of all targets"),
    .examples = "  vorlatchctl profile save gaming\n  vorlatchctl profile use gaming --dry-run\n"
                "  vorlatchctl profile list",
    .place = 98,
    .prepare = prepare,
});

}  // namespace
}  // namespace vorlatch::cli
