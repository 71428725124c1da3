// Entries that an attacker may put in a file's place, and the state of the files they point at.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "base/descriptor.h"

namespace vorlatch::tests {

// Files and directories outside the daemon's directory that only root may read and that must not
// change.
class Victims {
 public:
  explicit Victims(std::string directory);

  [[nodiscard]] std::string path(const std::string& name) const { return directory_ + "/" + name; }
  // The text in the property list that a plant may point at. It must not appear in another file.
  static constexpr std::string_view kSecret = "what root alone may see";
  // Whether a file in the directory, other than the victim itself, contains the secret.
  [[nodiscard]] bool isSecretIn(const std::string& directory) const;
  // Name, type, mode, inode, size, modification time and contents of each.
  [[nodiscard]] std::string asTheyStand() const;

 private:
  const std::string directory_;
};

// One way to replace a file: by something that points at the victims, or by a special file.
struct Plant {
  std::string name;
  std::function<void(const std::string& path, const Victims& victims)> put;
};

// The plants that any user can create, and those that only root can create.
const std::vector<Plant>& plants();
const std::vector<Plant>& devicePlants();

// Prints the name for gtest.
std::ostream& operator<<(std::ostream& out, const Plant& plant);

// A planted entry, which is found again even after it was renamed.
class Planted {
 public:
  // Replaces what is at the path.
  Planted(const Plant& plant, const std::string& path, const Victims& victims);

  [[nodiscard]] std::string asItStands() const;

 private:
  const Descriptor entry_;
  const Descriptor fifo_;  // a reader, without which opening a FIFO for writing fails
};

}  // namespace vorlatch::tests
