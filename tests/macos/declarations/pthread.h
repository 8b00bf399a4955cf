#ifndef TESTS_MACOS_DECLARATIONS_PTHREAD_H_
#define TESTS_MACOS_DECLARATIONS_PTHREAD_H_

// Adds to the system's own header.
#pragma GCC system_header

#ifndef KX_DECLARATIONS_MATCH
#include_next <pthread.h>
#endif

extern "C" int pthread_cond_timedwait_relative_np(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                                  const timespec* limit);

#endif  // TESTS_MACOS_DECLARATIONS_PTHREAD_H_
