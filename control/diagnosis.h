// How the installation stands: root, files, daemon, kernel.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace vorlatch::control {

// Looks and changes nothing. Returns the facts as JSON for programs, and adds them to `lines` for
// people, with advice.
nlohmann::ordered_json diagnose(std::vector<std::string>& lines);

}  // namespace vorlatch::control
