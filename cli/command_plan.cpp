// vorlatchctl plan
#include "cli/bands.h"
#include "cli/commands.h"
#include "cli/settings_schema.h"
#include "cli/verdict.h"
#include "kernel/judgement.h"

namespace vorlatch::cli {
namespace {

// What would be done to one target, a step a line, in the order in which the daemon does it.
std::vector<std::string> stepsFor(const TargetView& target, const Observation& observation) {
  const Wanted& wanted = target.wanted;
  std::vector<std::string> steps;
  const auto limit = [](std::int32_t limit_mb) {
    return limit_mb < 1 ? std::string("the system's default")
                        : std::to_string(limit_mb) + " MB, fatal";
  };
  steps.push_back("set the memory limits: active " + limit(wanted.active_limit_mb) + ", inactive " +
                  limit(wanted.inactive_limit_mb));
  const std::string nice_value = std::to_string(wanted.nice_value);
  if (!target.now.nice_value) {
    steps.push_back("read the nice value, and set it to " + nice_value + " unless it is that");
  } else if (*target.now.nice_value == wanted.nice_value) {
    steps.push_back("leave the nice value, which is " + nice_value);
  } else {
    steps.push_back("set the nice value from " + std::to_string(*target.now.nice_value) + " to " +
                    nice_value);
  }
  if (wanted.band == -1) {
    steps.emplace_back("leave the jetsam band");
  } else if (wanted.band == 0) {
    steps.emplace_back("return the process to the system's management, and its band to idle");
  } else {
    std::string step =
        "mark the process as unmanaged and set jetsam band " + std::to_string(wanted.band);
    const std::optional<std::int32_t> adapted = adaptedBand(wanted.band);
    const bool may_be_refused = wanted.band > observation.highestBand().value_or(0);
    if (adapted && may_be_refused) step += "; if refused, band " + std::to_string(*adapted);
    steps.push_back(step);
  }
  if (wanted.strips_managed) {
    steps.emplace_back(*wanted.strips_managed
                           ? "take it out of the system's management, not freezable, elevated"
                           : "give it back to the system's management, freezable, not elevated");
  }
  return steps;
}

std::string reasonFor(const TargetView& target) {
  if (target.pid == 0) return "does not run: nothing now, watched for";
  std::string reason = "runs as " + std::to_string(target.pid);
  if (target.process != nullptr) {
    reason += target.process->name == target.key ? ", found by its name"
                                                 : ", found by its bundle identifier";
  }
  return reason;
}

std::string afterwards(const TargetView& target) {
  return target.wanted.interval_s > 0
             ? "then again every " + std::to_string(target.wanted.interval_s) +
                   " s by its own timer"
             : "then again every 1800 s by the patrol";
}

constexpr const char* kUnknown =
    "What the kernel will accept, and what the running daemon remembers of settings that it "
    "applied before, cannot be known from here: the running daemon passes over a target whose "
    "settings and process have not changed since.";

}  // namespace

ExitStatus planCommand(const Session& session) {
  const Observation observation = Observation::now();
  Json targets = Json::array();
  std::string text;
  for (const auto& [key, settings] : observation.targets) {
    // A freshly started daemon has written nothing: its first pass chooses.
    TargetView target = viewOf(observation, key, settings);
    const std::int32_t pid = observation.pidForPass(key);
    const bool is_held = target.written != nullptr && pid != 0 && target.written->pid == pid;
    if (target.pid != pid) {
      target.pid = pid;
      target.process = observation.process(pid);
      target.now = observation.kernelSays(pid);
    }
    const std::vector<std::string> steps =
        pid != 0 ? stepsFor(target, observation) : std::vector<std::string>();
    if (session.wants_json) {
      targets.push_back({{"target", key},
                         {"pid", pid},
                         {"reason", reasonFor(target)},
                         {"steps", steps},
                         {"afterwards", afterwards(target)},
                         {"held_already", is_held}});
      continue;
    }
    text += key + ": " + reasonFor(target) + (is_held ? " (held already)" : "") + "\n";
    for (const std::string& step : steps) text += "  " + step + "\n";
    text += "  " + afterwards(target) + "\n";
  }
  if (session.wants_json) {
    print(session,
          {{"enabled", observation.isSwitchedOn()}, {"targets", targets}, {"unknown", kUnknown}});
    return kDone;
  }
  if (!observation.isSwitchedOn()) {
    printLine(session, "Switched off: the daemon would do nothing. Switched on, it would:");
  }
  if (observation.targets.empty()) printLine(session, "no targets");
  std::size_t begin = 0;
  for (std::size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', begin)) {
    printLine(session, std::string_view(text).substr(begin, end - begin));
    begin = end + 1;
  }
  printLine(session, kUnknown);
  return kDone;
}

}  // namespace vorlatch::cli
