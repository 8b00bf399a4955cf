#ifndef PLATFORM_POSIX_PATHS_H_
#define PLATFORM_POSIX_PATHS_H_

#include <string>

namespace platform {

/// `path` without slashes at its end, which would make the system follow a symbolic link. A path of
/// slashes becomes "/".
std::string WithoutTrailingSlashes(const std::string& path);

/// `path` with exactly one slash at its end. It must not be empty.
std::string WithTrailingSlash(const std::string& path);

}  // namespace platform

#endif  // PLATFORM_POSIX_PATHS_H_
