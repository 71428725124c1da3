// Owns a file descriptor and closes it on destruction. POSIX, the same on every platform.
#pragma once

#include <unistd.h>

#include <string_view>
#include <utility>

namespace vorlatch {

class Descriptor {
 public:
  // Takes ownership of the descriptor; a negative number means none.
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
  // Gives up ownership without closing: the descriptor stays open until the process ends.
  void release() { descriptor_ = -1; }

 private:
  int descriptor_;
};

// Writes all bytes. Returns false on failure; some of the bytes may then have been written.
bool writeWhole(const Descriptor& file, std::string_view bytes);

}  // namespace vorlatch
