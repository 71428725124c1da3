// Diagnoses an installation: root, files, daemon, kernel.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace vorlatch::control {

// Changes nothing. Returns the facts as JSON for programs, and appends them to `lines` as text for
// people. Each finding is in "findings", with its next step.
nlohmann::ordered_json diagnose(std::vector<std::string>& lines);

}  // namespace vorlatch::control
