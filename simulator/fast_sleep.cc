#include <time.h>

#include <cerrno>
#include <cstdlib>

/// Preloaded into the tool, divides its sleeps by the environment variable KX_SLEEP_DIVISOR. Waits
/// with a deadline are not changed.
extern "C" unsigned sleep(unsigned seconds) {
  const char* const text = std::getenv("KX_SLEEP_DIVISOR");
  const long divisor = text == nullptr ? 1 : std::strtol(text, nullptr, 10);
  const long long nanoseconds = seconds * 1000000000LL / (divisor < 1 ? 1 : divisor);
  timespec left = {static_cast<time_t>(nanoseconds / 1000000000LL),
                   static_cast<long>(nanoseconds % 1000000000LL)};
  while (nanosleep(&left, &left) != 0 && errno == EINTR) continue;
  return 0;
}
