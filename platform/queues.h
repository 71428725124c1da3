// The seam for execution contexts: serial queues, their timers, and the main thread's run loop.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

namespace vorlatch::platform {

using Work = std::function<void()>;

// Runs its work one piece at a time, in the order in which it was sent. Lives as long as the
// process.
class SerialQueue;

SerialQueue& makeSerialQueue(const char* label);

// Sends work to the queue and returns at once. Safe to call from any thread.
void async(SerialQueue& queue, Work work);

inline constexpr std::uint64_t kNever = UINT64_MAX;

struct TimerSchedule {
  std::uint64_t start_ns;     // from now
  std::uint64_t interval_ns;  // kNever: fires once
  std::uint64_t leeway_ns;    // how much later than due a fire may come
};

class TimerSource;
struct CancelTimer {
  void operator()(TimerSource* source) const;
};

// A running timer. Letting go of it cancels it; done on the timer's own queue, its handler does not
// run again, not even for a fire that was already due.
using Timer = std::unique_ptr<TimerSource, CancelTimer>;

// Starts a timer that runs the handler on the queue. Fires that were missed come as one, and later
// ones stay on the grid start + n x interval. Time is the uptime: it stands still while the device
// sleeps. Safe to call from any thread.
Timer startTimer(SerialQueue& queue, const TimerSchedule& schedule, Work handler);

// Serves the main thread: runs what is delivered to it, for the life of the process. Called once,
// on the main thread. Returns only where the platform ends its run loop.
void runMainLoop();

}  // namespace vorlatch::platform
