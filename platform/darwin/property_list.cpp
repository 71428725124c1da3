#include "platform/property_list.h"

#include <charconv>
#include <type_traits>
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
  const CFOwned<CFDataRef> data(CFDataCreate(kCFAllocatorDefault,
                                             reinterpret_cast<const UInt8*>(bytes.data()),
                                             static_cast<CFIndex>(bytes.size())));
  if (!data) return Object(nullptr);
  return Object(CFPropertyListCreateWithData(kCFAllocatorDefault, data.get(),
                                             kCFPropertyListImmutable, nullptr, nullptr));
}

template <typename Integer>
std::optional<Integer> numberIn(std::string_view text) {
  Integer number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end == text.data()) return std::nullopt;
  return number;
}

std::optional<Value> integerOf(CFNumberRef number) {
  std::int64_t integer = 0;
  if (CFNumberGetValue(number, kCFNumberSInt64Type, &integer)) return Value(integer);
  // Above the signed range CoreFoundation tells the number in its text alone.
  const CFOwned<CFStringRef> format = cfStringOf("%@");
  const CFOwned<CFStringRef> text(
      CFStringCreateWithFormat(kCFAllocatorDefault, nullptr, format.get(), number));
  const auto above_int64 = numberIn<std::uint64_t>(text ? utf8Of(text.get()).value_or("") : "");
  return Value(above_int64.value_or(0));
}

std::optional<Value> numberOf(CFNumberRef number) {
  if (!CFNumberIsFloatType(number)) return integerOf(number);
  double real = 0;
  CFNumberGetValue(number, kCFNumberDoubleType, &real);
  return Value(real);
}

std::optional<Value> stringOf(CFStringRef string) {
  std::optional<std::string> text = utf8Of(string);
  if (!text) return std::nullopt;
  return Value(*std::move(text));
}

std::optional<Value> dataOf(CFDataRef data) {
  return Value(Data{std::string(reinterpret_cast<const char*>(CFDataGetBytePtr(data)),
                                static_cast<std::size_t>(CFDataGetLength(data)))});
}

std::optional<Value> valueOf(CFTypeRef object);

std::optional<Value> arrayOf(CFArrayRef objects) {
  Array array;
  for (CFIndex i = 0; i < CFArrayGetCount(objects); ++i) {
    std::optional<Value> value = valueOf(CFArrayGetValueAtIndex(objects, i));
    if (!value) return std::nullopt;
    array.push_back(*std::move(value));
  }
  return Value(std::move(array));
}

std::optional<Value> dictionaryOf(CFDictionaryRef objects) {
  const auto count = static_cast<std::size_t>(CFDictionaryGetCount(objects));
  std::vector<const void*> keys(count);
  std::vector<const void*> values(count);
  CFDictionaryGetKeysAndValues(objects, keys.data(), values.data());
  Dictionary dictionary;
  for (std::size_t i = 0; i < count; ++i) {
    if (CFGetTypeID(keys[i]) != CFStringGetTypeID()) return std::nullopt;
    std::optional<std::string> key = utf8Of(static_cast<CFStringRef>(keys[i]));
    std::optional<Value> value = valueOf(values[i]);
    if (!key || !value) return std::nullopt;
    dictionary.insert_or_assign(*std::move(key), *std::move(value));
  }
  return Value(std::move(dictionary));
}

// A keyed archive's reference, in the form that it has in XML. Its type is private to
// CoreFoundation, and the number stands in its description alone: <CFKeyedArchiverUID ...>{value =
// 5}
constexpr const char* kUidKey = "CF$UID";

std::optional<Value> uidOf(CFTypeRef object) {
  constexpr std::string_view kLabel = "{value = ";
  const CFOwned<CFStringRef> text(CFCopyDescription(object));
  const std::string description = text ? utf8Of(text.get()).value_or("") : "";
  const std::size_t label = description.find(kLabel);
  if (label == std::string::npos) return std::nullopt;
  const auto uid =
      numberIn<std::uint64_t>(std::string_view(description).substr(label + kLabel.size()));
  if (!uid) return std::nullopt;
  return Value(Dictionary{{kUidKey, Value(*uid)}});
}

// Recurses with the nesting, so what its frame holds is kept small.
std::optional<Value> valueOf(CFTypeRef object) {
  const CFTypeID type = CFGetTypeID(object);
  if (type == CFDictionaryGetTypeID()) return dictionaryOf(static_cast<CFDictionaryRef>(object));
  if (type == CFArrayGetTypeID()) return arrayOf(static_cast<CFArrayRef>(object));
  if (type == CFStringGetTypeID()) return stringOf(static_cast<CFStringRef>(object));
  if (type == CFNumberGetTypeID()) return numberOf(static_cast<CFNumberRef>(object));
  if (type == CFBooleanGetTypeID()) {
    return Value(CFBooleanGetValue(static_cast<CFBooleanRef>(object)) != 0);
  }
  if (type == CFDateGetTypeID()) {
    return Value(Date{CFDateGetAbsoluteTime(static_cast<CFDateRef>(object))});
  }
  if (type == CFDataGetTypeID()) return dataOf(static_cast<CFDataRef>(object));
  return uidOf(object);
}

Object objectOf(const Value& value);

struct MakeObject {
  Object operator()(bool value) const {
    return Object(CFRetain(value ? kCFBooleanTrue : kCFBooleanFalse));
  }
  Object operator()(std::int64_t value) const {
    return Object(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &value));
  }
  // CoreFoundation takes one above the signed range from a list alone.
  Object operator()(std::uint64_t value) const {
    return parsed("<plist version=\"1.0\"><integer>" + std::to_string(value) +
                  "</integer></plist>");
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
    const CFMutableArrayRef array =
        CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks);
    Object owned(array);
    for (const Value& item : value) {
      const Object object = objectOf(item);
      if (!object) return Object(nullptr);
      CFArrayAppendValue(array, object.get());
    }
    return owned;
  }
  Object operator()(const Dictionary& value) const {
    const CFMutableDictionaryRef dictionary = CFDictionaryCreateMutable(
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

std::optional<Value> parsePropertyList(std::string_view bytes) {
  const Object root = parsed(bytes);
  if (!root) return std::nullopt;
  return valueOf(root.get());
}

std::string writeXmlPropertyList(const Value& value) {
  return bytesOf(value, kCFPropertyListXMLFormat_v1_0);
}

std::string writeBinaryPropertyList(const Value& value) {
  return bytesOf(value, kCFPropertyListBinaryFormat_v1_0);
}

}  // namespace vorlatch::platform
