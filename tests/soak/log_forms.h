// The log's lines by the forms that docs/log.md gives them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vorlatch {

// The lines of a log that are not one whole message with its stamp: torn apart, mixed with another
// one, unknown to the document, or without their end.
std::vector<std::string> brokenLines(std::string_view log);

}  // namespace vorlatch
