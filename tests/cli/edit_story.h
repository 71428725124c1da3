// Edits in a story: what stands in the preferences file before and after, and whether the daemon
// was told.
#pragma once

#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

#include "base/plist_value.h"
#include "tests/cli/control_run.h"

namespace vorlatch::tests {

using Arguments = std::vector<std::string>;

// Tells a file that was written again from one that was left alone.
struct FileVersion {
  std::uint64_t inode = 0;
  std::filesystem::file_time_type written;
  std::string bytes;
  friend bool operator==(const FileVersion&, const FileVersion&) = default;
};

// What one command did.
struct EditResult {
  Output output;
  std::string bytes;  // in the file afterwards
  int posts = 0;      // that reached the daemon
  friend bool operator==(const EditResult&, const EditResult&) = default;
};

std::ostream& operator<<(std::ostream& stream, const EditResult& result);

class EditStory : public ControlStory {
 public:
  EditStory();

  // Types the command and lets the daemon hear what was posted.
  EditResult edit(const Arguments& arguments);

  [[nodiscard]] std::string bytes() const { return readAll(preferencesFile()); }
  [[nodiscard]] FileVersion version() const;
  // The names in the directory of the preferences, sorted: no edit leaves anything else there.
  [[nodiscard]] std::vector<std::string> filesBeside() const;

 private:
  int posts_ = 0;
};

// The arguments with more of them behind.
Arguments with(Arguments arguments, const Arguments& more);

}  // namespace vorlatch::tests
