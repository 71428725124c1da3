#include "config/property_list_file.h"

#include <new>
#include <utility>

#include "config/files.h"
#include "config/property_list_guard.h"
#include "platform/property_list.h"

namespace vorlatch {

std::optional<plist::Value> readPropertyList(const std::string& path) {
  try {
    const std::optional<std::string> bytes = readFile(path, kMaxPropertyListBytes);
    return bytes ? propertyListIn(*bytes) : std::nullopt;
  } catch (const std::bad_alloc&) {
    // The first and largest allocations whose size, up to the bound, is somebody else's choice.
    return std::nullopt;
  }
}

std::optional<plist::Value> propertyListIn(std::string_view bytes) {
  if (!isBoundedPropertyList(bytes)) return std::nullopt;
  return platform::parsePropertyList(bytes);
}

plist::Dictionary readDictionary(const std::string& path) {
  std::optional<plist::Value> root = readPropertyList(path);
  auto* dictionary = root ? root->as<plist::Dictionary>() : nullptr;
  return dictionary != nullptr ? std::move(*dictionary) : plist::Dictionary{};
}

bool writePropertyList(const std::string& path, const plist::Value& value) {
  const std::string bytes = platform::writeXmlPropertyList(value);
  return !bytes.empty() && writeFileAtomically(path, bytes);
}

}  // namespace vorlatch
