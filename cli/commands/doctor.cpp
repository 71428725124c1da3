// vorlatchctl doctor
#include "cli/command.h"
#include "control/diagnosis.h"

namespace vorlatch::cli {
namespace {

ExitStatus doctor(const Session& session) {
  std::vector<std::string> lines;
  const Json report = control::diagnose(lines);
  if (session.wants_json) {
    print(session, report);
  } else {
    for (const std::string& line : lines) printLine(session, line);
  }
  return report["findings"].empty() ? kDone : kFinding;
}

const RegisteredCommand kDoctor({
    .name = "doctor",
    .description = english("how the installation stands; changes nothing"),
    .examples = "  vorlatchctl doctor",
    .place = 180,
    .prepare = [](Arguments&) { return Run(doctor); },
});

}  // namespace
}  // namespace vorlatch::cli
