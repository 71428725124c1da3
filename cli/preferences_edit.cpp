#include "cli/preferences_edit.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <set>
#include <system_error>
#include <utility>

#include "cli/failure.h"
#include "config/files.h"
#include "config/preferences.h"
#include "config/property_list_file.h"
#include "config/property_list_guard.h"
#include "platform/binary_property_list.h"
#include "platform/property_list.h"
#include "platform/xml_scanner.h"
#include "rootprefix/pref_path.h"

namespace vorlatch::cli {
namespace {

constexpr int kMostTries = 100;

// Tells whether a path still names the file that was read: every edit replaces it or moves its
// time.
struct FileIdentity {
  explicit FileIdentity(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return;
    inode = status.st_ino;
    size_bytes = status.st_size;
    std::error_code unknown;
    written = std::filesystem::last_write_time(path, unknown);
  }
  friend bool operator==(const FileIdentity&, const FileIdentity&) = default;

  ino_t inode = 0;  // 0: there is no file
  off_t size_bytes = 0;
  std::filesystem::file_time_type written;
};

struct Identical {
  const plist::Value& other;

  bool operator()(const plist::Array& array) const {
    const auto& others = *other.as<plist::Array>();
    return std::equal(array.begin(), array.end(), others.begin(), others.end(), isIdentical);
  }
  bool operator()(const plist::Dictionary& dictionary) const {
    const auto& others = *other.as<plist::Dictionary>();
    return std::equal(dictionary.begin(), dictionary.end(), others.begin(), others.end(),
                      [](const auto& a, const auto& b) {
                        return a.first == b.first && isIdentical(a.second, b.second);
                      });
  }
  template <typename Scalar>
  bool operator()(const Scalar& scalar) const {
    return plist::Value(scalar) == other;
  }
};

using Texts = std::set<std::string>;

// What stands in the date elements of an XML list.
Texts dateTexts(std::string_view xml) {
  using Kind = plist::XmlToken::Kind;
  plist::XmlScanner scanner(xml);
  Texts texts;
  bool is_in_date = false;
  for (auto token = scanner.next(); token.kind != Kind::End && token.kind != Kind::Malformed;
       token = scanner.next()) {
    if (is_in_date && token.kind == Kind::Text) texts.emplace(token.content);
    is_in_date = token.kind == Kind::Open && token.content == "date";
  }
  return texts;
}

void collectDates(const plist::Value& value, std::set<double>& dates) {
  if (const auto* date = value.as<plist::Date>()) {
    dates.insert(date->seconds_since_2001);
  } else if (const auto* array = value.as<plist::Array>()) {
    for (const plist::Value& item : *array) collectDates(item, dates);
  } else if (const auto* dictionary = value.as<plist::Dictionary>()) {
    for (const auto& [key, item] : *dictionary) collectDates(item, dates);
  }
}

bool holdsNul(const plist::BinaryObject& text) {
  const std::size_t unit = text.kind == plist::BinaryObject::Kind::Utf16String ? 2 : 1;
  for (std::size_t i = 0; i < text.payload.size(); i += unit) {
    if (plist::bigEndian(text.payload.substr(i, unit)) == 0) return true;
  }
  return false;
}

bool isAllOfBinary(const plist::Value& value, std::string_view bytes) {
  using Kind = plist::BinaryObject::Kind;
  const auto list = plist::BinaryPropertyList::open(bytes);
  if (!list) return false;
  std::set<double> dates;
  collectDates(value, dates);
  for (std::uint64_t i = 0; i < list->objectCount(); ++i) {
    const auto object = list->object(i);
    if (!object) continue;
    const bool is_text = object->kind == Kind::AsciiString || object->kind == Kind::Utf16String;
    if (is_text && holdsNul(*object)) return false;
    if (object->kind == Kind::Date &&
        !dates.contains(std::bit_cast<double>(plist::bigEndian(object->payload)))) {
      return false;
    }
  }
  return true;
}

// Whether the value is all that the bytes say. Libraries written in C end a text at its first NUL,
// and keep dates in 32 bits of seconds: what they gave cannot tell what they lost.
bool isAllOf(const plist::Value& value, std::string_view bytes) {
  if (plist::isBinaryPropertyList(bytes)) return isAllOfBinary(value, bytes);
  const Texts dates = dateTexts(bytes);
  if (dates.empty()) return true;
  const Texts written = dateTexts(platform::writeXmlPropertyList(value));
  return std::includes(written.begin(), written.end(), dates.begin(), dates.end());
}

[[noreturn]] void failUnwritable(const std::string& path) {
  failCouldNot(path + " would hold something that cannot be written as it is; nothing is changed");
}

}  // namespace

bool isIdentical(const plist::Value& a, const plist::Value& b) {
  return a.storage().index() == b.storage().index() && std::visit(Identical{b}, a.storage());
}

std::string daemonFile(std::string_view name) {
  std::optional<std::string> path = getPrefPath(name);
  if (!path) failCouldNot("the jailbreak's root cannot be found; vorlatchctl doctor says more");
  return *std::move(path);
}

Descriptor lockPreferences() {
  const std::string path = daemonFile(kPreferencesFileName);
  const std::string directory = path.substr(0, path.rfind('/'));
  Descriptor descriptor(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!descriptor.isOpen()) failCouldNot(directory + ": " + reasonOf(errno));
  if (::flock(descriptor.get(), LOCK_EX) != 0) failCouldNot(directory + ": " + reasonOf(errno));
  return descriptor;
}

StoredPreferences readStoredPreferences(const std::string& path) {
  errno = 0;
  const std::optional<std::string> bytes = readFile(path, kMaxPropertyListBytes);
  if (!bytes && errno == ENOENT) return {};
  if (!bytes) failCouldNot(path + ": " + (errno != 0 ? reasonOf(errno) : "not a file to be read"));
  std::optional<plist::Value> root = propertyListIn(*bytes);
  auto* dictionary = root ? root->as<plist::Dictionary>() : nullptr;
  if (dictionary == nullptr) {
    failCouldNot(path + " is no property list with a dictionary, and is left as it is; " +
                 "vorlatchctl check says more, vorlatchctl preset --replace-file starts afresh");
  }
  const bool is_whole = isAllOf(*root, *bytes);
  return {.dictionary = std::move(*dictionary),
          .is_whole = is_whole,
          .is_binary = plist::isBinaryPropertyList(*bytes),
          .exists = true};
}

void writeStoredPreferences(const std::string& path, const StoredPreferences& preferences) {
  const std::string bytes = preferences.is_binary
                                ? platform::writeBinaryPropertyList(preferences.dictionary)
                                : platform::writeXmlPropertyList(preferences.dictionary);
  const std::optional<plist::Value> back = propertyListIn(bytes);
  if (!back || !isIdentical(*back, preferences.dictionary)) failUnwritable(path);
  if (!writeFileAtomically(path, bytes)) failCouldNot(path + ": " + reasonOf(errno));
}

Edit editPreferences(const std::function<void(plist::Dictionary&)>& change, bool writes) {
  const std::string path = daemonFile(kPreferencesFileName);
  const Descriptor lock = lockPreferences();
  for (int tries = 0; tries < kMostTries; ++tries) {
    const FileIdentity read_one(path);
    StoredPreferences preferences = readStoredPreferences(path);
    Edit edit{.before = preferences.dictionary, .after = {}};
    change(preferences.dictionary);
    edit.after = preferences.dictionary;
    if (!writes || isIdentical(edit.before, edit.after)) return edit;
    if (!preferences.is_whole) failUnwritable(path);
    // Not every editor takes the lock.
    if (FileIdentity(path) != read_one) continue;
    writeStoredPreferences(path, preferences);
    return edit;
  }
  failCouldNot(path + " is changed by another program all the time; nothing is written");
}

}  // namespace vorlatch::cli
