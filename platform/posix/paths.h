#ifndef PLATFORM_POSIX_PATHS_H_
#define PLATFORM_POSIX_PATHS_H_

#include <string>

namespace platform {

/// `path` as the name of a thing itself: a slash at the end would lead through a symbolic link.
/// What is all slashes becomes "/".
std::string WithoutTrailingSlashes(const std::string& path);

/// `path` with exactly one slash at its end. It must not be empty.
std::string WithTrailingSlash(const std::string& path);

}  // namespace platform

#endif  // PLATFORM_POSIX_PATHS_H_
