#ifndef DIAG_LOG_MESSAGE_H_
#define DIAG_LOG_MESSAGE_H_

#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "diag/logger.h"

namespace Utils {

/// Appends one part of a message: a text, a whole number (in decimal; a bool as 1 or 0), or the
/// text returned by a function. The function is called only if the line is written.
template <typename Part>
void AppendPart(std::string& message, const Part& part) {
  if constexpr (std::is_invocable_v<const Part&>) {
    message += part();
  } else if constexpr (std::is_same_v<Part, bool>) {
    message += part ? '1' : '0';
  } else if constexpr (std::is_integral_v<Part> && !std::is_same_v<Part, char>) {
    message += std::to_string(part);
  } else {
    const std::string_view text = part;
    message += text;
  }
}

/// Writes a line made of `parts`, one directly after the other. Does nothing, and builds no text,
/// when `logger` is null.
template <typename... Parts>
void LogMessage(Logger* logger, const Parts&... parts) {
  if (logger == nullptr) return;
  std::string message;
  (AppendPart(message, parts), ...);
  logger->Log(std::move(message));
}

}  // namespace Utils

#endif  // DIAG_LOG_MESSAGE_H_
