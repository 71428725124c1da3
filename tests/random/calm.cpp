// The end of a story: after the disturbances end, every configured process that runs must have the
// settings of the file.
#include <algorithm>
#include <map>
#include <optional>
#include <utility>

#include "tests/faults/fault_injector.h"
#include "tests/oracle/reading.h"
#include "tests/random/stage.h"

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

void expect(bool holds, const std::string& key, const std::string& what) {
  if (!holds) throw Mismatch("after the calm phase " + key + " does not stand: " + what);
}

std::string difference(const char* what, std::int64_t wanted, std::int64_t found) {
  return what + (" wanted " + std::to_string(wanted)) + ", found " + std::to_string(found);
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
  if (!files_.preferences) return;
  const auto enabled = files_.preferences->find("Enabled");
  if (enabled == files_.preferences->end() || !isTrue(enabled->second)) return;
  const auto entry = files_.preferences->find("AppConfigs");
  const auto* configs =
      entry != files_.preferences->end() ? entry->second.as<Dictionary>() : nullptr;
  if (configs == nullptr) return;
  struct Standing {
    std::string key;
    Dictionary settings;
  };
  std::multimap<std::int32_t, Standing> by_pid;
  for (const auto& [key, value] : *configs) {
    const auto* settings = value.as<Dictionary>();
    if (settings == nullptr || key.empty()) continue;  // every nameless process has the empty key
    const std::int32_t interval_s = intIn(*settings, "CheckInterval");
    // Without its timer, which a pass over unreadable preferences cancels, only a pass helps.
    if (interval_s > 0 && !after_a_pass && !oracle_->isWatched(key)) continue;
    const std::int32_t pid = foundBy(key, interval_s > 0);
    if (pid != 0 && isWaitedFor(interval_s)) by_pid.insert({pid, {key, *settings}});
  }
  for (const auto& [pid, standing] : by_pid) {
    // If two keys match one process, the last one applied wins, so that neither can be checked.
    if (by_pid.count(pid) == 1) checkTarget(standing.key, standing.settings, pid);
  }
}

void Stage::checkTarget(const std::string& key, const Dictionary& settings, std::int32_t pid) {
  const std::int32_t nice_value = std::clamp(intIn(settings, "NiceValue"), -20, 20);
  const simulated::Process& process = *device.find(pid);
  expect(process.nice_value == nice_value, key,
         difference("nice value", nice_value, process.nice_value));
  const model::JetsamRecord jetsam = device.jetsam(pid);
  const auto expect_limit = [&](const char* setting, const model::MemoryLimit& found) {
    const std::int32_t limit_mb = intIn(settings, setting);
    const std::int32_t kept_mb = limit_mb > 0 ? limit_mb : -1;
    expect(found.limit_mb == kept_mb, key, difference(setting, kept_mb, found.limit_mb));
  };
  expect_limit("MemLimitActive", jetsam.active);
  expect_limit("MemLimitInactive", jetsam.inactive);
  const Dictionary* entry = nullptr;
  if (const auto found = oracle_->status().find(key); found != oracle_->status().end()) {
    entry = found->second.as<Dictionary>();
  }
  expect(entry != nullptr && intIn(*entry, "pid") == pid && intIn(*entry, "n") == nice_value, key,
         "its status entry");
  // Only these kernels accept these bands and read the state from the buffer.
  if (device.kernel.generation != model::KernelGeneration::Xnu8792To10063 ||
      device.kernel.state_argument != model::StateArgument::Buffer) {
    return;
  }
  const auto wanted = bandOf(intIn(settings, "JetsamPriority"));
  if (wanted && pid != kLaunchdPid) {
    expect(jetsam.effective_band == *wanted, key,
           difference("band", *wanted, jetsam.effective_band));
  }
  if (const auto strip = settings.find("StripManaged"); strip != settings.end()) {
    const bool strips = isTrue(strip->second);
    expect(jetsam.managed == !strips && jetsam.freezable == !strips && jetsam.elevated == strips,
           key, "its managed state");
  }
}

}  // namespace vorlatch::tests::random
