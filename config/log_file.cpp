#include "config/log_file.h"

#include <cstdint>
#include <optional>
#include <string>

#include "config/files.h"
#include "config/log_line.h"
#include "config/preferences.h"
#include "rootprefix/pref_path.h"

namespace vorlatch {

void openLog() {
  const std::optional<std::string> path = getPrefPath(kLogFileName);
  if (!path) return;
  moveAsideUnlessPlain(*path);
  createEmptyFile(*path);
  letEveryoneReadAndWrite(*path);
  pointStreamsAtEndOf(*path);
}

void checkLogSizeAndClearIfNeeded() {
  const std::optional<std::string> path = getPrefPath(kLogFileName);
  if (!path) return;
  const std::optional<std::int64_t> limit_bytes = logSizeLimit(loadPreferences());
  if (!limit_bytes || !emptyUnderStreams(*path, *limit_bytes)) return;
  writeLogLine("[%s] [守护] 日志大小超过设定限制(%.1fMB)，已自动清空。\n",
               static_cast<double>(*limit_bytes) / 1024 / 1024);
}

}  // namespace vorlatch
