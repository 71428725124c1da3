// Copies of the preferences files that edits replaced, so that an edit can be taken back. They are
// beside the preferences: com.zel.vorlatch.plist.undo.N, with a growing N.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/plist_value.h"
#include "control/preferences_edit.h"

namespace vorlatch::control {

// The most copies that stay.
inline constexpr std::size_t kMostUndoSteps = 10;

// A copy of the preferences file that is about to be replaced. The caller holds the lock of
// lockPreferences().
class PreviousFile {
 public:
  // Writes the copy. Throws a Failure if that is not possible.
  PreviousFile(const std::string& preferences_path, const std::string& bytes);
  PreviousFile(const PreviousFile&) = delete;
  PreviousFile& operator=(const PreviousFile&) = delete;
  // Removes the copy, unless keep() was called: the file was not replaced.
  ~PreviousFile();

  // Keeps the copy, and removes all but the newest kMostUndoSteps.
  void keep();

 private:
  const std::string preferences_path_;
  std::string copy_;
  bool is_kept_ = false;
};

// One edit that can be taken back.
struct UndoStep {
  std::string copy;          // the path of the file as it was before the edit
  std::int64_t edited_at_s;  // since 1970
  // The dictionaries of that file and of the one that came after it; null if it has none or cannot
  // be read.
  const plist::Dictionary* before;
  const plist::Dictionary* after;
};

// Calls `visit` with each edit that can be taken back, the last edit first.
void visitUndoSteps(const std::function<void(const UndoStep&)>& visit);

// Puts back the preferences as they were before the last `steps` edits, byte for byte, and keeps
// those that they replace. Throws a Failure if there are not so many copies.
Edit takeBack(std::size_t steps, bool writes);

}  // namespace vorlatch::control
