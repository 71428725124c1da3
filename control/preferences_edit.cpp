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

StoredPreferences readStoredPreferences(const std::string& path) {
  errno = 0;
  const std::optional<std::string> bytes = readFileToPublish(path, kPropertyListBound.file_bytes);
  if (!bytes && errno == ENOENT) return {};
  if (!bytes) {
    failCouldNot(path + ": " +
                 (errno != 0 ? reasonOf(errno) : tr("a link, or no file of at most 512 kB")));
  }
  std::optional<plist::Value> root = propertyListIn(*bytes);
  auto* dictionary = root ? root->as<plist::Dictionary>() : nullptr;
  if (dictionary == nullptr) {
    failCouldNot(
        tr("%s is no property list with a dictionary, and is left as it is; vorlatchctl check "
           "says more, vorlatchctl preset --replace-file starts afresh",
           path));
  }
  const bool is_whole = isReadWhole(*bytes);
  return {.dictionary = std::move(*dictionary),
          .is_whole = is_whole,
          .is_binary = plist::isBinaryPropertyList(*bytes),
          .exists = true};
}

bool writeStoredPreferences(const std::string& path, const StoredPreferences& preferences,
                            const std::function<bool()>& may_replace) {
  const std::string bytes = preferences.is_binary
                                ? platform::writeBinaryPropertyList(preferences.dictionary)
                                : platform::writeXmlPropertyList(preferences.dictionary);
  const std::optional<PropertyListSize> size = measurePropertyList(bytes);
  if (size && !size->isWithin(kPropertyListBound)) {
    failCouldNot(tr("%s would be larger than what the daemon reads; nothing is changed", path));
  }
  const std::optional<plist::Value> back = propertyListIn(bytes);
  if (!back || !isIdentical(*back, preferences.dictionary)) failUnwritable(path);
  if (writeFileAtomically(path, bytes, may_replace)) return true;
  if (errno == ESTALE && may_replace) return false;
  failCouldNot(path + ": " + reasonOf(errno));
}

Edit editPreferences(const std::function<void(plist::Dictionary&)>& change, bool writes) {
  const std::string path = daemonFile(kPreferencesFileName);
  const Descriptor lock = writes ? lockPreferences() : Descriptor(-1);
  for (int tries = 0; tries < kMostTries; ++tries) {
    const FileIdentity read_one(path);
    StoredPreferences preferences = readStoredPreferences(path);
    Edit edit{.before = preferences.dictionary, .after = {}};
    change(preferences.dictionary);
    edit.after = preferences.dictionary;
    if (isIdentical(edit.before, edit.after)) return edit;
    if (!preferences.is_whole) failUnwritable(path);
    if (!writes) return edit;
    const auto is_still_there = [&] { return FileIdentity(path) == read_one; };
    if (writeStoredPreferences(path, preferences, is_still_there)) return edit;
  }
  failCouldNot(tr("%s is changed by another program all the time; nothing is written", path));
}

}  // namespace vorlatch::control
