// A temporary directory that the destructor removes.
#pragma once

#include <unistd.h>  // declares mkdtemp on Darwin

#include <cstdlib>
#include <filesystem>
#include <string>

namespace vorlatch::tests {

class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string pattern = std::filesystem::temp_directory_path() / "vorlatch-XXXXXX";
    if (mkdtemp(pattern.data()) != nullptr) path_ = std::filesystem::canonical(pattern);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  ~TemporaryDirectory() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  [[nodiscard]] std::string path() const { return path_; }
  [[nodiscard]] std::string operator/(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

}  // namespace vorlatch::tests
