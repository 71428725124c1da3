// An open file, closed when it goes. POSIX, the same on every platform.
#pragma once

#include <unistd.h>

#include <string_view>
#include <utility>

namespace vorlatch {

class Descriptor {
 public:
  // Takes the descriptor over; below zero it holds nothing.
  explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
  Descriptor(Descriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  Descriptor& operator=(Descriptor&&) = delete;
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (isOpen()) ::close(descriptor_);
  }
  [[nodiscard]] bool isOpen() const { return descriptor_ >= 0; }
  [[nodiscard]] int get() const { return descriptor_; }
  // Leaves it open for the life of the process.
  void release() { descriptor_ = -1; }

 private:
  int descriptor_;
};

// Writes all of the bytes; false when that failed, and then part of them may be written.
bool writeWhole(const Descriptor& file, std::string_view bytes);

}  // namespace vorlatch
