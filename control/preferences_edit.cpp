#include "control/preferences_edit.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

#include "base/binary_property_list.h"
#include "base/files.h"
#include "config/preferences.h"
#include "config/property_list_file.h"
#include "config/property_list_guard.h"
#include "control/failure.h"
#include "control/history.h"
#include "control/translation.h"
#include "platform/property_list.h"
#include "rootprefix/pref_path.h"

namespace vorlatch::control {
namespace {

constexpr int kMostTries = 100;
constexpr int kLockPatienceMs = 10'000;
constexpr int kLockLookMs = 10;

// Detects whether a path still names the file that was read: every edit replaces the file or
// changes its time.
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

bool holdsNul(const plist::BinaryObject& text) {
  const std::size_t unit = text.kind == plist::BinaryObject::Kind::Utf16String ? 2 : 1;
  for (std::size_t i = 0; i < text.payload.size(); i += unit) {
    if (plist::bigEndian(text.payload.substr(i, unit)) == 0) return true;
  }
  return false;
}

// Returns true if reading the bytes loses nothing. C libraries end a string at its first NUL
// without reporting the rest; only a binary property list can contain a NUL.
bool isReadWhole(std::string_view bytes) {
  using Kind = plist::BinaryObject::Kind;
  if (!plist::isBinaryPropertyList(bytes)) return true;
  const auto list = plist::BinaryPropertyList::open(bytes);
  for (std::uint64_t i = 0; list && i < list->objectCount(); ++i) {
    const auto object = list->object(i);
    const bool is_text =
        object && (object->kind == Kind::AsciiString || object->kind == Kind::Utf16String);
    if (is_text && holdsNul(*object)) return false;
  }
  return true;
}

[[noreturn]] void failUnwritable(const std::string& path) {
  failCouldNot(
      tr("%s would hold something that cannot be written as it is; nothing is changed", path));
}

// What is to replace the preferences.
struct Draft {
  Edit edit;
  std::optional<std::string> replaced;  // the file's bytes; empty if there is none
  std::string bytes;
};

// Returns the bytes of a file that an edit is about to replace, or std::nullopt if there is none.
// Throws a Failure if they cannot be read.
std::optional<std::string> bytesToKeep(const std::string& path) {
  errno = 0;
  std::optional<std::string> bytes = readFileToPublish(path, kPropertyListBound.file_bytes);
  if (!bytes && errno != ENOENT) {
    failCouldNot(
        tr("%s cannot be kept for vorlatchctl undo (%s), so nothing is changed; move it away, then "
           "run this again",
           path, whyNotRead(errno)));
  }
  return bytes;
}

// Writes what `draft` makes of the file at its path, unless it changes nothing or `writes` is
// false. Starts again if another program replaced the file meanwhile.
Edit write(const std::function<Draft(const std::string& path)>& draft, bool writes,
           Previous previous) {
  const std::string path = daemonFile(kPreferencesFileName);
  const Descriptor lock = writes ? lockPreferences() : Descriptor(-1);
  for (int tries = 0; tries < kMostTries; ++tries) {
    const FileIdentity read_one(path);
    Draft made = draft(path);
    if (!made.edit.changes_file || !writes) return std::move(made.edit);
    std::optional<PreviousFile> copy;
    if (made.replaced && previous == Previous::Kept) copy.emplace(path, *made.replaced);
    const auto is_still_there = [&] { return FileIdentity(path) == read_one; };
    if (writeFileAtomically(path, made.bytes, is_still_there)) {
      if (copy) copy->keep();
      return std::move(made.edit);
    }
    if (errno != ESTALE) failCouldNot(path + ": " + reasonOf(errno));
  }
  failCouldNot(tr("%s is changed by another program all the time; nothing is written", path));
}

}  // namespace

bool isIdentical(const plist::Value& a, const plist::Value& b) {
  return a.storage().index() == b.storage().index() && std::visit(Identical{b}, a.storage());
}

std::string daemonFile(std::string_view name) {
  std::optional<std::string> path = getPrefPath(name);
  if (!path) failCouldNot(tr("the jailbreak's root cannot be found; vorlatchctl doctor says more"));
  return *std::move(path);
}

Descriptor lockPreferences() {
  const std::string path = daemonFile(kPreferencesFileName);
  const std::string directory = path.substr(0, path.rfind('/'));
  Descriptor descriptor(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!descriptor.isOpen()) failCouldNot(directory + ": " + reasonOf(errno));
  for (int waited_ms = 0; ::flock(descriptor.get(), LOCK_EX | LOCK_NB) != 0;
       waited_ms += kLockLookMs) {
    if (errno != EWOULDBLOCK) failCouldNot(directory + ": " + reasonOf(errno));
    if (waited_ms >= kLockPatienceMs) {
      failCouldNot(tr("another program keeps %s locked; nothing is changed", directory));
    }
    ::poll(nullptr, 0, kLockLookMs);
  }
  return descriptor;
}

std::string whyNotRead(int error) {
  return error != 0 ? reasonOf(error) : tr("a link, or no file of at most 512 kB");
}

std::optional<StoredPreferences> storedPreferencesIn(std::string bytes) {
  std::optional<plist::Dictionary> dictionary = dictionaryIn(bytes);
  if (!dictionary) return std::nullopt;
  const bool is_whole = isReadWhole(bytes);
  const bool is_binary = plist::isBinaryPropertyList(bytes);
  return StoredPreferences{.dictionary = *std::move(dictionary),
                           .bytes = std::move(bytes),
                           .is_whole = is_whole,
                           .is_binary = is_binary,
                           .exists = true};
}

std::optional<plist::Dictionary> dictionaryIn(std::string_view bytes) {
  std::optional<plist::Value> root = propertyListIn(bytes);
  auto* dictionary = root ? root->as<plist::Dictionary>() : nullptr;
  return dictionary != nullptr ? std::optional(std::move(*dictionary)) : std::nullopt;
}

StoredPreferences readStoredPreferences(const std::string& path) {
  errno = 0;
  std::optional<std::string> bytes = readFileToPublish(path, kPropertyListBound.file_bytes);
  if (!bytes && errno == ENOENT) return {};
  if (!bytes && errno == 0) {
    failCouldNot(tr("%s: %s; move it away, then run this again", path, whyNotRead(0)));
  }
  if (!bytes) failCouldNot(path + ": " + reasonOf(errno));
  std::optional<StoredPreferences> stored = storedPreferencesIn(*std::move(bytes));
  if (stored) return *std::move(stored);
  failCouldNot(
      tr("%s is no property list with a dictionary, and is left as it is; vorlatchctl check "
         "says more, vorlatchctl undo puts an earlier one back, vorlatchctl preset --replace-file "
         "starts afresh",
         path));
}

void requireWhole(const std::string& path, const StoredPreferences& preferences) {
  if (!preferences.is_whole) failUnwritable(path);
}

std::string writtenForm(const std::string& path, const StoredPreferences& preferences) {
  std::string bytes = preferences.is_binary
                          ? platform::writeBinaryPropertyList(preferences.dictionary)
                          : platform::writeXmlPropertyList(preferences.dictionary);
  const std::optional<PropertyListSize> size = measurePropertyList(bytes);
  if (size && !size->isWithin(kPropertyListBound)) {
    failCouldNot(tr("%s would be larger than what the daemon reads; nothing is changed", path));
  }
  const std::optional<plist::Value> back = propertyListIn(bytes);
  if (!back || !isIdentical(*back, preferences.dictionary)) failUnwritable(path);
  return bytes;
}

void writeStoredPreferences(const std::string& path, const StoredPreferences& preferences) {
  if (!writeFileAtomically(path, writtenForm(path, preferences))) {
    failCouldNot(path + ": " + reasonOf(errno));
  }
}

Edit editPreferences(const std::function<void(plist::Dictionary&)>& change, bool writes,
                     Previous previous) {
  const auto draft = [&change](const std::string& path) {
    StoredPreferences preferences = readStoredPreferences(path);
    Draft made;
    made.edit.before = preferences.dictionary;
    change(preferences.dictionary);
    made.edit.after = preferences.dictionary;
    made.edit.changes_file = !isIdentical(made.edit.before, made.edit.after);
    if (!made.edit.changes_file) return made;
    requireWhole(path, preferences);
    made.bytes = writtenForm(path, preferences);
    if (preferences.exists) made.replaced = std::move(preferences.bytes);
    return made;
  };
  return write(draft, writes, previous);
}

Edit replacePreferences(const std::function<std::string(const std::string& path)>& contents,
                        Sameness sameness, bool writes) {
  const auto draft = [&contents, sameness](const std::string& path) {
    Draft made;
    made.bytes = contents(path);
    made.replaced = bytesToKeep(path);
    const std::optional<plist::Dictionary> before =
        made.replaced ? dictionaryIn(*made.replaced) : std::nullopt;
    made.edit.before = before.value_or(plist::Dictionary{});
    made.edit.after = dictionaryIn(made.bytes).value_or(plist::Dictionary{});
    made.edit.changes_file = sameness == Sameness::Bytes
                                 ? made.replaced != made.bytes
                                 : !before || !isIdentical(*before, made.edit.after);
    return made;
  };
  return write(draft, writes, Previous::Kept);
}

}  // namespace vorlatch::control
