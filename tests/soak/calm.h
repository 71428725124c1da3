// How a rest period looks at the daemon and its targets.
#pragma once

#include <poll.h>

#include <string>
#include <utility>

#include "config/target_settings.h"
#include "platform/model/jetsam_model.h"
#include "tests/blackbox/processes.h"
#include "tests/support/text.h"

namespace vorlatch {

// The chaos goes on at its own pace: there is nothing to wait for.
inline void pauseFor(int duration_ms) {
  poll(nullptr, 0, duration_ms);
}

// What is looked at, once it is as expected or will not be: a tick that is under way sets a
// target's values one after the other.
template <typename Seen, typename Look>
Seen once(const Seen& expected, const Look& look) {
  const auto deadline = Clock::now() + kPatience;
  Seen seen = look();
  for (; seen != expected && Clock::now() < deadline; seen = look()) pauseFor(10);
  return seen;
}

// A tick that is under way has a file or two open for a moment.
inline ResourceUse useAtRest(pid_t pid) {
  ResourceUse least = resourceUseOf(pid);
  for (int looks = 1; looks < 20; ++looks) {
    pauseFor(10);
    ResourceUse use = resourceUseOf(pid);
    if (use.open_files.size() < least.open_files.size()) least = std::move(use);
  }
  return least;
}

// The kernel's side of a process, as far as settings decide it.
inline std::string textOf(const model::JetsamRecord& record) {
  return tests::text("band ", record.effective_band, ", limits ", record.active.limit_mb, " and ",
                     record.inactive.limit_mb, record.managed ? ", managed" : "",
                     record.freezable ? ", freezable" : "", record.elevated ? ", elevated" : "");
}

inline std::string kernelStateFor(const TargetSettings& settings) {
  const bool is_stripped = settings.strips_managed.value_or(false);
  const auto limit = [](std::int32_t limit_mb) { return limit_mb > 0 ? limit_mb : -1; };
  return textOf({.effective_band = settings.jetsam_priority,
                 .active = {.limit_mb = limit(settings.active_limit_mb)},
                 .inactive = {.limit_mb = limit(settings.inactive_limit_mb)},
                 .managed = !is_stripped,
                 .freezable = !is_stripped,
                 .elevated = is_stripped});
}

}  // namespace vorlatch
