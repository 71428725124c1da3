// Preferences that are switched off for a moment and put back byte for byte.
#pragma once

#include <string>

#include "base/descriptor.h"
#include "control/preferences_edit.h"

namespace vorlatch::control {

// While it lives, the preferences stand under another name and a switched-off file is in their
// place; its end puts them back. A process that is killed leaves both files: the next one with
// --keep-preferences puts the old one back or, where somebody has edited the file in its place,
// keeps the edit and puts only the switch back.
class SetAside {
 public:
  // A Failure when it cannot be done; the preferences are then as they were. Delegates to another
  // constructor, after which the object counts as made, so that the destructor puts the preferences
  // back whatever ends this one.
  SetAside();
  SetAside(const SetAside&) = delete;
  SetAside& operator=(const SetAside&) = delete;
  ~SetAside() { static_cast<void>(putBack()); }

  // False and errno when the preferences stay under the other name.
  bool putBack();
  [[nodiscard]] const std::string& aside() const { return aside_; }

 private:
  explicit SetAside(std::string path);
  StoredPreferences leftByKilledRun(const StoredPreferences& in_place);

  const std::string path_;
  const std::string aside_;
  const Descriptor lock_;  // until they are back: an edit in between would be lost
  bool is_aside_ = false;
};

}  // namespace vorlatch::control
