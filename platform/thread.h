#ifndef PLATFORM_THREAD_H_
#define PLATFORM_THREAD_H_

#include <pthread.h>

namespace platform {

/// One thread with default attributes. A started thread must be joined before the object is
/// destroyed.
class Thread {
 public:
  using Routine = void* (*)(void*);

  Thread() = default;
  ~Thread() = default;
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

  /// Starts `routine(argument)`. @return 0, or the errno-style number of the failure (35 on macOS,
  /// 11 on Linux, when the system lacks resources).
  int Start(Routine routine, void* argument);

  /// Waits until the routine has ended. @return 0, or the errno-style number of the failure.
  int Join();

  /// Whether the thread was started and not yet joined.
  bool IsJoinable() const { return joinable_; }

 private:
  pthread_t thread_{};
  bool joinable_ = false;
};

}  // namespace platform

#endif  // PLATFORM_THREAD_H_
