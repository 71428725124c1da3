// Switches the daemon off, and restores the preferences byte for byte.
#pragma once

#include <string>

#include "base/descriptor.h"
#include "control/preferences_edit.h"

namespace vorlatch::control {

// While an object exists, the preferences have another name and a switched-off copy takes their
// place; the destructor restores them. A killed run leaves both files. The next `release
// --keep-preferences` restores the old file or, if somebody edited the copy, keeps the edit and
// restores only Enabled.
class SetAside {
 public:
  // Throws a Failure if this is not possible; the preferences are then unchanged. Delegates to
  // another constructor: the object then counts as constructed, so the destructor restores the
  // preferences even if this constructor throws.
  SetAside();
  SetAside(const SetAside&) = delete;
  SetAside& operator=(const SetAside&) = delete;
  ~SetAside() { static_cast<void>(putBack()); }

  // Returns false and sets errno if the preferences stay under the other name.
  bool putBack();
  [[nodiscard]] const std::string& aside() const { return aside_; }

 private:
  explicit SetAside(std::string path);
  StoredPreferences leftByKilledRun(const StoredPreferences& in_place);

  const std::string path_;
  const std::string aside_;
  const Descriptor lock_;  // until they are restored: an edit in between would be lost
  bool is_aside_ = false;
};

}  // namespace vorlatch::control
