// Why the system ended a process, and whether the target's settings were in force then.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "config/target_settings.h"
#include "control/jetsam_report.h"

namespace vorlatch::control {

// Returns the reason for people: "it went over its own hard limit". A reason that is unknown stays
// as the report has it.
std::string reasonText(const std::string& reason);

struct KillVerdict {
  enum class Kind {
    OverWantedLimit,
    OverOtherLimit,   // though another limit is wanted
    OverSystemLimit,  // no limit is wanted
    BandNotHeld,
    HeldToTheLast,  // no process in a lower band was left
    Held,
    BandOfSystem,  // no band is wanted
    Unknown,       // the report lacks a value
  };
  Kind kind;
  const char* code;  // the word for programs, which never changes
  std::string text;  // for people
};

// Judges by the present settings: the limit of the process's state for a reason that is a limit,
// and the band for any other reason.
KillVerdict judgeKill(const ReportedProcess& process, const JetsamReport& report,
                      const TargetSettings& wanted);

}  // namespace vorlatch::control
