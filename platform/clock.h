#ifndef PLATFORM_CLOCK_H_
#define PLATFORM_CLOCK_H_

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace platform {

/// A point on the monotonic clock.
using MonotonicTime = std::chrono::steady_clock::time_point;

/// Blocks the calling thread for `seconds`. Calls the C library's `sleep`, dynamically linked, so
/// that a preloaded one takes effect.
void Sleep(unsigned seconds);

/// Calendar time in whole seconds since the Unix epoch.
std::int64_t WallClockSeconds();

/// Calendar time in microseconds since the Unix epoch.
std::int64_t WallClockMicroseconds();

MonotonicTime MonotonicNow();

/// Waits for a notification of `condition`; may also return without one.
/// @param lock is held on entry and on return, and released in between.
void Wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock);

/// Waits for a notification of `condition`, but not past `deadline` on the monotonic clock (a step
/// of the wall clock changes nothing); may also return early without a notification.
/// @return false when the deadline ended the wait.
bool WaitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
               MonotonicTime deadline);

}  // namespace platform

#endif  // PLATFORM_CLOCK_H_
