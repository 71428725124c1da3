#include "reconcile/restore_targets.h"

#include <utility>

#include "kernel/restore_defaults.h"
#include "reconcile/work_queues.h"

namespace vorlatch {

void restoreTargets(std::vector<RestoreTarget> targets) {
  platform::async(workerQueue(), [targets = std::move(targets)]() REQUIRES(kWorkerQueue) {
    for (const auto& [key, pid] : targets) restoreDefaultsForProcess(key, pid);
  });
}

}  // namespace vorlatch
