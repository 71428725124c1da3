#include "cli/arguments.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>

#include "cli/completion.h"
#include "cli/nearest.h"

namespace vorlatch::cli {
namespace {

constexpr const char* kDescription =
    "Edits the preferences of the Vorlatch daemon, asks what it holds, and explains.";
constexpr const char* kFooter = R"(Examples:
  vorlatchctl status
  vorlatchctl set com.tencent.xin JetsamPriority=home NiceValue=-5
  vorlatchctl match backboardd
  vorlatchctl log -f --target kbd

A target is an app's bundle identifier or a system daemon's process name.
Exit status: 0 done, 1 a finding, 2 wrong usage, 3 could not.)";

// Where several words may stand, the parser takes one in square brackets for a list. Behind this
// character, which nobody types, a bracket is one like any other.
constexpr char kNoList = '\x1f';

void protectBrackets(std::vector<std::string>& words) {
  for (std::string& word : words) {
    if (word.starts_with('[')) word.insert(word.begin(), kNoList);
  }
}

void unprotectBrackets(std::string& word) {
  if (word.starts_with(kNoList)) word.erase(0, 1);
}

// The parser with the places that it writes to; they live as long as the request made of them.
class Arguments {
 public:
  Arguments() {
    app_.require_subcommand(1);
    app_.footer(kFooter);
    app_.add_flag("--json", wants_json_, "print JSON, for programs");
    addLooks();
    addEdits();
    addExplanations();
    addCompletion();
    for (CLI::App* command : app_.get_subcommands({})) command->fallthrough();
  }

  CLI::App& app() { return app_; }
  void parse(std::vector<std::string> arguments) {
    protectBrackets(arguments);
    std::reverse(arguments.begin(), arguments.end());  // as the parser takes them
    app_.parse(std::move(arguments));
    for (std::string& word : words_) unprotectBrackets(word);
    for (std::string& target : status_.targets) unprotectBrackets(target);
    for (std::string* word : {&target_, &log_.target, &log_.category}) unprotectBrackets(*word);
    if (check_.file) unprotectBrackets(*check_.file);
  }
  [[nodiscard]] bool wantsJson() const { return wants_json_; }
  [[nodiscard]] const std::function<ExitStatus(const Session&)>& run() const { return run_; }

 private:
  template <typename Run>
  CLI::App* add(const char* name, const char* description, const char* examples, Run action) {
    CLI::App* command = app_.add_subcommand(name, description);
    command->footer(std::string("Examples:\n") + examples);
    command->callback([this, action] { run_ = action; });
    return command;
  }

  // The parser has a form for this, but shows its inner workings in the help.
  static void addNegation(CLI::App* command, const char* name, bool& value,
                          const char* description) {
    command->add_flag_callback(
        name, [&value] { value = false; }, description);
  }

  void addEditOptions(CLI::App* command) {
    command->add_flag("--dry-run", edit_.is_dry_run, "show the difference and write nothing");
    addNegation(command, "--no-apply", edit_.applies, "do not tell the daemon");
  }

  void addLooks() {
    CLI::App* status =
        add("status", "what is held, and whether it worked",
            "  vorlatchctl status\n  vorlatchctl status SpringBoard --watch",
            [this](const Session& session) { return statusCommand(session, status_); });
    status->add_option("TARGET", status_.targets, "only these targets");
    status->add_flag("--watch", status_.watches, "look again and again, until Ctrl-C");
    status->add_option("--interval", status_.interval_s, "seconds between looks")
        ->check(CLI::Range(1, 3600))
        ->capture_default_str();
    add("list", "the configured targets", "  vorlatchctl list --json", listCommand);
    CLI::App* show =
        add("show", "one target's settings and what each means", "  vorlatchctl show backboardd",
            [this](const Session& session) { return showCommand(session, target_); });
    show->add_option("TARGET", target_, "the target")->required();
  }

  void addEdits() {
    CLI::App* set =
        add("set", "change a target's settings, or add a target",
            "  vorlatchctl set backboardd JetsamPriority=highest NiceValue=-20\n"
            "  vorlatchctl set com.tencent.xin MemLimitActive=1500 --dry-run",
            [this](const Session& session) { return setCommand(session, edit_, target_, words_); });
    set->add_option("TARGET", target_, "the target")->required();
    set->add_option("KEY=VALUE", words_, "what to set")->required();
    CLI::App* unset = add(
        "unset", "take keys out of a target's settings",
        "  vorlatchctl unset backboardd CheckInterval",
        [this](const Session& session) { return unsetCommand(session, edit_, target_, words_); });
    unset->add_option("TARGET", target_, "the target")->required();
    unset->add_option("KEY", words_, "what to take out")->required();
    CLI::App* remove =
        add("remove", "take targets out of the preferences: the daemon hands them back",
            "  vorlatchctl remove kbd sharingd",
            [this](const Session& session) { return removeCommand(session, edit_, words_); });
    remove->add_option("TARGET", words_, "the targets")->required();
    CLI::App* enable =
        add("enable", "switch the daemon on", "  vorlatchctl enable",
            [this](const Session& session) { return switchCommand(session, edit_, true); });
    CLI::App* disable = add(
        "disable", "switch the daemon off: every target is handed back", "  vorlatchctl disable",
        [this](const Session& session) { return switchCommand(session, edit_, false); });
    CLI::App* preset =
        add("preset", "put the default preset's targets in", "  vorlatchctl preset --dry-run",
            [this](const Session& session) { return presetCommand(session, edit_, preset_); });
    preset->add_flag("--replace", preset_.replaces_targets,
                     "also over targets that are configured already");
    preset->add_flag("--replace-file", preset_.replaces_file,
                     "write the preset in place of the whole file, whatever stands there");
    for (CLI::App* command : {set, unset, remove, enable, disable, preset}) addEditOptions(command);
    add("apply", "tell the daemon that the preferences changed; it passes over unchanged targets",
        "  vorlatchctl apply", applyCommand);
    CLI::App* release = add("release", "hand every target back, and stay switched off",
                            "  vorlatchctl release\n  vorlatchctl release --keep-preferences",
                            [this](const Session& session) {
                              release_.timeout = std::chrono::seconds(timeout_s_);
                              return releaseCommand(session, release_);
                            });
    release->add_flag("--keep-preferences", release_.keeps_preferences,
                      "leave the preferences as they are afterwards");
    release->add_option("--timeout", timeout_s_, "seconds to wait for the daemon")
        ->check(CLI::Range(1, 600))
        ->capture_default_str();
  }

