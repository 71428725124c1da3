#include "config/log_file.h"

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>

#include "config/files.h"
#include "config/log_line.h"
#include "config/preferences.h"
#include "rootprefix/pref_path.h"

namespace vorlatch {
namespace {

void reopenBothStreams(const std::string& path, const char* mode) {
  reopenStream(stdout, path, mode);
  reopenStream(stderr, path, mode);
}

}  // namespace

void openLog() {
  const std::optional<std::string> path = getPrefPath(kLogFileName);
  if (!path) return;
  if (!fileExists(*path)) createEmptyFile(*path);
  letEveryoneReadAndWrite(*path);
  reopenBothStreams(*path, "a+");
}

void checkLogSizeAndClearIfNeeded() {
  const std::optional<std::string> path = getPrefPath(kLogFileName);
  if (!path) return;
  const std::optional<std::int64_t> limit_bytes = logSizeLimit(loadPreferences());
  if (!limit_bytes) return;
  const std::optional<std::int64_t> size_bytes = fileSize(*path);
  if (!size_bytes || *size_bytes <= *limit_bytes) return;
  reopenBothStreams(*path, "w");
  writeLogLine("[%s] [守护] 日志大小超过设定限制(%.1fMB)，已自动清空。\n",
               static_cast<double>(*limit_bytes) / 1024 / 1024);
}

}  // namespace vorlatch
