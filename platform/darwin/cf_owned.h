// A reference to a CoreFoundation object that this code owns, by CoreFoundation's rule of Create
// and Copy: released when it goes.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <utility>

namespace vorlatch::platform {

template <typename Ref>
class CFOwned {
 public:
  // Takes over what a Create or Copy function gave; null holds nothing.
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
