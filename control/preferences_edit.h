// Edits the preferences file without losing changes by other programs.
#pragma once

#include <functional>
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
  bool is_whole = true;  // false if the platform's reader dropped part of the file
  bool is_binary = false;
  bool exists = false;
};

// Reads a preferences file; a missing file is empty. Throws a Failure if it cannot be read or has
// no dictionary at its root, because an edit would lose its contents.
StoredPreferences readStoredPreferences(const std::string& path);

// Replaces the file with the dictionary, in the format of `is_binary`, whole or not at all. First
// parses the result in memory, and throws a Failure if a value would not be read back unchanged.
// Calls `may_replace`, if given, right before replacing the file; if that returns false, keeps the
// file and returns false.
bool writeStoredPreferences(const std::string& path, const StoredPreferences& preferences,
                            const std::function<bool()>& may_replace = nullptr);

struct Edit {
  plist::Dictionary before;
  plist::Dictionary after;
};

// Applies the change to the stored preferences and writes the result, unless nothing changed or
// `writes` is false. Starts again if another program replaced the file meanwhile, so `change` may
// be called more than once.
Edit editPreferences(const std::function<void(plist::Dictionary&)>& change, bool writes);

// Returns true if both have the same type and value.
bool isIdentical(const plist::Value& a, const plist::Value& b);

}  // namespace vorlatch::control
