// How the installation stands: root, files, daemon, kernel.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace vorlatch::control {

// The same facts twice: as JSON for programs and as lines for people, who also get advice.
struct Diagnosis {
  nlohmann::ordered_json report;
  std::vector<std::string> lines;
};

// Looks and changes nothing.
Diagnosis diagnose();

}  // namespace vorlatch::control
