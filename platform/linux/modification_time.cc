#include <sys/stat.h>

#include <cerrno>

#include "platform/files.h"

namespace platform {

int ModificationTime(const std::string& path, FileTime& time) {
  struct stat status;
  if (stat(path.c_str(), &status) != 0) return errno;
  time = {status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
  return 0;
}

}  // namespace platform
