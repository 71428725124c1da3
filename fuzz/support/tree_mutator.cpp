#include "fuzz/support/tree_mutator.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <optional>
#include <random>
#include <utility>

#include "base/binary_property_list.h"
#include "base/plist_value.h"
#include "base/utf8.h"
#include "config/property_list_file.h"
#include "fuzz/support/fuzzer.h"
#include "platform/property_list.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t max_size);

namespace vorlatch::fuzz {
namespace {

using plist::Array;
using plist::Data;
using plist::Date;
using plist::Dictionary;
using plist::Value;

// The largest number of bytes that one mutation adds to a text.
constexpr std::size_t kGrowth = 16;

class TreeMutator {
 public:
  explicit TreeMutator(unsigned seed) : random_(seed) {}

  // A number in [0, end).
  std::size_t pick(std::size_t end) { return random_() % end; }
  bool oneIn(std::size_t count) { return pick(count) == 0; }

  template <typename Container>
  auto& anyOf(Container& container) {
    return *std::next(container.begin(), static_cast<std::ptrdiff_t>(pick(container.size())));
  }

  Value& anyNode(Value& root) {
    std::vector<Value*> nodes;
    collect(root, nodes);
    return *anyOf(nodes);
  }

  void mutate(Value& root) {
    do {
      Value& node = anyNode(root);
      if (oneIn(4)) {
        replace(node, root);
      } else {
        std::visit([this, &node](auto& held) { this->change(held, node); }, node.storage());
      }
    } while (!oneIn(3));
  }

 private:
  static void collect(Value& value, std::vector<Value*>& nodes) {
    nodes.push_back(&value);
    if (auto* array = value.as<Array>()) {
      for (Value& item : *array) collect(item, nodes);
    } else if (auto* dictionary = value.as<Dictionary>()) {
      for (auto& [key, item] : *dictionary) collect(item, nodes);
    }
  }

  std::string word() { return anyOf(vocabulary()); }

  std::int64_t integer() {
    constexpr std::array<std::int64_t, 24> kNumbers = {
        0,   1,   -1,   2,         3,         30,        -20,       20,
        21,  -21, 100,  210,       999,       1800,      -999,      4096,
        256, 255, 1500, INT32_MAX, INT32_MIN, INT64_MAX, INT64_MIN, std::int64_t{1} << 32U};
    const std::int64_t number = anyOf(kNumbers);
    return oneIn(4) && std::abs(number / 2) < INT64_MAX / 2 - 10
               ? number + static_cast<std::int64_t>(pick(20)) - 10
               : number;
  }

  double real() {
    const std::array<double, 8> numbers = {0.0, -0.5, 2.5, 1e10, -1e300, 1e300, INFINITY, NAN};
    return anyOf(numbers);
  }

  Value leaf() {
    switch (pick(12)) {
      case 0:
      case 1:
        return oneIn(2);
      case 2:
        return UINT64_MAX - pick(3);
      case 3:
        return real();
      case 4:
        return Date{real()};
      case 5:
        return Data{word()};
      case 6:
        return Array{};
      case 7:
        return Dictionary{};
      case 8:
      case 9:
        return word();
      default:
        return integer();
    }
  }

  // Replaces the node by another value of the tree, by a new value, or by one that contains it.
  void replace(Value& node, Value& root) {
    switch (pick(5)) {
      case 0: {
        Value copy = anyNode(root);
        node = std::move(copy);
        return;
      }
      case 1: {
        Array array;
        array.push_back(std::move(node));
        node = std::move(array);
        return;
      }
      case 2: {
        Dictionary dictionary;
        dictionary.emplace(word(), std::move(node));
        node = std::move(dictionary);
        return;
      }
      default:
        node = leaf();
    }
  }

  static std::string mutatedBytes(std::string bytes) {
    const std::size_t size = bytes.size();
    bytes.resize(size + kGrowth);
    auto* const data = reinterpret_cast<std::uint8_t*>(bytes.data());
    bytes.resize(LLVMFuzzerMutate(data, size, bytes.size()));
    return bytes;
  }

