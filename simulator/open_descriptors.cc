#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

constexpr int kMaxDescriptors = 1024;

/// Preloaded into the tool, reports on standard error which descriptors besides the standard ones
/// are open when it exits. Programs that the tool starts report nothing.
[[gnu::destructor]] void ReportOpenDescriptors() {
  if (std::strcmp(program_invocation_short_name, "KXTool") != 0) return;
  for (int number = STDERR_FILENO + 1; number < kMaxDescriptors; ++number) {
    if (fcntl(number, F_GETFD) < 0) continue;
    char target[4096] = {};
    const std::string link = "/proc/self/fd/" + std::to_string(number);
    if (readlink(link.c_str(), target, sizeof(target) - 1) < 0) std::perror(link.c_str());
    std::fprintf(stderr, "open at exit: descriptor %d, %s\n", number, target);
  }
}

}  // namespace
