// Owns a reference to a CoreFoundation object, by CoreFoundation's Create and Copy rule, and
// releases it on destruction.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <utility>

namespace vorlatch::platform {

template <typename Ref>
class CFOwned {
 public:
  // Takes ownership of the result of a Create or Copy function; null means none.
  explicit CFOwned(Ref object) : object_(object) {}
  CFOwned(CFOwned&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  CFOwned& operator=(CFOwned&&) = delete;
  CFOwned(const CFOwned&) = delete;
  CFOwned& operator=(const CFOwned&) = delete;
  ~CFOwned() {
    if (object_ != nullptr) CFRelease(object_);
  }
  [[nodiscard]] Ref get() const { return object_; }
  explicit operator bool() const { return object_ != nullptr; }

 private:
  Ref object_;
};

}  // namespace vorlatch::platform
