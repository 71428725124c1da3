#include "tests/blackbox/resource_use.h"

#include <gtest/gtest.h>

#include "tests/blackbox/processes.h"

namespace vorlatch {

ResourceUse resourceUseOf(pid_t pid) {
  return {.open_files = openFiles(pid),
          .threads = procNumber(pid, "status", "Threads:"),
          .anonymous_kb = procNumber(pid, "smaps_rollup", "Anonymous:"),
          .pss_kb = procNumber(pid, "smaps_rollup", "Pss:")};
}

void expectNoMore(const ResourceUse& now, const ResourceUse& before,
                  [[maybe_unused]] std::int64_t growth_max_kb) {
  EXPECT_EQ(now.open_files, before.open_files);
  EXPECT_EQ(now.threads, before.threads);
#ifndef VORLATCH_SANITIZED
  ASSERT_GT(before.anonymous_kb, 0);
  EXPECT_LE(now.anonymous_kb, before.anonymous_kb + growth_max_kb);
#endif
}

}  // namespace vorlatch
