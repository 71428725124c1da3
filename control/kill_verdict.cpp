#include "control/kill_verdict.h"

#include <algorithm>
#include <array>

#include "control/memory_view.h"
#include "control/translation.h"
#include "kernel/jetsam_band.h"
#include "platform/jetsam_bands.h"

namespace vorlatch::control {
namespace {

using Kind = KillVerdict::Kind;

enum class Cause { Limit, ShortMemory, Other };

// The names of memorystatus_kill_cause_name in xnu-11417.101.15 (bsd/kern/kern_memorystatus.c).
struct Reason {
  const char* name;
  const char* text;
  Cause cause;
};
constexpr std::array<Reason, 16> kReasons = {{
    {"per-process-limit", english("it went over its own hard limit"), Cause::Limit},
    {"highwater", english("over its soft limit when memory was short"), Cause::Limit},
    {"vm-pageshortage",
     english("memory was short, and it was in the lowest band that had anything to give"),
     Cause::ShortMemory},
    {"vnode-limit", english("the system ran out of vnodes"), Cause::Other},
    {"fc-thrashing", english("the file cache was read again and again"), Cause::ShortMemory},
    {"proc-thrashing", english("pages of processes were read again and again"), Cause::ShortMemory},
    {"vm-compressor-thrashing", english("the memory compressor was full"), Cause::ShortMemory},
    {"vm-compressor-space-shortage", english("the memory compressor was full"), Cause::ShortMemory},
    {"low-swap", english("the swap space was full"), Cause::ShortMemory},
    {"zone-map-exhaustion", english("the kernel's own memory ran out"), Cause::ShortMemory},
    {"idle-exit", english("an idle daemon was ended, as usual"), Cause::Other},
    {"long-idle-exit", english("an idle daemon was ended, as usual"), Cause::Other},
    {"disk-space-shortage", english("the disk was full"), Cause::Other},
    {"sustained-memory-pressure", english("memory stayed short for long"), Cause::ShortMemory},
    {"vm-pageout-starvation", english("memory could not be written out fast enough"),
     Cause::ShortMemory},
    {"jettisoned", english("for another reason, which the system does not say"), Cause::Other},
}};

const Reason* findReason(const std::string& name) {
  const auto* reason = std::find_if(kReasons.begin(), kReasons.end(),
                                    [&name](const Reason& each) { return name == each.name; });
  return reason == kReasons.end() ? nullptr : reason;
}

constexpr std::array<const char*, 8> kCodes = {"over-wanted-limit", "over-other-limit",
                                               "over-system-limit", "band-not-held",
                                               "held-to-the-last",  "held",
                                               "band-of-system",    "unknown"};

KillVerdict verdictOf(Kind kind, std::string text) {
  return {.kind = kind, .code = kCodes.at(static_cast<std::size_t>(kind)), .text = std::move(text)};
}

KillVerdict unknown() {
  return verdictOf(Kind::Unknown, tr("the report does not say enough to judge"));
}

// A process counts as inactive below the foreground band. Without a band, its states decide.
bool wasActive(const ReportedProcess& process, const JetsamReport& report) {
  constexpr std::int32_t kForeground = 10;
  constexpr std::array<const char*, 3> kActiveStates = {"frontmost", "foreground", "active"};
  if (process.band) return *process.band >= kForeground * (report.has_tenfold_bands ? 10 : 1);
  return std::find_first_of(process.states.begin(), process.states.end(), kActiveStates.begin(),
                            kActiveStates.end()) != process.states.end();
}

KillVerdict judgeLimit(const ReportedProcess& process, const JetsamReport& report,
                       const TargetSettings& wanted) {
  const std::int32_t limit_mb =
      wasActive(process, report) ? wanted.active_limit_mb : wanted.inactive_limit_mb;
  if (limit_mb < 1) {
    return verdictOf(Kind::OverSystemLimit, tr("over the system's limit; you set none for it"));
  }
  const auto used = process.memory_bytes ? process.memory_bytes : process.highest_bytes;
  if (!used) return unknown();
  if (megabytesOf(*used) >= limit_mb) {
    return verdictOf(Kind::OverWantedLimit, tr("over the limit that you set (%s MB)", limit_mb));
  }
  return verdictOf(
      Kind::OverOtherLimit,
      tr("over a lower limit than the one that you set (%s MB): not held then", limit_mb));
}

KillVerdict judgeBand(const ReportedProcess& process, const JetsamReport& report,
                      const TargetSettings& wanted) {
  if (!process.band) return unknown();
  const std::int32_t band = *process.band;
  if (wanted.jetsam_priority < 1) {
    return verdictOf(Kind::BandOfSystem,
                     tr("it stood in band %s; you left its band to the system", band));
  }
  const std::int32_t highest =
      report.has_tenfold_bands ? platform::kHighestBandSinceIOS16 : platform::kHighestBandToIOS15;
  if (!jetsamBandHolds(wanted, band, highest)) {
    return verdictOf(Kind::BandNotHeld, tr("it stood in band %s, though you asked for %s: not held "
                                           "then",
                                           band, wanted.jetsam_priority));
  }
  if (report.lowest_band_left >= band) {
    return verdictOf(Kind::HeldToTheLast,
                     tr("held at %s, everything below had gone already", band));
  }
  if (report.lowest_band_left) {
    return verdictOf(Kind::Held, tr("held at %s, though lower bands were not empty", band));
  }
  return verdictOf(Kind::Held, tr("held at %s", band));
}

}  // namespace

std::string reasonText(const std::string& reason) {
  const Reason* known = findReason(reason);
  return known != nullptr ? translated(known->text) : reason;
}

KillVerdict judgeKill(const ReportedProcess& process, const JetsamReport& report,
                      const TargetSettings& wanted) {
  const Reason* reason = findReason(process.reason);
  const Cause cause = reason != nullptr ? reason->cause : Cause::Other;
  if (cause == Cause::Limit) return judgeLimit(process, report, wanted);
  KillVerdict verdict = judgeBand(process, report, wanted);
  if (cause == Cause::ShortMemory) verdict.text = tr("memory was short; %s", verdict.text);
  return verdict;
}

}  // namespace vorlatch::control
