#include "tests/faults/outcomes.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <sstream>
#include <string_view>

namespace vorlatch::faults {
namespace {

using Outcomes = std::vector<Outcome>;
using Errors = std::vector<int>;

constexpr std::uint64_t kSlowNs = 3'000'000'000;

// The kinds of call with the errors of a plain refusal, what a refused call returns, and its other
// outcomes.
struct Row {
  std::string kind;
  Errors errors;
  int refused = -1;
  Outcomes others = {};
};

Outcome told(int result, int error = 0) {
  return {.name = std::to_string(result) + " errno " + std::to_string(error) + " after acting",
          .result = result,
          .error = error,
          .acts = true};
}
Outcome nothing(int result, int error = 0) {
  return {.name = std::to_string(result) + " errno " + std::to_string(error),
          .result = result,
          .error = error};
}
// The call succeeds, and leaves these words in its buffer.
Outcome wrote(int result, const std::vector<std::int32_t>& words) {
  std::string bytes(4 * words.size(), '\0');
  std::memcpy(bytes.data(), words.data(), bytes.size());
  return {.name = "other words", .result = result, .acts = true, .buffer = bytes};
}
Outcome part(std::optional<int> result = std::nullopt, int error = 0) {
  return {.name = "half", .result = result, .error = error, .in_part = true};
}

const Outcome kInterrupted = nothing(-1, EINTR);
const Errors kOfProcess{EPERM, ESRCH, EINVAL};
// Refused, or ignored, or done although an error is returned.
const Outcomes kOfSetting{nothing(0), told(-1, EPERM), nothing(1)};
const Errors kOfOpening{EACCES, EMFILE, EIO, ENOMEM, EINTR, ELOOP, ENOENT};

const std::vector<Row>& table() {
  static const std::vector<Row> rows{
      // The kernel. Lists may be empty, end within an entry, or hold other processes.
      {"memorystatus_control 1 size", {EPERM, EINVAL}, -1, {nothing(0), told(24)}},
      {"memorystatus_control 1 list",
       {EPERM, EINVAL, ENOMEM},
       -1,
       {told(0), told(23), told(24), wrote(48, {100, 77, 0, 0, 0, 0, 101, -999, 0, 0, 0, 0})}},
      {"memorystatus_control 2", kOfProcess, -1, kOfSetting},
      {"memorystatus_control 7", kOfProcess, -1, kOfSetting},
      {"memorystatus_control 8", kOfProcess, -1, {wrote(0, {300, 1, 50, 0})}},
      {"memorystatus_control 14", kOfProcess, -1, kOfSetting},
      {"memorystatus_control 15", kOfProcess, -1, kOfSetting},
      {"memorystatus_control 16", kOfProcess, -1, kOfSetting},
      {"memorystatus_control 17", kOfProcess, -1, {nothing(1), nothing(0)}},
      {"memorystatus_control 18", kOfProcess, -1, kOfSetting},
      {"getpriority 0", {ESRCH, EPERM}, -1, {nothing(-1)}},
      {"setpriority 0", {ESRCH, EPERM, EACCES}, -1, kOfSetting},
      {"setpriority 6", {ESRCH, EPERM, ENOTSUP}, -1, {nothing(0)}},
      // The process table. A name may come without its length.
      {"proc_listpids size", {EPERM, ENOMEM}, 0, {told(12), nothing(-1, EINVAL)}},
      {"proc_listpids list", {ENOMEM}, 0, {nothing(-1, EINVAL), told(3), told(4), told(40)}},
      {"proc_name", {ESRCH, 0}, 0, {told(0)}},
      {"proc_pidpath", {ESRCH, ENOENT}, 0},
      // Functions that return nothing when they fail.
      {"observeNotification", {0}},
      {"parsePropertyList", {0}},
      {"writeXmlPropertyList", {0}},
      {"allocate", {ENOMEM}},
      // Files. Only some errors of a look say that there is no file.
      {"stat", {EACCES, EIO, ENOMEM, ELOOP}, -1, {nothing(-1, ENOENT), nothing(-1, ENOTDIR)}},
      {"lstat", {EACCES, EIO, ENOMEM, ENOENT, ENOTDIR, ELOOP}},
      {"fstatat", {EACCES, EIO, ENOMEM, ENOENT, ENOTDIR, ELOOP}},
      {"fstat", {EIO, ENOMEM}},
      {"open", kOfOpening},
      {"open to create", {EACCES, EMFILE, EIO, ENOSPC, EROFS, EEXIST}},
      {"mkostemp", {EACCES, EMFILE, EIO, ENOSPC, EROFS, EEXIST}},
      {"read", {EIO, EAGAIN}, -1, {kInterrupted, part(), nothing(0)}},
      {"write", {EIO, ENOSPC, EAGAIN}, -1, {kInterrupted, part(), nothing(0)}},
      {"fchmod", {EPERM, EIO, EROFS, EINTR}},
      {"rename", {EACCES, EIO, ENOSPC, ENOENT, EISDIR}},
      {"unlink", {EACCES, EIO, ENOENT}},
      {"ftruncate", {EIO, EINTR, EPERM}},
      {"dup2 1", {EIO, EINTR, EMFILE}},
      {"dup2 2", {EIO, EINTR, EMFILE}},
      {"close", {}, -1, {told(-1, EIO), told(-1, EINTR)}},
      // The log. A full disk may take half of a line.
      {"line", {EIO, EINTR}, -1, {part(-1, ENOSPC)}},
      {"flush", {}, -1, {told(-1, EIO)}},
  };
  return rows;
}

}  // namespace

std::string kindOf(std::string_view function, int command, bool has_buffer) {
  std::string kind(function);
  if (kind == "memorystatus_control" || kind.ends_with("priority")) {
    kind += ' ' + std::to_string(command);
  }
  if (kind != "memorystatus_control 1" && kind != "proc_listpids") return kind;
  return kind + (has_buffer ? " list" : " size");
}

const std::vector<std::string>& kernelKinds() {
  static const std::vector<std::string> kinds = [] {
    std::vector<std::string> all;
    for (const Row& row : table()) {
      if (row.kind == "observeNotification") break;
      all.push_back(row.kind);
    }
    return all;
  }();
  return kinds;
}

std::vector<Outcome> outcomesOf(const std::string& kind, bool about_process, std::size_t number) {
  const auto row = std::find_if(table().begin(), table().end(),
                                [&kind](const Row& each) { return each.kind == kind; });
  if (row == table().end()) return {};
  Outcomes outcomes = row->others;
  if (!row->errors.empty()) {
    outcomes.push_back(nothing(row->refused, row->errors[number % row->errors.size()]));
  }
  if (about_process) {
    outcomes.push_back({.name = "the process is gone", .exits_before = true});
    outcomes.push_back({.name = "the process exits", .exits_after = true});
  }
  if (row - table().begin() < static_cast<std::ptrdiff_t>(kernelKinds().size()) &&
      number % 8 == 0) {
    outcomes.push_back({.name = "slow", .takes_ns = kSlowNs});
  }
  return outcomes;
}

simulated::Script scriptOf(const std::string& kind, const Outcome& outcome) {
  simulated::Script script{.function = "",
                           .result = outcome.result,
                           .error = outcome.error,
                           .acts = outcome.acts,
                           .buffer = outcome.buffer,
                           .takes_ns = outcome.takes_ns};
  std::istringstream words(kind);
  words >> script.function;
  if (int command = 0; words >> command) script.command = command;
  return script;
}

}  // namespace vorlatch::faults
