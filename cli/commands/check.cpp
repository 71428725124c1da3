// vorlatchctl check
#include "control/check.h"

#include "cli/command.h"

namespace vorlatch::cli {
namespace {

using control::CheckedFile;
using control::Finding;

struct Options {
  std::optional<std::string> file;  // empty: the daemon's file
  bool looks_at_processes = true;
};

Json jsonOf(const PropertyListSize& size) {
  return {{"file_bytes", size.file_bytes},
          {"memory_bytes", size.memory_bytes},
          {"levels", size.levels}};
}

std::string percentText(std::size_t part, std::size_t whole) {
  return std::to_string((100 * part + whole - 1) / whole) + " %";
}

// Says how much of the daemon's bounds the file uses.
std::string textOf(const PropertyListSize& size) {
  const PropertyListSize& bound = kPropertyListBound;
  return tr("takes %s of the memory that the daemon gives it, %s of the bytes, %s of %s levels",
            percentText(size.memory_bytes, bound.memory_bytes),
            percentText(size.file_bytes, bound.file_bytes), size.levels, bound.levels);
}

void report(const Session& session, const CheckedFile& file) {
  if (session.wants_json) {
    print(session, {{"file", file.path},
                    {"findings", control::findingsJson(file.findings)},
                    {"size", file.size ? jsonOf(*file.size) : Json()},
                    {"bound", jsonOf(kPropertyListBound)}});
    return;
  }
  for (const Finding& each : file.findings) {
    std::string where;
    for (const std::string& key : each.path) where += (where.empty() ? "" : " / ") + key;
    printLine(session, (where.empty() ? file.path : where) + ": " + each.message);
  }
  if (file.findings.empty()) printLine(session, tr("%s: all in order", file.path));
  if (file.size) printLine(session, file.path + ": " + textOf(*file.size));
}

Run prepare(Arguments& arguments) {
  const auto options = std::make_shared<Options>();
  arguments = {{.name = "FILE",
                .description = english("the file; without one, the daemon's"),
                .value = &options->file},
               {.name = "--no-processes",
                .description = english("do not ask whether targets match a running process"),
                .value = &options->looks_at_processes,
                .flag_means = false}};
  return [options](const Session& session) {
    const CheckedFile file = control::checkFile(options->file, options->looks_at_processes);
    report(session, file);
    return file.findings.empty() ? kDone : kFinding;
  };
}

const RegisteredCommand kCheck({
    .name = "check",
    .description = english("every problem in a preferences file"),
    .examples = "  vorlatchctl check\n  vorlatchctl check edited.plist --no-processes",
    .place = 150,
    .prepare = prepare,
});

}  // namespace
}  // namespace vorlatch::cli
