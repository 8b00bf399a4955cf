#include "platform/clock.h"

#include <pthread.h>

#include <algorithm>
#include <cerrno>

namespace platform {
namespace {

using std::chrono::nanoseconds;
using std::chrono::seconds;

/// Longest single wait. A relative wait pauses while the machine sleeps, but the steady clock does
/// not, so the deadline must be tested again soon after the machine has woken up.
constexpr seconds kMaxWait(30);

}  // namespace

// libc++ would wait on the wall clock, which can be set.
bool WaitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
               MonotonicTime deadline) {
  const MonotonicTime now = MonotonicNow();
  if (deadline <= now) return false;
  const nanoseconds left = std::min<nanoseconds>(deadline - now, kMaxWait);
  const seconds wholeSeconds = std::chrono::duration_cast<seconds>(left);
  const timespec limit{static_cast<time_t>(wholeSeconds.count()),
                       static_cast<long>((left - wholeSeconds).count())};
  const int error = pthread_cond_timedwait_relative_np(condition.native_handle(),
                                                       lock.mutex()->native_handle(), &limit);
  return error != ETIMEDOUT || MonotonicNow() < deadline;
}

}  // namespace platform
