#include "platform/macos/launch.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>

namespace platform {

int CheckLaunchPath(const std::string& path) {
  struct stat status;
  if (stat(path.c_str(), &status) != 0) return errno;
  if (!S_ISREG(status.st_mode)) return EACCES;
  return access(path.c_str(), X_OK) == 0 ? 0 : errno;
}

int OutputError(const std::string& path) {
  return access(path.c_str(), W_OK) == 0 ? EACCES : errno;
}

int LaunchError(const std::string& reason) {
  const std::size_t number = reason.find_last_not_of("0123456789") + 1;
  const long error = std::strtol(reason.c_str() + number, nullptr, 10);
  return error > 0 && error <= INT_MAX ? static_cast<int>(error) : ENOEXEC;
}

}  // namespace platform