  void addExplanations() {
    add("plan", "what a freshly started daemon would do to each target, and why",
        "  vorlatchctl plan", planCommand);
    CLI::App* match =
        add("match", "which running process a text finds, and by which rule",
            "  vorlatchctl match com.apple.Preferences",
            [this](const Session& session) { return matchCommand(session, target_); });
    match->add_option("TEXT", target_, "a bundle identifier or process name")->required();
    add("ps", "all processes, to pick targets from", "  vorlatchctl ps", psCommand);
    CLI::App* check = add("check", "every problem in a preferences file",
                          "  vorlatchctl check\n  vorlatchctl check edited.plist --no-processes",
                          [this](const Session& session) { return checkCommand(session, check_); });
    check->add_option("FILE", check_.file, "the file; without one, the daemon's");
    addNegation(check, "--no-processes", check_.looks_at_processes,
                "do not ask whether targets match a running process");
    CLI::App* log = add("log", "the daemon's log",
                        "  vorlatchctl log -n 50\n  vorlatchctl log -f --category 内核",
                        [this](const Session& session) { return logCommand(session, log_); });
    log->add_option("-n,--lines", log_.lines, "the last so many lines; 0: all")
        ->check(CLI::Range(0, 1'000'000))
        ->capture_default_str();
    log->add_flag("-f,--follow", log_.follows, "go on with what comes, until Ctrl-C");
    log->add_option("--target", log_.target, "only what concerns this target");
    log->add_option("--category", log_.category, "only this category, as 内核 or 守护");
    add("bands", "the jetsam bands by name", "  vorlatchctl bands", bandsCommand);
    add("doctor", "how the installation stands; changes nothing", "  vorlatchctl doctor",
        doctorCommand);
  }

  // What the shells ask for; not among the commands that a user is shown.
  void addCompletion() {
    CLI::App* complete =
        add(kCompletionCommand, "the words that may stand next", "",
            [this](const Session& session) { return completeCommand(session, words_); });
    complete->add_option("WORD", words_, "the words so far, the unfinished one last");
    complete->group("");
  }

  CLI::App app_{kDescription, "vorlatchctl"};
  std::function<ExitStatus(const Session&)> run_;
  bool wants_json_ = false;
  std::string target_;
  std::vector<std::string> words_;
  int timeout_s_ = 10;
  StatusOptions status_;
  EditOptions edit_;
  PresetOptions preset_;
  ReleaseOptions release_;
  CheckOptions check_;
  LogOptions log_;
};

bool isShown(const CLI::App* command) {
  return !command->get_group().empty();
}

// The parser says only that something is wrong with the first word it does not know.
void checkCommandName(const std::vector<std::string>& arguments) {
  for (const std::string& argument : arguments) {
    if (argument.starts_with('-')) continue;
    const std::vector<std::string> names = commandNames();
    const bool known = argument == kCompletionCommand ||
                       std::find(names.begin(), names.end(), argument) != names.end();
    if (!known) failWrongUsage("there is no command " + argument + suggestion(argument, names));
    return;
  }
  const auto asks_for_help = [](const std::string& argument) {
    return argument == "-h" || argument == "--help";
  };
  if (std::none_of(arguments.begin(), arguments.end(), asks_for_help)) {
    failWrongUsage("a command is needed; vorlatchctl --help names them");
  }
}

}  // namespace

Request parseArguments(std::vector<std::string> arguments) {
  checkCommandName(arguments);
  const auto parser = std::make_shared<Arguments>();
  try {
    parser->parse(std::move(arguments));
  } catch (const CLI::Success&) {  // --help, of the command named or of them all
    return {.wants_json = false, .run = [shown = parser->app().help()](const Session& session) {
              session.terminal.out(shown);
              return kDone;
            }};
  } catch (const CLI::ParseError& error) {
    failWrongUsage(std::string(error.what()) + " (see --help)");
  }
  return {.wants_json = parser->wantsJson(),
          .run = [parser](const Session& session) { return parser->run()(session); }};
}

std::vector<std::string> commandNames() {
  Arguments parser;
  std::vector<std::string> names;
  for (const CLI::App* command : parser.app().get_subcommands({})) {
    if (isShown(command)) names.push_back(command->get_name());
  }
  return names;
}

std::vector<std::string> optionNames(const std::string& command, bool with_value_only) {
  Arguments parser;
  std::vector<std::string> names;
  const auto add_all = [&](const CLI::App* app) {
    for (const CLI::Option* option : app->get_options()) {
      if (with_value_only && option->get_expected_max() == 0) continue;
      for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
      if (!with_value_only) continue;
      for (const std::string& name : option->get_snames()) names.push_back("-" + name);
    }
  };
  add_all(&parser.app());
  for (const CLI::App* each : parser.app().get_subcommands({})) {
    if (each->get_name() == command) add_all(each);
  }
  return names;
}

}  // namespace vorlatch::cli
