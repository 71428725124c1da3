#include "log/log_file.h"

#include <optional>
#include <string>

#include "base/files.h"
#include "log/log_line.h"
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

void clearLogAbove(std::int64_t limit_bytes) {
  const std::optional<std::string> path = getPrefPath(kLogFileName);
  if (!path || !emptyUnderStreams(*path, limit_bytes)) return;
  writeLogLine("[%s] [守护] 日志大小超过设定限制(%.1fMB)，已自动清空。\n",
               static_cast<double>(limit_bytes) / 1024 / 1024);
}

}  // namespace vorlatch
