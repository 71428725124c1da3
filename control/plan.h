// What a freshly started daemon would do to each target.
#pragma once

#include <string>
#include <vector>

#include "control/observation.h"

namespace vorlatch::control {

struct PlannedTarget {
  std::string key;
  std::int32_t pid;                // 0: it does not run
  std::string reason;              // why this process
  std::vector<std::string> steps;  // in their order; empty where it does not run
  std::string afterwards;          // when it is applied again
  bool is_held;                    // by the daemon that runs now
};

std::vector<PlannedTarget> planOf(const Observation& observation);

// What a plan cannot tell.
extern const char* const kUnknownToPlan;

}  // namespace vorlatch::control
