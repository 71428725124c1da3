#include "daemon/apply_scheduling.h"

#include <cstdint>

#include "platform/queues.h"
#include "reconcile/reconciliation_pass.h"
#include "reconcile/work_queues.h"

namespace vorlatch {
namespace {

constexpr std::uint64_t kDebounceNs = 150'000'000;

platform::Timer& debounceTimer() REQUIRES(kDebounceQueue) {
  static platform::Timer& timer = *new platform::Timer;
  return timer;
}

void scheduleDebouncedPass() REQUIRES(kDebounceQueue) {
  platform::Timer& timer = debounceTimer();
  timer.reset();
  timer = platform::startTimer(
      debounceQueue(), {.start_ns = kDebounceNs, .interval_ns = platform::kNever, .leeway_ns = 0},
      executeMemoryLimits);
}

}  // namespace

void applyMemoryLimits() {
  makeWorkQueues();
  platform::async(debounceQueue(), scheduleDebouncedPass);
}

}  // namespace vorlatch
