#include "platform/property_list.h"

#include <charconv>
#include <cstdint>
#include <utility>
#include <variant>
#include <vector>

#include "platform/darwin/cf_text.h"

namespace vorlatch::platform {
namespace {

using plist::Array;
using plist::Data;
using plist::Date;
using plist::Dictionary;
using plist::Value;

using Object = CFOwned<CFTypeRef>;

Object parsed(std::string_view bytes) {
  // No copy: the parsed objects do not refer to these bytes.
  const CFOwned<CFDataRef> data(
      CFDataCreateWithBytesNoCopy(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes.data()),
                                  static_cast<CFIndex>(bytes.size()), kCFAllocatorNull));
  if (!data) return Object(nullptr);
  CFPropertyListFormat format{};
  Object root(CFPropertyListCreateWithData(kCFAllocatorDefault, data.get(),
                                           kCFPropertyListImmutable, &format, nullptr));
  // Refuses OpenStep text, which CoreFoundation tries last: in that format any word is a
  // property list.
  return format == kCFPropertyListOpenStepFormat ? Object(nullptr) : std::move(root);
}

Value integerOf(CFNumberRef number) {
  std::int64_t low_word = 0;
  CFNumberGetValue(number, kCFNumberSInt64Type, &low_word);
  // Even for a number above INT64_MAX, CoreFoundation returns the low 64 bits and reports
  // success (swift-corelibs-foundation, CFNumber.c, __CFNumberGetValueCompat).
  double real = 0;
  CFNumberGetValue(number, kCFNumberDoubleType, &real);
  if (low_word < 0 && real > 0) return {static_cast<std::uint64_t>(low_word)};
  return {low_word};
}

Value numberOf(CFNumberRef number) {
  if (CFNumberIsFloatType(number) == 0) return integerOf(number);
  double real = 0;
  CFNumberGetValue(number, kCFNumberDoubleType, &real);
  return {real};
}

Value dataOf(CFDataRef data) {
  return {Data{std::string(reinterpret_cast<const char*>(CFDataGetBytePtr(data)),
                           static_cast<std::size_t>(CFDataGetLength(data)))}};
}

std::optional<Value> valueOf(CFTypeRef object);

std::optional<Value> arrayOf(CFArrayRef objects) {
  Array array;
  array.reserve(static_cast<std::size_t>(CFArrayGetCount(objects)));
  for (CFIndex i = 0; i < CFArrayGetCount(objects); ++i) {
    std::optional<Value> value = valueOf(CFArrayGetValueAtIndex(objects, i));
    if (!value) return std::nullopt;
    array.push_back(*std::move(value));
  }
  return Value(std::move(array));
}

std::optional<Value> dictionaryOf(CFDictionaryRef objects, const char* only_key = nullptr) {
  const auto count = static_cast<std::size_t>(CFDictionaryGetCount(objects));
  std::vector<const void*> keys(count);
  std::vector<const void*> values(count);
  CFDictionaryGetKeysAndValues(objects, keys.data(), values.data());
  Dictionary dictionary;
  for (std::size_t i = 0; i < count; ++i) {
    if (CFGetTypeID(keys[i]) != CFStringGetTypeID()) return std::nullopt;
    std::string key = utf8Of(static_cast<CFStringRef>(keys[i]));
    if (only_key != nullptr && key != only_key) continue;
    std::optional<Value> value = valueOf(values[i]);
    if (!value) return std::nullopt;
    dictionary.insert_or_assign(std::move(key), *std::move(value));
  }
  return Value(std::move(dictionary));
}

// A keyed archive's reference has a type that is private to CoreFoundation. Only descriptions by
// CoreFoundation show the type's name and the number: <CFKeyedArchiverUID ...>{value = 5}
bool isUid(CFTypeRef object) {
  const CFOwned<CFStringRef> type(CFCopyTypeIDDescription(CFGetTypeID(object)));
  return type && utf8Of(type.get()) == "CFKeyedArchiverUID";
}

std::optional<Value> uidOf(CFTypeRef object) {
  constexpr std::string_view kLabel = "{value = ";
  const CFOwned<CFStringRef> text(CFCopyDescription(object));
  const std::string description = text ? utf8Of(text.get()) : std::string();
  const std::size_t label = description.find(kLabel);
  if (label == std::string::npos) return std::nullopt;
  const char* const digits = description.c_str() + label + kLabel.size();
  std::uint32_t uid = 0;
  if (std::from_chars(digits, description.c_str() + description.size(), uid).ec != std::errc{}) {
    return std::nullopt;
  }
  return plist::uidValue(uid);
}

// Recurses once per level of nesting, so its stack frame is kept small.
std::optional<Value> valueOf(CFTypeRef object) {
  const CFTypeID type = CFGetTypeID(object);
  if (type == CFDictionaryGetTypeID()) return dictionaryOf(static_cast<CFDictionaryRef>(object));
  if (type == CFArrayGetTypeID()) return arrayOf(static_cast<CFArrayRef>(object));
  if (type == CFStringGetTypeID()) return Value(utf8Of(static_cast<CFStringRef>(object)));
  if (type == CFNumberGetTypeID()) return numberOf(static_cast<CFNumberRef>(object));
  if (type == CFBooleanGetTypeID()) {
    return Value(CFBooleanGetValue(static_cast<CFBooleanRef>(object)) != 0);
  }
  if (type == CFDateGetTypeID()) {
    return Value(Date{CFDateGetAbsoluteTime(static_cast<CFDateRef>(object))});
  }
  if (type == CFDataGetTypeID()) return dataOf(static_cast<CFDataRef>(object));
  return isUid(object) ? uidOf(object) : std::nullopt;
}

Object objectOf(const Value& value);

// CoreFoundation makes a keyed archive's reference of the dictionary {CF$UID: n} only when it
// parses XML.
Object uidObject(std::uint32_t uid) {
  return parsed("<plist><dict><key>CF$UID</key><integer>" + std::to_string(std::uint64_t{uid}) +
                "</integer></dict></plist>");
}

struct MakeObject {
  Object operator()(bool value) const {
    return Object(CFRetain(value ? kCFBooleanTrue : kCFBooleanFalse));
  }
  Object operator()(std::int64_t value) const {
    return Object(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &value));
  }
  // CoreFoundation creates a number above the signed range only by parsing a property list.
  Object operator()(std::uint64_t value) const {
    return parsed("<plist><integer>" + std::to_string(value) + "</integer></plist>");
  }
  Object operator()(double value) const {
    return Object(CFNumberCreate(kCFAllocatorDefault, kCFNumberDoubleType, &value));
  }
  Object operator()(const std::string& value) const {
    const CFOwned<CFStringRef> string = cfStringOf(value);
    return Object(string ? CFRetain(string.get()) : nullptr);
  }
  Object operator()(const Date& value) const {
    return Object(CFDateCreate(kCFAllocatorDefault, value.seconds_since_2001));
  }
  Object operator()(const Data& value) const {
    return Object(CFDataCreate(kCFAllocatorDefault,
                               reinterpret_cast<const UInt8*>(value.bytes.data()),
                               static_cast<CFIndex>(value.bytes.size())));
  }
  Object operator()(const Array& value) const {
    auto* const array = CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks);
    Object owned(array);
    for (const Value& item : value) {
      const Object object = objectOf(item);
      if (!object) return Object(nullptr);
      CFArrayAppendValue(array, object.get());
    }
    return owned;
  }
  Object operator()(const Dictionary& value) const {
    if (const std::optional<std::uint32_t> uid = plist::uidIn(value)) return uidObject(*uid);
    auto* const dictionary = CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    Object owned(dictionary);
    for (const auto& [key, item] : value) {
      const CFOwned<CFStringRef> name = cfStringOf(key);
      const Object object = objectOf(item);
      if (!name || !object) return Object(nullptr);
      CFDictionarySetValue(dictionary, name.get(), object.get());
    }
    return owned;
  }
};

