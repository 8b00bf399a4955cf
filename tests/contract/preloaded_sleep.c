/* Stands in for the C library's sleep() when it is preloaded, and shows that it was called by
   ending the process with the number of seconds as its status. */
#include <unistd.h>

__attribute__((visibility("default"))) unsigned int sleep(unsigned int seconds) { _exit((int)seconds); }
