// The end of a story: after the disturbances end, every configured process that runs must have the
// settings of the file.
#include <algorithm>
#include <map>
#include <optional>
#include <utility>

#include "tests/faults/fault_injector.h"
#include "tests/oracle/reading.h"
#include "tests/random/stage.h"
#include "tests/support/text.h"

namespace vorlatch::tests::random {
namespace {

using plist::Dictionary;

constexpr std::size_t kLongestName = 31;  // the kernel truncates longer names
constexpr std::int32_t kLaunchdPid = 1;
constexpr auto kPatrol = std::chrono::seconds(1800);
// Timers with longer intervals are not waited for.
constexpr auto kLongestInterval = std::chrono::hours(2);

bool isWaitedFor(std::int32_t interval_s) {
  return std::chrono::seconds(interval_s) <= kLongestInterval;
}

// The effective band after a request for `wanted`. std::nullopt if it depends on rules of the
// kernel: it ages processes in the low bands, and it refuses bands that are too high.
std::optional<std::int32_t> bandOf(std::int32_t wanted) {
  constexpr std::int32_t kLowBandsEnd = 40;
  constexpr std::int32_t kHighest = 210;
  if (wanted > kHighest && wanted != 999) wanted /= 10;
  if (wanted <= kLowBandsEnd || wanted > kHighest) return std::nullopt;
  return wanted;
}

template <typename Wanted, typename Found>
void compare(const std::string& key, const char* what, const Wanted& wanted, const Found& found) {
  if (wanted == found) return;
  throw Mismatch(
      text("after the calm phase ", key, ": ", what, " wanted ", wanted, ", found ", found));
}

}  // namespace

void Stage::calmDown() {
  calmKernel();
  faults::FaultInjector::get().end();
  if (!is_edit_waiting_ && !faults::FaultInjector::get().story().empty()) {
    runUntilAllTicked();
    checkStanding(false);
  }
  post();
  runUntilAllTicked();
  if (transcript_->isObserving()) checkStanding(true);
}

void Stage::runUntilAllTicked() {
  constexpr int kEndless = 1'000'000;
  run(std::chrono::milliseconds(200), kEndless);
  std::chrono::nanoseconds duration = kPatrol;
  for (const auto& [id, timer] : oracle_->timers()) {
    const std::chrono::nanoseconds interval(timer.interval_ns);
    if (interval > duration && interval <= kLongestInterval) duration = interval;
  }
  run(duration + std::chrono::seconds(1), kEndless);
}

// A tick takes the first process that matches. A pass or the patrol takes the first process with a
// name and the last process with a bundle identifier.
std::int32_t Stage::foundBy(const std::string& key, bool by_tick) {
  std::int32_t named = 0;
  std::int32_t identified = 0;
  for (const simulated::Process& process : device.processes()) {
    if (process.is_zombie) continue;
    const std::string& path = process.executable_path;
    const auto identifier = oracle_->identifiers().find(path.substr(0, path.rfind('/')));
    const bool fits_name = process.name.substr(0, kLongestName) == key;
    const bool fits_bundle =
        identifier != oracle_->identifiers().end() && identifier->second == key;
    if (by_tick && (fits_name || fits_bundle)) return process.pid;
    if (fits_name && named == 0) named = process.pid;
    if (fits_bundle) identified = process.pid;
  }
  return identified != 0 ? identified : named;
}

void Stage::checkStanding(bool after_a_pass) {
  const auto targets = Oracle::targetsIn(files_.preferences);
  if (!targets) return;
  struct Standing {
    std::string key;
    Dictionary settings;
  };
  std::multimap<std::int32_t, Standing> by_pid;
  for (const auto& [key, settings] : *targets) {
    if (key.empty()) continue;  // every nameless process has it
    const std::int32_t interval_s = intIn(settings, "CheckInterval");
    // Without its timer, which a pass over unreadable preferences cancels, only a pass helps.
    if (interval_s > 0 && !after_a_pass && !oracle_->isWatched(key)) continue;
    const std::int32_t pid = foundBy(key, interval_s > 0);
    if (pid != 0 && isWaitedFor(interval_s)) by_pid.insert({pid, {key, settings}});
  }
  for (const auto& [pid, standing] : by_pid) {
    // If two keys match one process, the last one applied wins, so that neither can be checked.
    if (by_pid.count(pid) == 1) checkTarget(standing.key, standing.settings, pid);
  }
}

void Stage::checkTarget(const std::string& key, const Dictionary& settings, std::int32_t pid) {
  const std::int32_t nice_value = std::clamp(intIn(settings, "NiceValue"), -20, 20);
  compare(key, "nice value", nice_value, device.find(pid)->nice_value);
  const model::JetsamRecord jetsam = device.jetsam(pid);
  const auto compare_limit = [&](const char* setting, const model::MemoryLimit& found) {
    const std::int32_t limit_mb = intIn(settings, setting);
    compare(key, setting, limit_mb > 0 ? limit_mb : -1, found.limit_mb);
  };
  compare_limit("MemLimitActive", jetsam.active);
  compare_limit("MemLimitInactive", jetsam.inactive);
  const auto entry = oracle_->status().find(key);
  compare(key, "has a status entry", true, entry != oracle_->status().end());
  compare(key, "pid in its status entry", pid, intIn(*entry->second.as<Dictionary>(), "pid"));
  compare(key, "nice value in it", nice_value, intIn(*entry->second.as<Dictionary>(), "n"));
  // Only these kernels accept these bands and read the state from the buffer.
  if (device.kernel.generation != model::KernelGeneration::Xnu8792To10063 ||
      device.kernel.state_argument != model::StateArgument::Buffer) {
    return;
  }
  const auto wanted = bandOf(intIn(settings, "JetsamPriority"));
  if (wanted && pid != kLaunchdPid) {
    compare(key, "band", *wanted, jetsam.effective_band);
  }
  if (const auto strip = settings.find("StripManaged"); strip != settings.end()) {
    const bool strips = isTrue(strip->second);
    compare(key, "managed", !strips, jetsam.managed);
    compare(key, "freezable", !strips, jetsam.freezable);
    compare(key, "elevated", strips, jetsam.elevated);
  }
}

}  // namespace vorlatch::tests::random
