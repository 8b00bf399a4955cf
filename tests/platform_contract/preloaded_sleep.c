/* Replaces the C library's sleep() when it is preloaded. To show that it was called, it ends the
   process with the number of seconds as the exit status. */
#include <unistd.h>

__attribute__((visibility("default"))) unsigned int sleep(unsigned int seconds) { _exit((int)seconds); }
