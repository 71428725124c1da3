// vorlatchctl ps
#include <algorithm>
#include <array>

#include "cli/completion.h"
#include "cli/table.h"
#include "control/app_names.h"
#include "control/memory_view.h"
#include "control/nearest.h"
#include "kernel/nice_value.h"

namespace vorlatch::cli {
namespace {

using control::numberText;

struct Options {
  std::string filter;  // empty: all
  std::string order;   // empty: the kernel's
};

struct Row {
  const RunningProcess* process;
  std::optional<std::int32_t> band;
  std::optional<std::int32_t> nice_value;
  std::optional<std::int32_t> limit_mb;  // as the kernel reports it; -1: none
  control::MemoryView memory;
};

bool isLarger(const Row& a, const Row& b) {
  const auto bytes = [](const Row& row) {
    return row.memory.memory ? row.memory.memory->footprint_bytes : 0;
  };
  return bytes(a) > bytes(b);
}

struct Order {
  const char* name;
  bool (*comes_before)(const Row& a, const Row& b);
};
constexpr std::array<Order, 5> kOrders = {{
    {"memory", isLarger},
    {"band", [](const Row& a, const Row& b) { return a.band > b.band; }},
    {"name", [](const Row& a, const Row& b) { return a.process->name < b.process->name; }},
    {"nice", [](const Row& a, const Row& b) { return a.nice_value < b.nice_value; }},
    {"pid", [](const Row& a, const Row& b) { return a.process->pid < b.process->pid; }},
}};

Words orderNames(const std::string& /*unfinished*/) {
  Words names;
  for (const Order& order : kOrders) names.emplace_back(order.name);
  return names;
}

void sort(std::vector<Row>& rows, const std::string& name) {
  if (name.empty()) return;
  for (const Order& order : kOrders) {
    if (name == order.name) return std::stable_sort(rows.begin(), rows.end(), order.comes_before);
  }
  std::string known;
  for (const std::string& each : orderNames("")) known += " " + each;
  failWrongUsage(tr("ps cannot sort by %s; it sorts by:%s", name, known));
}

std::vector<Row> rowsOf(const control::Observation& observation, const std::string& filter) {
  std::vector<Row> rows;
  for (const RunningProcess& process : observation.processes) {
    if (!control::containsIgnoringCase(process.name, filter) &&
        !control::containsIgnoringCase(process.bundle_identifier.value_or(""), filter)) {
      continue;
    }
    const control::JetsamEntry* entry = observation.jetsamEntry(process.pid);
    rows.push_back({.process = &process,
                    .band = observation.band(process.pid),
                    .nice_value = observeNiceValue(process.pid),
                    .limit_mb = entry != nullptr ? std::optional(entry->limit_mb) : std::nullopt,
                    .memory = control::memoryOf(observation, process.pid)});
  }
  return rows;
}

Json jsonOfRow(const Row& row, control::AppNames& names) {
  return {{"pid", row.process->pid},
          {"name", row.process->name},
          {"bundle_identifier", jsonOf(row.process->bundle_identifier)},
          {"display_name", jsonOf(names.ofProcess(row.process))},
          {"band", jsonOf(row.band)},
          {"nice", jsonOf(row.nice_value)},
          {"limit_mb", jsonOf(row.limit_mb)},
          {"memory", control::memoryJson(row.memory)}};
}

ExitStatus listProcesses(const Session& session, const Options& options) {
  const control::Observation observation = control::Observation::now();
  std::vector<Row> rows = rowsOf(observation, options.filter);
  sort(rows, options.order);
  if (session.wants_json) {
    Json processes = Json::array();
    control::AppNames names;
    for (const Row& row : rows) processes.push_back(jsonOfRow(row, names));
    print(session, {{"processes", processes}});
    return kDone;
  }
  Table table({{.heading = english("PID")},
               {.heading = english("NAME"), .is_typed = true},
               {.heading = english("BUNDLE IDENTIFIER"), .rank = 1, .is_typed = true},
               {.heading = english("BAND"), .rank = 2},
               {.heading = english("NICE"), .rank = 4},
               {.heading = english("LIMIT MB"), .rank = 3},
               {.heading = english("MEMORY MB")}});
  // On a narrower screen, the bundle identifier is worth more than a bar.
  constexpr std::size_t kBarColumns = 100;
  const Terminal& terminal = session.terminal;
  const bool with_bar = terminal.is_terminal && terminal.columns() >= kBarColumns;
  for (const Row& row : rows) {
    table.add({std::to_string(row.process->pid), row.process->name,
               row.process->bundle_identifier.value_or("-"), numberText(row.band),
               numberText(row.nice_value), numberText(row.limit_mb),
               control::memoryText(row.memory, with_bar)});
  }
  if (table.isEmpty()) {
    printLine(session,
              tr("no process has \"%s\" in its name or bundle identifier", options.filter));
  } else {
    session.terminal.out(table.text(session.terminal));
  }
  return kDone;
}

Run prepare(Arguments& arguments) {
  const auto options = std::make_shared<Options>();
  arguments = {{.name = "FILTER",
                .description = english("only processes with this in their name"),
                .value = &options->filter,
                .offer = runningNames},
               {.name = "--sort",
                .description = english("by memory, band, name, nice or pid"),
                .value = &options->order,
                .offer = orderNames}};
  return [options](const Session& session) { return listProcesses(session, *options); };
}

const RegisteredCommand kPs({
    .name = "ps",
    .description = english("all processes, to pick targets from"),
    .examples = "  vorlatchctl ps --sort memory\n  vorlatchctl ps kbd",
    .place = 140,
    .prepare = prepare,
});

}  // namespace
}  // namespace vorlatch::cli
