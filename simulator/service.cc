#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>

/// A service process that does nothing. The launcher copies its file under the name of each
/// service. It ends with the process that started it.
int main() {
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  for (;;) pause();
}
