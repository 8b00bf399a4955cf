#include <fcntl.h>
#include <stdio.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace {

void Record(const char* path, unsigned seconds) {
  const int file = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (file < 0) return;
  dprintf(file, "%u\n", seconds);
  close(file);
}

}  // namespace

/// Preloaded into the tool, makes its sleeps shorter: by the number in the environment variable
/// KX_SLEEP_DIVISOR. Appends what was asked for to the file that KX_SLEEP_RECORD names, if it does.
/// Waits with a deadline stay as they are.
extern "C" unsigned sleep(unsigned seconds) {
  if (const char* const path = std::getenv("KX_SLEEP_RECORD")) Record(path, seconds);
  const char* const text = std::getenv("KX_SLEEP_DIVISOR");
  const long divisor = text == nullptr ? 1 : std::strtol(text, nullptr, 10);
  const long long nanoseconds = seconds * 1000000000LL / (divisor < 1 ? 1 : divisor);
  timespec left = {static_cast<time_t>(nanoseconds / 1000000000LL),
                   static_cast<long>(nanoseconds % 1000000000LL)};
  while (nanosleep(&left, &left) != 0 && errno == EINTR) continue;
  return 0;
}
