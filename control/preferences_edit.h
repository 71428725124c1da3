// Changing the preferences file without losing anybody's change.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "base/descriptor.h"
#include "base/plist_value.h"

namespace vorlatch::control {

// The full path of one of the daemon's files; a Failure when the root prefix cannot be resolved.
std::string daemonFile(std::string_view name);

// Holds off every other program's edit that asks for this lock, until it goes. It is on the
// directory: the file itself is replaced by each edit. A Failure when it cannot be had within ten
// seconds.
Descriptor lockPreferences();

// What stands in a preferences file, and in which form.
struct StoredPreferences {
  plist::Dictionary dictionary;
  bool is_whole = true;  // false where the platform's reader leaves out some of what stands there
  bool is_binary = false;
  bool exists = false;
};

// Reads the daemon's file; a missing one is empty. A Failure when it cannot be read or is not a
// property list with a dictionary at its root: an edit would lose what stands there.
StoredPreferences readStoredPreferences(const std::string& path);

// Writes the dictionary in its form, whole or not at all, and reads it back in memory first: a
// Failure when something in it would not come back as it was. With `may_replace`, asks it right
// before the file is replaced, and gives false when it says no.
bool writeStoredPreferences(const std::string& path, const StoredPreferences& preferences,
                            const std::function<bool()>& may_replace = nullptr);

struct Edit {
  plist::Dictionary before;
  plist::Dictionary after;
};

// Makes the change on what stands in the file and writes the result, unless nothing changed or
// `writes` is false. Begins again when somebody else replaced the file meanwhile, so `change` may
// be called more than once.
Edit editPreferences(const std::function<void(plist::Dictionary&)>& change, bool writes);

// Equal in every value and in its type.
bool isIdentical(const plist::Value& a, const plist::Value& b);

}  // namespace vorlatch::control
