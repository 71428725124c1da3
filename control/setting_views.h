// How each setting that is held is shown: as columns of a table, as JSON, and as steps of a plan.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "control/target_view.h"

namespace vorlatch::control {

using Json = nlohmann::ordered_json;

// The cells of a target's row under their headings: the value now, and in front of it the wanted
// one where the two differ. A target that does not run has '-' for what only a process has.
std::vector<std::string> settingCells(const TargetView& target);
std::vector<std::string> settingHeadings();

// What the settings ask for, and what the kernel says; null for what is not known.
Json wantedJson(const TargetSettings& wanted);
void addStateJson(const TargetView& target, Json& now);

// What would be done to a target that runs, in the order in which the daemon does it.
std::vector<std::string> plannedSteps(const TargetView& target,
                                      std::optional<std::int32_t> highest_band);

// null for nothing.
template <typename T>
Json jsonOf(const std::optional<T>& value) {
  return value ? Json(*value) : Json();
}

// "-" for nothing.
std::string numberText(const std::optional<std::int32_t>& number);

}  // namespace vorlatch::control
