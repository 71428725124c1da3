#include "tests/faults/outcomes.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <map>
#include <string_view>

namespace vorlatch::faults {
namespace {

using Outcomes = std::vector<Outcome>;

constexpr std::array<std::string_view, 3> kAboutAProcess = {"memorystatus_control", "getpriority",
                                                            "setpriority"};

Outcome refusal(const char* name, int error) {
  return {.name = name, .way = Way::Refuses, .result = -1, .error = error};
}
Outcome nothing(const char* name, int error = 0) {
  return {.name = name, .way = Way::Refuses, .result = 0, .error = error};
}
Outcome part(const char* name) {
  return {.name = name, .way = Way::Part};
}
Outcome told(const char* name, std::int64_t result, int error = 0) {
  return {.name = name, .way = Way::Acts, .result = result, .error = error};
}

// The outcomes by kind of call: its name and, where it has several meanings, the meaning.
const std::map<std::string, Outcomes>& table() {
  static const Outcome no_permission = refusal("EPERM", EPERM);
  static const Outcome no_access = refusal("EACCES", EACCES);
  static const Outcome no_process = refusal("ESRCH", ESRCH);
  static const Outcome invalid = refusal("EINVAL", EINVAL);
  static const Outcome no_memory = refusal("ENOMEM", ENOMEM);
  static const Outcome io = refusal("EIO", EIO);
  static const Outcome full = refusal("ENOSPC", ENOSPC);
  static const Outcome again = refusal("EAGAIN", EAGAIN);
  static const Outcome interrupted = refusal("EINTR", EINTR);
  static const Outcome no_descriptor = refusal("EMFILE", EMFILE);
  static const Outcome no_file = refusal("ENOENT", ENOENT);
  static const Outcome no_directory = refusal("ENOTDIR", ENOTDIR);
  static const Outcome is_directory = refusal("EISDIR", EISDIR);
  static const Outcome is_link = refusal("ELOOP", ELOOP);
  static const Outcome is_there = refusal("EEXIST", EEXIST);
  static const Outcome read_only = refusal("EROFS", EROFS);
  static const Outcome ignored = nothing("ignored");
  static const Outcomes of_process{no_permission, no_process, invalid};
  static const Outcomes of_setting{no_permission, no_process, invalid, ignored};
  static const Outcomes of_opening{no_access,   no_descriptor, io,     no_memory,
                                   interrupted, no_file,       is_link};
  static const Outcomes of_making{no_access, no_descriptor, io, full, read_only, is_there};
  static const Outcomes of_looking{no_access, io, no_memory, no_file, no_directory, is_link};
  static const Outcomes of_mode{no_permission, io, read_only, interrupted};
  static const std::map<std::string, Outcomes> outcomes{
      // The kernel, including a size that is too small, a list cut short, and a call without
      // effect.
      {"memorystatus_control 1 size", {no_permission, invalid, nothing("0"), told("24", 24)}},
      {"memorystatus_control 1 list",
       {no_permission,
        invalid,
        no_memory,
        told("0", 0),
        told("23", 23),
        told("24", 24),
        {.name = "half", .way = Way::Half}}},
      {"memorystatus_control 2", of_setting},
      {"memorystatus_control 7", of_setting},
      {"memorystatus_control 8", of_process},
      {"memorystatus_control 14", of_setting},
      {"memorystatus_control 15", of_setting},
      {"memorystatus_control 16", of_setting},
      {"memorystatus_control 17", of_process},
      {"memorystatus_control 18", of_setting},
      {"getpriority 0", {no_process, no_permission}},
      {"setpriority 0", {no_process, no_permission, no_access, ignored}},
      {"setpriority 6", {no_process, no_permission, refusal("ENOTSUP", ENOTSUP), ignored}},
      // The process table.
      {"proc_listpids size", {nothing("EPERM", EPERM), nothing("ENOMEM", ENOMEM), told("1", 1)}},
      {"proc_listpids list",
       {nothing("ENOMEM", ENOMEM),
        invalid,
        told("3", 3),
        told("4", 4),
        {.name = "half", .way = Way::Half}}},
      {"proc_name", {nothing("ESRCH", ESRCH), nothing("empty"), told("0", 0)}},
      {"proc_pidpath", {nothing("ESRCH", ESRCH), nothing("ENOENT", ENOENT)}},
      // The other platform functions.
      {"observeNotification", {nothing("refused")}},
      {"parsePropertyList", {nothing("nothing")}},
      {"writeXmlPropertyList", {nothing("nothing")}},
      {"localTimeStamp", {nothing("empty")}},
      // Allocations without which the daemon can continue.
      {"allocate", {nothing("null", ENOMEM)}},
      // Files.
      {"stat", of_looking},
      {"lstat", of_looking},
      {"fstatat", of_looking},
      {"fstat", {io, no_memory}},
      {"open", of_opening},
      {"open to create", of_making},
      {"mkostemp", of_making},
      {"read", {io, interrupted, again, part("short"), nothing("0")}},
      {"write", {io, full, interrupted, again, part("short"), nothing("0")}},
      {"fchmod", of_mode},
      {"rename", {no_access, io, full, no_file, is_directory}},
      {"unlink", {no_access, io, no_file}},
      {"ftruncate", {io, interrupted, no_permission}},
      {"dup2", {io, interrupted, no_descriptor}},
      {"close", {told("EIO", -1, EIO), told("EINTR", -1, EINTR)}},
      // The log. A full disk may take half of a line.
      {"line",
       {io,
        interrupted,
        {.name = "half of it, ENOSPC", .way = Way::Part, .result = -1, .error = ENOSPC}}},
      {"flush", {told("EIO", -1, EIO)}},
  };
  return outcomes;
}

std::string kindOf(const Call& call) {
  if (call.name == "memorystatus_control") {
    std::string command = call.name + ' ' + std::to_string(call.arguments[0]);
    if (call.arguments[0] != 1) return command;
    return command + (call.arguments[3] == 0 ? " size" : " list");
  }
  if (call.name == "proc_listpids") return call.name + (call.arguments[2] == 0 ? " size" : " list");
  if (call.name == "getpriority" || call.name == "setpriority") {
    return call.name + ' ' + std::to_string(call.arguments[0]);
  }
  if (call.name == "open") return (call.arguments[0] & O_CREAT) != 0 ? "open to create" : "open";
  return call.name;
}

}  // namespace

std::int32_t otherProcess(const Call& call) {
  const bool is_named = call.name == "proc_name" || call.name == "proc_pidpath";
  const bool is_about =
      std::find(kAboutAProcess.begin(), kAboutAProcess.end(), call.name) != kAboutAProcess.end();
  if (!is_named && !is_about) return 0;
  const auto pid = static_cast<std::int32_t>(call.arguments[is_named ? 0 : 1]);
  return pid == getpid() ? 0 : pid;
}

std::string describe(const Call& call) {
  std::string text = call.name + '(';
  for (const std::int64_t argument : call.arguments) {
    if (text.back() != '(') text += ", ";
    text += argument == getpid() ? "self" : std::to_string(argument);
  }
  text += ')';
  if (!call.path.empty()) text += " on " + call.path.substr(call.path.rfind('/') + 1);
  if (call.name == "line") text += ' ' + call.given.substr(0, call.given.find('\n'));
  return text;
}

bool areAlike(const Call& call, const Outcome& one, const Outcome& other) {
  if (one.way != other.way || one.result != other.result) return false;
  const auto goes_on = [](const Outcome& outcome) { return outcome.error == EINTR; };
  const auto is_missing = [](const Outcome& outcome) {
    return outcome.error == ENOENT || outcome.error == ENOTDIR;
  };
  if (call.name == "read" || call.name == "write") return goes_on(one) == goes_on(other);
  if (call.name == "stat") return is_missing(one) == is_missing(other);
  return true;
}

std::vector<Outcome> outcomesOf(const Call& call) {
  const auto row = table().find(kindOf(call));
  Outcomes outcomes = row == table().end() ? Outcomes{} : row->second;
  if (otherProcess(call) != 0) {
    outcomes.push_back({.name = "gone", .way = Way::Gone});
    outcomes.push_back({.name = "goes", .way = Way::Goes});
  }
  return outcomes;
}

}  // namespace vorlatch::faults
