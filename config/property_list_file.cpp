#include "config/property_list_file.h"

#include <utility>

#include "base/files.h"
#include "base/thread_safety.h"
#include "config/property_list_guard.h"
#include "platform/property_list.h"

namespace vorlatch {

std::optional<plist::Value> readPropertyList(const std::string& path, const char* only_key) {
  // Allows one file's bytes and tree in memory at a time, even if several queues read.
  static Mutex& reading = *new Mutex;
  const Lock lock(reading);
  const std::optional<std::string> bytes = readFile(path, kPropertyListBound.file_bytes);
  return bytes ? propertyListIn(*bytes, only_key) : std::nullopt;
}

std::optional<plist::Value> propertyListIn(std::string_view bytes, const char* only_key) {
  const std::optional<PropertyListSize> size = measurePropertyList(bytes);
  if (!size || !size->isWithin(kPropertyListBound)) return std::nullopt;
  return platform::parsePropertyList(bytes, only_key);
}

plist::Dictionary readDictionary(const std::string& path, const char* only_key) {
  std::optional<plist::Value> root = readPropertyList(path, only_key);
  auto* dictionary = root ? root->as<plist::Dictionary>() : nullptr;
  return dictionary != nullptr ? std::move(*dictionary) : plist::Dictionary{};
}

bool writePropertyList(const std::string& path, const plist::Value& value) {
  const std::string bytes = platform::writeXmlPropertyList(value);
  return !bytes.empty() && writeFileAtomically(path, bytes);
}

}  // namespace vorlatch
