#include "platform/property_list.h"

#include <array>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <type_traits>
#include <utility>
#include <variant>

#include <plist/plist.h>

#include "base/binary_property_list.h"
#include "base/utf8.h"
#include "platform/linux/libplist_guard.h"

namespace vorlatch::platform {
namespace {

using plist::Array;
using plist::Data;
using plist::Date;
using plist::Dictionary;
using plist::Value;

struct FreeNode {
  void operator()(plist_t node) const { plist_free(node); }
};
using Node = std::unique_ptr<std::remove_pointer_t<plist_t>, FreeNode>;

struct FreeMemory {
  void operator()(void* memory) const { std::free(memory); }
};
template <typename T>
using Owned = std::unique_ptr<T, FreeMemory>;

constexpr std::uint64_t kTopBit = std::uint64_t{1} << 63U;

// Returns a complete XML document with one root, or an empty string on failure.
std::string xmlOf(plist_t node) {
  char* text = nullptr;
  std::uint32_t length = 0;
  plist_to_xml(node, &text, &length);
  const Owned<char> owned(text);
  return owned != nullptr ? std::string(owned.get(), length) : std::string();
}

std::string binaryOf(plist_t node) {
  char* bytes = nullptr;
  std::uint32_t length = 0;
  plist_to_bin(node, &bytes, &length);
  const Owned<char> owned(bytes);
  return owned != nullptr ? std::string(owned.get(), length) : std::string();
}

Node parsed(std::string_view bytes) {
  plist_t node = nullptr;
  if (bytes.size() <= std::numeric_limits<std::uint32_t>::max()) {
    plist_from_memory(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &node);
  }
  return Node(node);
}

// Only the XML that libplist 2.2.0 writes shows whether an integer is above the signed range.
Value integerOf(plist_t node) {
  std::uint64_t bits = 0;
  plist_get_uint_val(node, &bits);
  if (bits >= kTopBit && xmlOf(node).find("<integer>-") == std::string::npos) return {bits};
  return {static_cast<std::int64_t>(bits)};
}

// libplist accepts an integer above the signed range only in XML.
Node nodeOf(std::uint64_t above_int64) {
  return parsed("<plist version=\"1.0\"><integer>" + std::to_string(above_int64) +
                "</integer></plist>");
}

// Parses a binary list with one object, because libplist's constructor takes 32-bit seconds.
Node nodeOf(const Date& date) {
  std::string bytes = "bplist00\x33";
  auto bits = std::bit_cast<std::uint64_t>(date.seconds_since_2001);
  for (int shift = 56; shift >= 0; shift -= 8) bytes += static_cast<char>(bits >> shift & 0xFFU);
  constexpr std::array<char, 33> kOffsetAndTrailer = {8, 0, 0, 0, 0, 0, 0, 1, 1, 0, 0,
                                                      0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0,
                                                      0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 17};
  bytes.append(kOffsetAndTrailer.data(), kOffsetAndTrailer.size());
  return parsed(bytes);
}

std::optional<Value> valueOf(plist_t node);

std::optional<Value> arrayOf(plist_t node) {
  Array array;
  array.reserve(plist_array_get_size(node));
  plist_array_iter iterator = nullptr;
  plist_array_new_iter(node, &iterator);
  const Owned<void> owned_iterator(iterator);
  for (plist_t item = nullptr; plist_array_next_item(node, iterator, &item), item != nullptr;) {
    std::optional<Value> value = valueOf(item);
    if (!value) return std::nullopt;
    array.push_back(*std::move(value));
  }
  return Value(std::move(array));
}

// Up to this size libplist searches for a key from the front, and so removes the entry just read.
constexpr std::uint32_t kMostEntriesFreed = 100;

std::optional<Value> dictionaryOf(plist_t node, const char* only_key = nullptr) {
  Dictionary dictionary;
  // Frees a small dictionary's nodes while it reads them, so that libplist's tree, which takes
  // twice the memory of the values, never exists as a whole beside them.
  const bool frees = plist_dict_get_size(node) <= kMostEntriesFreed;
  plist_dict_iter iterator = nullptr;
  plist_dict_new_iter(node, &iterator);
  const Owned<void> owned_iterator(iterator);
  while (true) {
    char* key = nullptr;
    plist_t item = nullptr;
    plist_dict_next_item(node, iterator, &key, &item);
    const Owned<char> owned_key(key);
    if (item == nullptr) return Value(std::move(dictionary));
    if (key == nullptr || !isValidUtf8(key)) return std::nullopt;
    if (only_key != nullptr && std::string_view(only_key) != key) continue;
    std::optional<Value> value = valueOf(item);
    if (!value) return std::nullopt;
    dictionary.insert_or_assign(key, *std::move(value));
    if (frees) plist_dict_remove_item(node, key);
  }
}

std::optional<Value> stringOf(plist_t node) {
  std::uint64_t length = 0;
  const char* text = plist_get_string_ptr(node, &length);
  if (text == nullptr) return Value(std::string());
  const std::string_view view(text, length);
  if (!isValidUtf8(view)) return std::nullopt;
  return Value(std::string(view));
}

Value booleanOf(plist_t node) {
  std::uint8_t value = 0;
  plist_get_bool_val(node, &value);
  return {value != 0};
}

Value realOf(plist_t node) {
  double value = 0;
  plist_get_real_val(node, &value);
  return {value};
}

// libplist returns a date's seconds in 32 bits, but keeps a real, which only its output shows.
Value dateOf(plist_t node) {
  const std::string bytes = binaryOf(node);
  const auto list = plist::BinaryPropertyList::open(bytes);
  const auto date = list ? list->object(list->rootIndex()) : std::nullopt;
  if (!date || date->kind != plist::BinaryObject::Kind::Date) return {Date{}};
  return {Date{std::bit_cast<double>(plist::bigEndian(date->payload))}};
}

Value dataOf(plist_t node) {
  std::uint64_t length = 0;
  const char* bytes = plist_get_data_ptr(node, &length);
  return {Data{bytes != nullptr ? std::string(bytes, length) : std::string()}};
}

std::optional<Value> uidOf(plist_t node) {
  std::uint64_t uid = 0;
  plist_get_uid_val(node, &uid);
  if (uid > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
  return plist::uidValue(static_cast<std::uint32_t>(uid));
}

// Recurses once per level of nesting, so its stack frame is kept small.
std::optional<Value> valueOf(plist_t node) {
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN:
      return booleanOf(node);
    case PLIST_UINT:
      return integerOf(node);
    case PLIST_REAL:
      return realOf(node);
    case PLIST_STRING:
      return stringOf(node);
    case PLIST_DATE:
      return dateOf(node);
    case PLIST_DATA:
      return dataOf(node);
    case PLIST_UID:
      return uidOf(node);
    case PLIST_ARRAY:
      return arrayOf(node);
    case PLIST_DICT:
      return dictionaryOf(node);
    default:
      return std::nullopt;
  }
}

Node nodeOf(const Value& value);

struct MakeNode {
  Node operator()(bool value) const { return Node(plist_new_bool(value ? 1 : 0)); }
  Node operator()(std::int64_t value) const {
    return Node(plist_new_uint(static_cast<std::uint64_t>(value)));
  }
  Node operator()(std::uint64_t value) const { return nodeOf(value); }
  Node operator()(double value) const { return Node(plist_new_real(value)); }
  Node operator()(const std::string& value) const { return Node(plist_new_string(value.c_str())); }
  Node operator()(const Date& value) const { return nodeOf(value); }
  Node operator()(const Data& value) const {
    return Node(plist_new_data(value.bytes.data(), value.bytes.size()));
  }
  Node operator()(const Array& value) const {
    Node array(plist_new_array());
    for (const Value& item : value) plist_array_append_item(array.get(), nodeOf(item).release());
    return array;
  }
  Node operator()(const Dictionary& value) const {
    if (const std::optional<std::uint32_t> uid = plist::uidIn(value))
      return Node(plist_new_uid(*uid));
    Node dictionary(plist_new_dict());
    for (const auto& [key, item] : value) {
      plist_dict_set_item(dictionary.get(), key.c_str(), nodeOf(item).release());
    }
    return dictionary;
  }
};

Node nodeOf(const Value& value) {
  return std::visit(MakeNode{}, value.storage());
}

}  // namespace

std::optional<Value> parsePropertyList(std::string_view bytes, const char* only_key) {
  std::string mended;
  const std::optional<std::string_view> easy = easyForLibplist(bytes, mended);
  if (!easy) return std::nullopt;
  const Node root = parsed(*easy);
  if (root == nullptr) return std::nullopt;
  const bool is_dictionary = plist_get_node_type(root.get()) == PLIST_DICT;
  return is_dictionary ? dictionaryOf(root.get(), only_key) : valueOf(root.get());
}

std::string writeXmlPropertyList(const Value& value) {
  std::string xml = xmlOf(nodeOf(value).get());
  return isValidUtf8(xml) ? xml : std::string();
}

std::string writeBinaryPropertyList(const Value& value) {
  return binaryOf(nodeOf(value).get());
}

}  // namespace vorlatch::platform
