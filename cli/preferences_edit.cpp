#include "cli/preferences_edit.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

#include "cli/failure.h"
#include "config/files.h"
#include "config/preferences.h"
#include "config/property_list_file.h"
#include "config/property_list_guard.h"
#include "platform/binary_property_list.h"
#include "platform/property_list.h"
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
  return {.dictionary = std::move(*dictionary),
          .is_binary = plist::isBinaryPropertyList(*bytes),
          .exists = true};
}

void writeStoredPreferences(const std::string& path, const StoredPreferences& preferences) {
  const std::string bytes = preferences.is_binary
                                ? platform::writeBinaryPropertyList(preferences.dictionary)
                                : platform::writeXmlPropertyList(preferences.dictionary);
  const std::optional<plist::Value> back = propertyListIn(bytes);
  if (!back || !isIdentical(*back, preferences.dictionary)) {
    failCouldNot(path +
                 " would hold something that cannot be written as it is; nothing is changed");
  }
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
    // Not every editor takes the lock.
    if (FileIdentity(path) != read_one) continue;
    writeStoredPreferences(path, preferences);
    return edit;
  }
  failCouldNot(path + " is changed by another program all the time; nothing is written");
}

}  // namespace vorlatch::cli
