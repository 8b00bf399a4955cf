#include <pthread.h>

#include <algorithm>
#include <cerrno>

#include "platform/clock.h"

namespace platform {
namespace {

using std::chrono::nanoseconds;
using std::chrono::seconds;

/// Longest single wait. The relative wait stands still while the machine sleeps; the steady clock
/// does not, so the deadline has to be tested again soon after the machine wakes up.
constexpr seconds kLongestWait(30);

}  // namespace

// libc++ would wait on the wall clock here, which can be set.
bool WaitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
               MonotonicTime deadline) {
  const MonotonicTime now = MonotonicNow();
  if (deadline <= now) return false;
  const nanoseconds left = std::min<nanoseconds>(deadline - now, kLongestWait);
  const seconds wholeSeconds = std::chrono::duration_cast<seconds>(left);
  const timespec limit{static_cast<time_t>(wholeSeconds.count()),
                       static_cast<long>((left - wholeSeconds).count())};
  const int error = pthread_cond_timedwait_relative_np(condition.native_handle(),
                                                       lock.mutex()->native_handle(), &limit);
  return error != ETIMEDOUT || MonotonicNow() < deadline;
}

}  // namespace platform
