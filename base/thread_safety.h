// Annotations that say which lock guards a variable, and which queue or thread it is confined to.
// clang checks them at compile time (-Wthread-safety); other compilers ignore them. The same on
// every platform.
#pragma once

#include <condition_variable>
#include <mutex>

#if defined(__clang__)
#define VORLATCH_CHECKED(attribute) __attribute__((attribute))
#else
#define VORLATCH_CHECKED(attribute)
#endif

// On a variable: it is read and written only while `held` is held.
#define GUARDED_BY(held) VORLATCH_CHECKED(guarded_by(held))
// On a function: it is called only while `held` is held.
#define REQUIRES(held) VORLATCH_CHECKED(requires_capability(held))

namespace vorlatch {

class VORLATCH_CHECKED(capability("lock")) Mutex {
 private:
  friend class Lock;
  std::mutex mutex_;
};

// Holds the mutex for its own lifetime.
class VORLATCH_CHECKED(scoped_lockable) Lock {
 public:
  explicit Lock(Mutex& mutex) VORLATCH_CHECKED(acquire_capability(mutex)) : lock_(mutex.mutex_) {}
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;
  ~Lock() VORLATCH_CHECKED(release_capability()) = default;

  // Releases the mutex while waiting.
  void wait(std::condition_variable& changed) { changed.wait(lock_); }
  template <typename TimePoint>
  void waitUntil(std::condition_variable& changed, const TimePoint& time) {
    changed.wait_until(lock_, time);
  }

 private:
  std::unique_lock<std::mutex> lock_;
};

// A serial queue or thread as a capability, which the code that runs there holds.
class VORLATCH_CHECKED(capability("queue")) Confinement {
 public:
  // Tells the compiler that the calling code runs there; placed where a work item begins.
  void assertHeld() const VORLATCH_CHECKED(assert_capability(this)) {}
};

}  // namespace vorlatch
