#include "platform/clock.h"

namespace platform {

// libstdc++ waits on the monotonic clock here (pthread_cond_clockwait()).
bool WaitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
               MonotonicTime deadline) {
  return condition.wait_until(lock, deadline) == std::cv_status::no_timeout;
}

}  // namespace platform
