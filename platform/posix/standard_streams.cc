#include "platform/standard_streams.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace platform {
namespace {

/// Waits until a non-blocking standard output accepts more bytes, or until a signal arrives.
/// @return false when it never will.
bool AwaitStandardOutput() {
  pollfd output{STDOUT_FILENO, POLLOUT, 0};
  return poll(&output, 1, -1) > 0 || errno == EINTR;
}

}  // namespace

void EnsureStandardDescriptors() {
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
    // The lowest free descriptor is the one that is missing.
    if (fcntl(descriptor, F_GETFD) < 0 && errno == EBADF) open("/dev/null", O_RDWR);
  }
}

void WriteStandardOutput(std::string_view text) {
  // A reader that has gone away must not end the process before it returns its exit status. The
  // tool writes once and exits, so the disposition is not restored.
  std::signal(SIGPIPE, SIG_IGN);
  while (!text.empty()) {
    const ssize_t count = write(STDOUT_FILENO, text.data(), text.size());
    if (count > 0) {
      text.remove_prefix(static_cast<std::size_t>(count));
    } else if (count == 0 || (errno != EINTR && !(errno == EAGAIN && AwaitStandardOutput()))) {
      return;
    }
  }
}

}  // namespace platform
