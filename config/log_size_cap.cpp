#include "config/log_size_cap.h"

#include <cstdint>
#include <optional>

#include "config/preferences.h"
#include "log/log_file.h"

namespace vorlatch {

void checkLogSizeAndClearIfNeeded() {
  const std::optional<std::int64_t> limit_bytes = logSizeLimit(loadPreferences());
  if (limit_bytes) clearLogAbove(*limit_bytes);
}

}  // namespace vorlatch
