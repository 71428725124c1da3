// Property lists as bytes that no well-meaning editor would write.
#pragma once

#include <cstddef>
#include <string>

#include "base/plist_value.h"

namespace vorlatch {

// The binary form of the value, as other programs write it.
std::string binaryPropertyList(const plist::Value& value);

// Arrays in arrays, so many levels deep.
std::string nestedXml(std::size_t depth);
std::string nestedBinary(std::size_t depth);

}  // namespace vorlatch
