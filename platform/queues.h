// Platform interface for serial queues, their timers, and the main thread's run loop.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

namespace vorlatch::platform {

using Work = std::function<void()>;

// Runs its work items one at a time, in the order in which they were sent. Lives until the process
// ends.
class SerialQueue;

SerialQueue& makeSerialQueue(const char* label);

// Sends a work item to the queue and returns at once. Safe to call from any thread.
void async(SerialQueue& queue, Work work);

inline constexpr std::uint64_t kNever = UINT64_MAX;

struct TimerSchedule {
  std::uint64_t start_ns;     // from now
  std::uint64_t interval_ns;  // kNever: fires once
  std::uint64_t leeway_ns;    // how late a fire may be
};

class TimerSource;
struct CancelTimer {
  void operator()(TimerSource* source) const;
};

// A running timer. Destroying it cancels it. If that happens on the timer's own queue, the handler
// never runs again, not even for a fire that was already due.
using Timer = std::unique_ptr<TimerSource, CancelTimer>;

// Starts a timer that runs the handler on the queue. Missed fires are merged into one, and later
// fires stay on the grid start + n x interval. Measures uptime, which stands still while the device
// sleeps. Safe to call from any thread.
Timer startTimer(SerialQueue& queue, const TimerSchedule& schedule, Work handler);

// Runs the main thread's work until the process ends. Call once, on the main thread. Returns only
// if the platform ends its run loop.
void runMainLoop();

}  // namespace vorlatch::platform
