#ifndef PLATFORM_STANDARD_STREAMS_H_
#define PLATFORM_STANDARD_STREAMS_H_

#include <string_view>

namespace platform {

/// Opens the null device on each of the descriptors 0 to 2 that the caller left closed, so that no
/// file opened later becomes a standard stream. Call before anything opens a file.
void EnsureStandardDescriptors();

/// Writes `text` to standard output, all of it where that is possible. A closed, full or
/// disconnected standard output loses the rest without a signal or any other trace.
void WriteStandardOutput(std::string_view text);

}  // namespace platform

#endif  // PLATFORM_STANDARD_STREAMS_H_