Object objectOf(const Value& value) {
  return std::visit(MakeObject{}, value.storage());
}

std::string bytesOf(const Value& value, CFPropertyListFormat format) {
  const Object object = objectOf(value);
  if (!object) return {};
  const CFOwned<CFDataRef> data(
      CFPropertyListCreateData(kCFAllocatorDefault, object.get(), format, 0, nullptr));
  if (!data) return {};
  return {reinterpret_cast<const char*>(CFDataGetBytePtr(data.get())),
          static_cast<std::size_t>(CFDataGetLength(data.get()))};
}

}  // namespace

std::optional<Value> parsePropertyList(std::string_view bytes, const char* only_key) {
  const Object root = parsed(bytes);
  if (!root) return std::nullopt;
  const bool is_dictionary = CFGetTypeID(root.get()) == CFDictionaryGetTypeID();
  return is_dictionary ? dictionaryOf(static_cast<CFDictionaryRef>(root.get()), only_key)
                       : valueOf(root.get());
}

std::string writeXmlPropertyList(const Value& value) {
  return bytesOf(value, kCFPropertyListXMLFormat_v1_0);
}

std::string writeBinaryPropertyList(const Value& value) {
  return bytesOf(value, kCFPropertyListBinaryFormat_v1_0);
}

}  // namespace vorlatch::platform
