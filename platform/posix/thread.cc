#include "platform/thread.h"

namespace platform {

int Thread::Start(Routine routine, void* argument) {
  const int error = pthread_create(&thread_, nullptr, routine, argument);
  joinable_ = error == 0;
  return error;
}

int Thread::Join() {
  const int error = pthread_join(thread_, nullptr);
  joinable_ = error != 0;
  return error;
}

}  // namespace platform
