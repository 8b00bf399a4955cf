#ifndef SDK_TIME_LIMITS_H_
#define SDK_TIME_LIMITS_H_

#include <string>

#include "platform/clock.h"

namespace sdk {

/// How many times a call is tried, and the pause after a try that ended with the SDK's internal
/// error.
constexpr int kMaxTries = 5;
constexpr unsigned kInternalErrorPause = 30;  // seconds

/// Returns how many seconds the tool waits for the answer to an SDK call.
/// @param option the command option being run, in any letter case
/// @param scanTimeout the limit of a watched scan; negative without one
long long TimeLimit(const std::string& option, long long scanTimeout);

/// @return the time `seconds` (not negative) after `now`, or the latest time that the clock can
///     represent, if that is earlier.
platform::MonotonicTime DeadlineAfter(platform::MonotonicTime now, long long seconds);

}  // namespace sdk

#endif  // SDK_TIME_LIMITS_H_
