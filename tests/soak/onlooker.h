// A program that reads the daemon's files all the time, as any other may.
#pragma once

#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/blackbox/processes.h"

namespace vorlatch {

class Onlooker {
 public:
  // Looks at these files of one directory: from when one is there it always is, it holds a whole
  // property list, and it is replaced, never written to.
  Onlooker(const std::string& directory, std::vector<std::string> names);
  Onlooker(const Onlooker&) = delete;
  Onlooker& operator=(const Onlooker&) = delete;
  ~Onlooker() { stop(); }

  // Ends it; only then may looks and findings be asked.
  void stop();
  [[nodiscard]] int looks() const { return looks_; }
  // What was not so; the first few.
  [[nodiscard]] const std::vector<std::string>& findings() const { return findings_; }

 private:
  void look();
  void readEvents();
  void find(const std::string& finding);

  const std::string directory_;
  const std::vector<std::string> names_;
  const Descriptor writes_;
  std::atomic<bool> ends_ = false;
  std::set<std::string> seen_;
  int looks_ = 0;
  std::vector<std::string> findings_;
  std::thread thread_;
};

}  // namespace vorlatch
