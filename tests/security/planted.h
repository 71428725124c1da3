// What an attacker puts in a file's place, and how what it leads to stands.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "platform/descriptor.h"

namespace vorlatch::tests {

// What has to stay as it is: some files and directories outside the daemon's, which root alone may
// see.
class Victims {
 public:
  explicit Victims(std::string directory);

  [[nodiscard]] std::string path(const std::string& name) const { return directory_ + "/" + name; }
  // Name, type, mode, inode, size, time of the last change and contents of each.
  [[nodiscard]] std::string asTheyStand() const;

 private:
  const std::string directory_;
};

// One way to put something in a file's place that leads to the victims or is none.
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
  const Descriptor fifo_;  // reads what is written into one, which may be opened for writing so
};

}  // namespace vorlatch::tests
