// vorlatchctl ps
#include "cli/command.h"
#include "cli/table.h"
#include "control/observation.h"
#include "kernel/nice_value.h"

namespace vorlatch::cli {
namespace {

using control::numberText;

ExitStatus listProcesses(const Session& session) {
  const control::Observation observation = control::Observation::now();
  Json processes = Json::array();
  Table table({"PID", "NAME", "BUNDLE IDENTIFIER", "BAND", "NICE", "LIMIT MB"});
  for (const RunningProcess& process : observation.processes) {
    const control::JetsamEntry* entry = observation.jetsamEntry(process.pid);
    const std::optional<std::int32_t> band = observation.band(process.pid);
    const std::optional<std::int32_t> nice_value = observeNiceValue(process.pid);
    const auto limit_mb = entry != nullptr ? std::optional(entry->limit_mb) : std::nullopt;
    if (session.wants_json) {
      processes.push_back({{"pid", process.pid},
                           {"name", process.name},
                           {"bundle_identifier", jsonOf(process.bundle_identifier)},
                           {"band", jsonOf(band)},
                           {"nice", jsonOf(nice_value)},
                           {"limit_mb", jsonOf(limit_mb)}});
    } else {
      table.add({std::to_string(process.pid), process.name, process.bundle_identifier.value_or("-"),
                 numberText(band), numberText(nice_value), numberText(limit_mb)});
    }
  }
  if (session.wants_json) {
    print(session, {{"processes", processes}});
  } else {
    session.terminal.out(table.text(session.terminal));
  }
  return kDone;
}

const RegisteredCommand kPs({
    .name = "ps",
    .description = "all processes, to pick targets from",
    .examples = "  vorlatchctl ps",
    .place = 140,
    .prepare = [](Arguments&) { return Run(listProcesses); },
});

}  // namespace
}  // namespace vorlatch::cli
