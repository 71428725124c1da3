// What a freshly started daemon would do to each target.
#pragma once

#include <string>
#include <vector>

#include "control/observation.h"

namespace vorlatch::control {

struct PlannedTarget {
  std::string key;
  std::int32_t pid;                // 0: not running
  std::string reason;              // why this process
  std::vector<std::string> steps;  // in order; empty if not running
  std::string afterwards;          // when it is applied again
  bool is_held;                    // the running daemon holds it already
};

std::vector<PlannedTarget> planOf(const Observation& observation);

// Says, for people and in English, what a plan cannot predict.
extern const char* const kUnknownToPlan;

}  // namespace vorlatch::control
