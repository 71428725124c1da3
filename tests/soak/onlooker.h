// A program that reads the daemon's files all the time, as any other may.
#pragma once

#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace vorlatch {

class Onlooker {
 public:
  // Reads these files; from when one is there it always is, and holds a whole property list.
  explicit Onlooker(std::vector<std::string> paths);
  Onlooker(const Onlooker&) = delete;
  Onlooker& operator=(const Onlooker&) = delete;
  ~Onlooker() { stop(); }

  // Ends it; only then may the two be asked.
  void stop();
  [[nodiscard]] int looks() const { return looks_; }
  // What it found that was not whole; the first few.
  [[nodiscard]] const std::vector<std::string>& findings() const { return findings_; }

 private:
  void look();

  const std::vector<std::string> paths_;
  std::atomic<bool> ends_ = false;
  std::set<std::string> seen_;
  int looks_ = 0;
  std::vector<std::string> findings_;
  std::thread thread_;
};

}  // namespace vorlatch
