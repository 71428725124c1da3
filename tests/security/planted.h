// What an attacker puts in a file's place, and how what it leads to stands.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "base/descriptor.h"

namespace vorlatch::tests {

// What has to stay as it is: some files and directories outside the daemon's, which root alone may
// see.
class Victims {
 public:
  explicit Victims(std::string directory);

  [[nodiscard]] std::string path(const std::string& name) const { return directory_ + "/" + name; }
  // The file that a plant may lead to is a property list with this text, which is to be nowhere
  // else.
  static constexpr std::string_view kSecret = "what root alone may see";
  // Whether a file among these entries, other than the victim itself, holds the secret.
  [[nodiscard]] bool isSecretIn(const std::string& directory) const;
  // Name, type, mode, inode, size, time of the last change and contents of each.
  [[nodiscard]] std::string asTheyStand() const;

 private:
  const std::string directory_;
};

// One way to put something in a file's place: it leads to the victims, or is no regular file.
struct Plant {
  std::string name;
  std::function<void(const std::string& path, const Victims& victims)> put;
};

// Those that everybody can make, and those that take root.
const std::vector<Plant>& plants();
const std::vector<Plant>& devicePlants();

// For the names of tests.
std::ostream& operator<<(std::ostream& out, const Plant& plant);

// What was planted, found again under whatever name it has now.
class Planted {
 public:
  // Replaces what stands there.
  Planted(const Plant& plant, const std::string& path, const Victims& victims);

  [[nodiscard]] std::string asItStands() const;

 private:
  const Descriptor entry_;
  const Descriptor fifo_;  // the reader without whom nobody could open a FIFO to write into it
};

}  // namespace vorlatch::tests
