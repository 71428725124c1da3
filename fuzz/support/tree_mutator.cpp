// Mutates property lists as trees of values, in addition to libFuzzer's mutations of bytes.
#include <algorithm>
#include <cmath>
#include <iterator>
#include <optional>
#include <random>
#include <utility>

#include "base/binary_property_list.h"
#include "base/utf8.h"
#include "config/property_list_file.h"
#include "fuzz/support/fuzzer.h"
#include "fuzz/support/scene.h"
#include "platform/property_list.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t max_size);

namespace vorlatch::fuzz {
namespace {

using plist::Array;
using plist::Data;
using plist::Date;
using plist::Dictionary;
using plist::Value;

// Every type of value, with numbers at the limits of the types and of the settings.
const Array& leaves() {
  static const Array& values = *new Array{
      true,    false,     0,           1,         -1,        2,           3,
      20,      21,        -20,         -21,       30,        100,         210,
      211,     255,       256,         999,       -999,      1500,        1800,
      4096,    INT32_MAX, INT32_MIN,   INT64_MAX, INT64_MIN, UINT64_MAX,  std::int64_t{1} << 32U,
      -0.5,    2.5,       1e10,        1e300,     -1e300,    INFINITY,    NAN,
      Date{0}, Date{NAN}, Date{1e300}, Data{},    Array{},   Dictionary{}};
  return values;
}

class TreeMutator {
 public:
  explicit TreeMutator(unsigned seed) : random_(seed) {}

  bool oneIn(std::size_t count) { return random_() % count == 0; }

  template <typename Container>
  auto anyIn(Container& container) {
    return std::next(container.begin(), static_cast<std::ptrdiff_t>(random_() % container.size()));
  }

  Value& anyNode(Value& root) {
    std::vector<Value*> nodes{&root};
    for (std::size_t i = 0; i < nodes.size(); ++i) {
      if (auto* array = nodes[i]->as<Array>()) {
        for (Value& item : *array) nodes.push_back(&item);
      } else if (auto* dictionary = nodes[i]->as<Dictionary>()) {
        for (auto& [key, item] : *dictionary) nodes.push_back(&item);
      }
    }
    return **anyIn(nodes);
  }

  void mutate(Value& root) {
    do {
      Value& node = anyNode(root);
      Value other = otherValue(root);
      if (auto* array = node.as<Array>(); array != nullptr && !oneIn(4)) {
        change(*array, std::move(other));
      } else if (auto* dictionary = node.as<Dictionary>(); dictionary != nullptr && !oneIn(4)) {
        change(*dictionary, std::move(other));
      } else if (auto* text = node.as<std::string>(); text != nullptr && !oneIn(4)) {
        std::string bytes = changed(*text);
        node = isText(bytes) ? Value(std::move(bytes)) : Value(Data{std::move(bytes)});
      } else if (auto* data = node.as<Data>(); data != nullptr && !oneIn(4)) {
        data->bytes = changed(data->bytes);
      } else {
        node = std::move(other);
      }
    } while (!oneIn(3));
  }

 private:
  std::string word() { return *anyIn(vocabulary()); }

  // A new value, a copy of a part of the tree, or a list of one.
  Value otherValue(Value& root) {
    if (oneIn(3)) return word();
    if (oneIn(2)) return *anyIn(leaves());
    Value copy = anyNode(root);
    if (oneIn(2)) return copy;
    return oneIn(2) ? Value(Array{copy}) : Value(Dictionary{{word(), copy}});
  }

  static bool isText(const std::string& bytes) {
    return isValidUtf8(bytes) && bytes.find('\0') == bytes.npos;
  }

  std::string changed(std::string bytes) {
    constexpr std::size_t kGrowth = 16;
    if (oneIn(4)) return word();
    if (oneIn(4)) return bytes + word();
    const std::size_t size = bytes.size();
    bytes.resize(size + kGrowth);
    auto* const data = reinterpret_cast<std::uint8_t*>(bytes.data());
    bytes.resize(LLVMFuzzerMutate(data, size, bytes.size()));
    return bytes;
  }

  void change(Array& array, Value other) {
    if (array.empty() || oneIn(2)) {
      array.push_back(std::move(other));
      std::swap(array.back(), *anyIn(array));
    } else {
      array.erase(anyIn(array));
    }
  }

  // Adds, renames or removes an entry.
  void change(Dictionary& dictionary, Value other) {
    if (dictionary.empty() || oneIn(3)) {
      dictionary.insert_or_assign(word(), std::move(other));
      return;
    }
    const auto entry = anyIn(dictionary);
    const std::string key = changed(entry->first);
    if (oneIn(2) && isText(key)) dictionary.insert_or_assign(key, entry->second);
    if (key != entry->first) dictionary.erase(entry);
  }

  std::minstd_rand random_;
};

// Writes the tree and returns its size, or 0 if the bytes do not fit or no longer form a tree.
std::size_t write(const Value& tree, bool is_binary, std::uint8_t* out, std::size_t max_size) {
  const std::string bytes = writtenAs(tree, is_binary);
  if (bytes.size() > max_size || !propertyListIn(bytes)) return 0;
  std::copy(bytes.begin(), bytes.end(), out);
  return bytes.size();
}

}  // namespace

// Usually changes a few values of the tree; sometimes, or if there is no tree, the bytes.
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t max_size, unsigned seed) {
  TreeMutator mutator(seed);
  const std::string_view bytes = textOf(data, size);
  std::optional<Value> tree = propertyListIn(bytes);
  if (!tree && mutator.oneIn(8)) tree = Dictionary{};
  if (!tree || mutator.oneIn(4)) return LLVMFuzzerMutate(data, size, max_size);
  const bool is_binary = plist::isBinaryPropertyList(bytes) != mutator.oneIn(16);
  mutator.mutate(*tree);
  const std::size_t written = write(*tree, is_binary, data, max_size);
  return written != 0 ? written : LLVMFuzzerMutate(data, size, max_size);
}

// Replaces a part of one tree by a part of the other.
extern "C" std::size_t LLVMFuzzerCustomCrossOver(const std::uint8_t* data, std::size_t size,
                                                 const std::uint8_t* other, std::size_t other_size,
                                                 std::uint8_t* out, std::size_t max_out_size,
                                                 unsigned seed) {
  TreeMutator mutator(seed);
  const std::string_view bytes = textOf(data, size);
  std::optional<Value> tree = propertyListIn(bytes);
  std::optional<Value> giver = propertyListIn(textOf(other, other_size));
  if (!tree || !giver) return 0;
  mutator.anyNode(*tree) = mutator.anyNode(*giver);
  return write(*tree, plist::isBinaryPropertyList(bytes), out, max_out_size);
}

}  // namespace vorlatch::fuzz
