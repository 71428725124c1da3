#include "config/property_list_file.h"

#include <utility>

#include "config/files.h"
#include "config/property_list_guard.h"
#include "platform/property_list.h"

namespace vorlatch {

std::optional<plist::Value> readPropertyList(const std::string& path) {
  const std::optional<std::string> bytes = readFile(path, kMaxPropertyListBytes);
  if (!bytes || !isBoundedPropertyList(*bytes)) return std::nullopt;
  return platform::parsePropertyList(*bytes);
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
