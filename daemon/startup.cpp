#include "daemon/startup.h"

#include "base/files.h"
#include "config/default_preset.h"
#include "config/preferences.h"
#include "config/status_file.h"
#include "daemon/apply_scheduling.h"
#include "daemon/patrol.h"
#include "kernel/self_protection.h"
#include "log/log_file.h"
#include "log/log_line.h"
#include "platform/notifications.h"
#include "platform/queues.h"
#include "reconcile/work_queues.h"
#include "rootprefix/pref_path.h"

namespace vorlatch {

int runDaemon() {
  kMainThread.assertHeld();
  openLog();
  if (const auto status_file = getPrefPath(kStatusFileName)) removeTemporariesOf(*status_file);
  writeChapterSeparator();
  checkAndGenerateDefaultConfig();
  protect_daemon_itself();
  // Requests the first pass, debounced like every other.
  applyMemoryLimits();
  setupGlobal1800sTimer();
  platform::observeNotification(kApplyNotificationName, applyMemoryLimits);
  platform::runMainLoop();
  return 0;
}

}  // namespace vorlatch
