#include "platform/thread.h"

namespace platform {

int Thread::Start(Routine routine, void* argument) {
  const int error = pthread_create(&thread_, nullptr, routine, argument);
  joinable_ = error == 0;
  return error;
}

int Thread::Join() {
  joinable_ = false;
  return pthread_join(thread_, nullptr);
}

}  // namespace platform
