#ifndef PLATFORM_UUID_H_
#define PLATFORM_UUID_H_

#include <cstddef>

namespace platform {

/// Characters of a UUID's text form, its terminator included.
inline constexpr std::size_t kUuidTextSize = 37;

/// Writes the text form (RFC 4122, 36 characters and a NUL) of a new random UUID. Letter case is
/// the host's: upper on macOS, lower on Linux.
void RandomUuidText(char (&text)[kUuidTextSize]);

}  // namespace platform

#endif  // PLATFORM_UUID_H_
