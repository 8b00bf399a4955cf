#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>

/// A service process of the product that does nothing but be there: its file is copied under the
/// name of each service. It ends when it is told to, or with the process that started it.
int main() {
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  for (;;) pause();
}
