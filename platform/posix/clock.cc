#include "platform/clock.h"

#include <unistd.h>

#include <ctime>

namespace platform {

void Sleep(unsigned seconds) { sleep(seconds); }

std::int64_t WallClockSeconds() { return std::time(nullptr); }

std::int64_t WallClockMicroseconds() {
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::microseconds>(sinceEpoch).count();
}

MonotonicTime MonotonicNow() { return std::chrono::steady_clock::now(); }

void Wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock) {
  condition.wait(lock);
}

}  // namespace platform
