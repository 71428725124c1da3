#include "fuzz/support/scene.h"

#include "config/property_list_file.h"
#include "platform/property_list.h"

namespace vorlatch::fuzz {

using plist::Dictionary;
using plist::Value;

std::int32_t integerIn(const Dictionary& scene, std::string_view key, std::int32_t otherwise) {
  const Value* value = plist::find(scene, key);
  return value != nullptr ? plist::int32Value(*value) : otherwise;
}

bool isTrueIn(const Dictionary& scene, std::string_view key) {
  const Value* value = plist::find(scene, key);
  return value != nullptr && plist::truthValue(*value);
}

std::string bytesOf(const Value& value) {
  if (const auto* text = value.as<std::string>()) return *text;
  const auto* data = value.as<plist::Data>();
  return data != nullptr ? data->bytes : std::string();
}

std::string textIn(const Dictionary& scene, std::string_view key) {
  const Value* value = plist::find(scene, key);
  return value != nullptr ? bytesOf(*value) : std::string();
}

plist::Array arrayIn(const Dictionary& scene, std::string_view key) {
  const Value* value = plist::find(scene, key);
  const auto* array = value != nullptr ? value->as<plist::Array>() : nullptr;
  return array != nullptr ? *array : plist::Array();
}

std::optional<Dictionary> dictionaryIn(std::string_view bytes, const char* only_key) {
  const std::optional<Value> root = propertyListIn(bytes, only_key);
  const auto* dictionary = root ? root->as<Dictionary>() : nullptr;
  return dictionary != nullptr ? std::optional(*dictionary) : std::nullopt;
}

std::optional<std::string> fileIn(const Dictionary& scene, std::string_view key, bool is_binary) {
  const Value* value = plist::find(scene, key);
  if (value == nullptr) return std::nullopt;
  if (value->as<std::string>() != nullptr || value->as<plist::Data>() != nullptr) {
    return bytesOf(*value);
  }
  return writtenAs(*value, is_binary);
}

std::string writtenAs(const Value& value, bool is_binary) {
  return is_binary ? platform::writeBinaryPropertyList(value)
                   : platform::writeXmlPropertyList(value);
}

}  // namespace vorlatch::fuzz
