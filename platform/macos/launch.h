#ifndef PLATFORM_MACOS_LAUNCH_H_
#define PLATFORM_MACOS_LAUNCH_H_

#include <string>

namespace platform {

/// Checks whether the program at `path` can be started, because NSTask raises when it cannot.
/// @return 0, or the errno that starting it would give.
int CheckLaunchPath(const std::string& path);

/// @return the errno with which opening the file at `path` for writing fails; never 0.
int OutputError(const std::string& path);

/// @return the errno with which NSTask failed to start a program, taken from the reason of its
///     exception ("Couldn't posix_spawn: error 8"); ENOEXEC when the reason names none.
int LaunchError(const std::string& reason);

}  // namespace platform

#endif  // PLATFORM_MACOS_LAUNCH_H_
