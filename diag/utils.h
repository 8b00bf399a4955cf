#ifndef DIAG_UTILS_H_
#define DIAG_UTILS_H_

#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "diag/logger.h"

namespace Utils {

/// Reads the configuration file at `path` and switches logging on when a line of it is exactly
/// "Logging=true". A file that cannot be read changes nothing.
/// @param logger is set by the switch, to a logger that writes into `logDirectory` (which ends in
///     "/" or is empty).
/// @return 0
int ParseConfigFile(const std::string& path, Logger*& logger, std::string logDirectory);

/// Sets `logger` to the one logger.
void ActivateLogger(Logger*& logger, std::string logDirectory);

/// The current time as "year-month-day hours:minutes:seconds" in UTC, or "Cannot retrieve time!".
std::string GetUtcTime();

/// Whether the texts are equal when ASCII letters count the same in either case. Independent of the
/// locale.
bool EqualsIgnoringCase(std::string_view left, std::string_view right);

inline void AppendPart(std::string& message, std::string_view text) { message.append(text); }

template <typename Integer, typename = std::enable_if_t<std::is_integral_v<Integer> &&
                                                        !std::is_same_v<Integer, char>>>
void AppendPart(std::string& message, Integer number) {
  if constexpr (std::is_same_v<Integer, bool>) {
    message += number ? '1' : '0';
  } else {
    message += std::to_string(number);
  }
}

/// A part that is made only for a line that is written.
template <typename MakeText, typename = std::enable_if_t<std::is_invocable_v<const MakeText&>>,
          typename = void>
void AppendPart(std::string& message, const MakeText& makeText) {
  message += makeText();
}

/// Writes a line made of `parts`, one directly after the other. `logger` is not null.
template <typename... Parts>
void WriteMessage(Logger* logger, const Parts&... parts) {
  std::string message;
  (AppendPart(message, parts), ...);
  logger->Log(std::move(message));
}

/// Writes a line made of `parts`, one directly after the other: texts, whole numbers (in decimal; a
/// bool as 1 or 0), and functions that return a text. Does nothing, and builds no text, when
/// `logger` is null: the caller then pays for the test alone.
template <typename... Parts>
void LogMessage(Logger* logger, const Parts&... parts) {
  if (logger != nullptr) WriteMessage(logger, parts...);
}

}  // namespace Utils

#endif  // DIAG_UTILS_H_
