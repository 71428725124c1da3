// Shows each setting as columns of a table, as JSON, and as steps of a plan.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "control/target_view.h"

namespace vorlatch::control {

using Json = nlohmann::ordered_json;

// Returns the cells of a target's row: the current value, after the wanted one if they differ. A
// target that is not running has '-' for values that belong to a process.
std::vector<std::string> settingCells(const TargetView& target);
std::vector<const char*> settingHeadings();  // in English

// Return the wanted settings, and add what the kernel reports; unknown values are null.
Json wantedJson(const TargetSettings& wanted);
void addStateJson(const TargetView& target, Json& now);

// Returns what the daemon would do to a running target, in the daemon's order.
std::vector<std::string> plannedSteps(const TargetView& target,
                                      std::optional<std::int32_t> highest_band);

// Returns null for an empty value.
template <typename T>
Json jsonOf(const std::optional<T>& value) {
  return value ? Json(*value) : Json();
}

// Returns "-" for an empty value.
std::string numberText(const std::optional<std::int32_t>& number);

}  // namespace vorlatch::control