  static void change(bool& held, Value& /*node*/) { held = !held; }
  void change(std::int64_t& held, Value& node) {
    if (oneIn(4)) {
      node = std::to_string(held);
    } else {
      held = integer();
    }
  }
  void change(std::uint64_t& /*held*/, Value& node) { node = integer(); }
  void change(double& held, Value& /*node*/) { held = real(); }
  void change(Date& held, Value& /*node*/) { held.seconds_since_2001 = real(); }
  static void change(Data& held, Value& /*node*/) {
    held.bytes = mutatedBytes(std::move(held.bytes));
  }

  // A text that is no longer valid becomes data.
  void change(std::string& held, Value& node) {
    switch (pick(4)) {
      case 0:
        held = word();
        return;
      case 1:
        held += word();
        return;
      default: {
        std::string bytes = mutatedBytes(held);
        if (isValidUtf8(bytes) && bytes.find('\0') == bytes.npos) {
          held = std::move(bytes);
        } else {
          node = Data{std::move(bytes)};
        }
      }
    }
  }

  void change(Array& held, Value& /*node*/) {
    if (held.empty() || oneIn(3)) {
      const auto place = static_cast<std::ptrdiff_t>(pick(held.size() + 1));
      Value added = held.empty() || oneIn(2) ? leaf() : anyOf(held);
      held.insert(held.begin() + place, std::move(added));
    } else if (oneIn(2)) {
      held.erase(held.begin() + static_cast<std::ptrdiff_t>(pick(held.size())));
    } else {
      std::swap(anyOf(held), anyOf(held));
    }
  }

  void change(Dictionary& held, Value& /*node*/) {
    if (held.empty() || oneIn(3)) {
      held.insert_or_assign(word(), leaf());
      return;
    }
    const auto entry = std::next(held.begin(), static_cast<std::ptrdiff_t>(pick(held.size())));
    if (oneIn(2)) {
      std::string key = oneIn(2) ? word() : mutatedBytes(entry->first);
      if (!isValidUtf8(key) || key.find('\0') != key.npos) return;
      Value value = entry->second;
      held.insert_or_assign(std::move(key), std::move(value));
      if (oneIn(2)) return;
    }
    held.erase(entry);
  }

  std::minstd_rand random_;
};

// Writes the tree to `out`, usually in the input's form, sometimes in the other. Returns the size,
// or 0 if the bytes do not fit or no longer form a tree.
std::size_t write(const Value& tree, bool is_binary, std::uint8_t* out, std::size_t max_size) {
  const std::string bytes =
      is_binary ? platform::writeBinaryPropertyList(tree) : platform::writeXmlPropertyList(tree);
  if (bytes.size() > max_size || !propertyListIn(bytes)) return 0;
  std::copy(bytes.begin(), bytes.end(), out);
  return bytes.size();
}

}  // namespace

std::size_t mutateTree(std::uint8_t* data, std::size_t size, std::size_t max_size, unsigned seed) {
  TreeMutator mutator(seed);
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  std::optional<Value> tree = propertyListIn(bytes);
  if (!tree && mutator.oneIn(8)) tree = Dictionary{};
  if (!tree || mutator.oneIn(4)) return LLVMFuzzerMutate(data, size, max_size);
  const bool is_binary = plist::isBinaryPropertyList(bytes) != mutator.oneIn(16);
  mutator.mutate(*tree);
  const std::size_t written = write(*tree, is_binary, data, max_size);
  return written != 0 ? written : LLVMFuzzerMutate(data, size, max_size);
}

std::size_t crossTrees(std::string_view bytes, std::string_view other, std::uint8_t* out,
                       std::size_t max_size, unsigned seed) {
  TreeMutator mutator(seed);
  std::optional<Value> tree = propertyListIn(bytes);
  std::optional<Value> giver = propertyListIn(other);
  if (!tree || !giver) return 0;
  mutator.anyNode(*tree) = mutator.anyNode(*giver);
  return write(*tree, plist::isBinaryPropertyList(bytes), out, max_size);
}

}  // namespace vorlatch::fuzz
