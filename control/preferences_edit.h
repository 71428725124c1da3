// Edits the preferences file without losing changes by other programs.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/descriptor.h"
#include "base/plist_value.h"

namespace vorlatch::control {

// Returns the full path of the daemon's file with this name. Throws a Failure if the root prefix is
// unresolved.
std::string daemonFile(std::string_view name);

// Locks out edits by other programs that use this lock, until the descriptor is destroyed. Locks
// the directory, because each edit replaces the file. Throws a Failure if the lock is not free
// within ten seconds.
Descriptor lockPreferences();

// The contents and the format of a preferences file.
struct StoredPreferences {
  plist::Dictionary dictionary;
  std::string bytes = {};  // the file as it was read
  bool is_whole = true;    // false if the platform's reader dropped part of the file
  bool is_binary = false;
  bool exists = false;
};

// Reads a preferences file; a missing file is empty. Throws a Failure if it cannot be read or has
// no dictionary at its root, because an edit would lose its contents.
StoredPreferences readStoredPreferences(const std::string& path);

// Returns the file's dictionary and format; std::nullopt if the bytes hold no dictionary.
std::optional<StoredPreferences> storedPreferencesIn(std::string bytes);
std::optional<plist::Dictionary> dictionaryIn(std::string_view bytes);

// Returns the dictionary in the format of `is_binary`. Parses the result in memory, and throws a
// Failure, which names `path`, if the daemon could not read it or a value would not be read back
// unchanged.
std::string writtenForm(const std::string& path, const StoredPreferences& preferences);

// Throws a Failure, which names `path`, if the platform's reader dropped part of the file.
void requireWhole(const std::string& path, const StoredPreferences& preferences);

// Replaces the file with the written form, whole or not at all.
void writeStoredPreferences(const std::string& path, const StoredPreferences& preferences);

// Says why readFileToPublish did not read a file; `error` is errno, which was 0 before.
std::string whyNotRead(int error);

struct Edit {
  plist::Dictionary before;
  plist::Dictionary after;
  bool changes_file = false;
};

// Whether an edit keeps the file that it replaces (control/history.h).
enum class Previous { Kept, NotKept };

// Applies the change to the stored preferences and writes the result, unless nothing changed or
// `writes` is false. Starts again if another program replaced the file meanwhile, so `change` may
// be called more than once.
Edit editPreferences(const std::function<void(plist::Dictionary&)>& change, bool writes,
                     Previous previous = Previous::Kept);

// When a file counts as unchanged: if its dictionary, or if every byte stays.
enum class Sameness { Dictionary, Bytes };

// Replaces the whole file, readable or not, with what `contents` returns for its path, and keeps
// the replaced file. In the result, an unreadable file is empty. Throws a Failure if the file
// cannot be kept, because it is a foreign file or too large.
Edit replacePreferences(const std::function<std::string(const std::string& path)>& contents,
                        Sameness sameness, bool writes);

// Returns true if both have the same type and value.
bool isIdentical(const plist::Value& a, const plist::Value& b);

}  // namespace vorlatch::control
