// Which lock guards what, and what is confined to a queue or thread, in words that clang checks
// while it compiles (-Wthread-safety); to any other compiler they are nothing. The same on every
// platform.
#pragma once

#include <condition_variable>
#include <mutex>

#if defined(__clang__)
#define VORLATCH_CHECKED(attribute) __attribute__((attribute))
#else
#define VORLATCH_CHECKED(attribute)
#endif

// Of a variable: it is read and written only where this is held.
#define GUARDED_BY(held) VORLATCH_CHECKED(guarded_by(held))
// Of a function: it is called only where this is held.
#define REQUIRES(held) VORLATCH_CHECKED(requires_capability(held))

namespace vorlatch {

class VORLATCH_CHECKED(capability("lock")) Mutex {
 private:
  friend class Lock;
  std::mutex mutex_;
};

// Holds the mutex as long as it lives.
class VORLATCH_CHECKED(scoped_lockable) Lock {
 public:
  explicit Lock(Mutex& mutex) VORLATCH_CHECKED(acquire_capability(mutex)) : lock_(mutex.mutex_) {}
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;
  ~Lock() VORLATCH_CHECKED(release_capability()) = default;

  // Lets go of the mutex while it waits.
  void wait(std::condition_variable& changed) { changed.wait(lock_); }
  template <typename TimePoint>
  void waitUntil(std::condition_variable& changed, const TimePoint& time) {
    changed.wait_until(lock_, time);
  }

 private:
  std::unique_lock<std::mutex> lock_;
};

// A serial queue or a thread, as something that is held by what runs there.
class VORLATCH_CHECKED(capability("queue")) Confinement {
 public:
  // Says to the compiler that this runs there: where work begins that was sent there.
  void assertHeld() const VORLATCH_CHECKED(assert_capability(this)) {}
};

}  // namespace vorlatch
