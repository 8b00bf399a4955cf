#ifndef PLATFORM_STANDARD_STREAMS_H_
#define PLATFORM_STANDARD_STREAMS_H_

#include <string_view>

namespace platform {

/// Opens the null device on each of the descriptors 0 to 2 that the caller left closed, so that no
/// file opened later becomes a standard stream. Call before anything opens a file.
void EnsureStandardDescriptors();

/// Writes all of `text` to standard output if possible. If standard output is closed, full or
/// disconnected, the rest is silently lost, without a signal.
void WriteStandardOutput(std::string_view text);

}  // namespace platform

#endif  // PLATFORM_STANDARD_STREAMS_H_
