#ifndef SIMULATOR_AGENT_SDK_CALL_RECORD_H_
#define SIMULATOR_AGENT_SDK_CALL_RECORD_H_

#include <optional>
#include <string>

namespace simulator {

/// One line of the call record: a JSON object that contains only the members that have a value.
struct CallLine {
  /// A call by the client: "getInstance", "register", "run", "unregister", "release"; or by the
  /// library, recorded before the call: "completion", "event".
  const char* what;
  std::optional<int> instance = std::nullopt;  ///< its number
  std::optional<int> status = std::nullopt;    ///< that the call returns, or the completion carries
  std::optional<int> number = std::nullopt;    ///< the reserved argument; the number of repetitions
  std::optional<std::string> method = std::nullopt;   ///< the product operation that is run
  std::optional<std::string> request = std::nullopt;  ///< unchanged
  std::optional<std::string> batch = std::nullopt;
  std::optional<std::string> text = std::nullopt;  ///< the answer, or the event's name
};

/// Appends a line to the call record. Can be called from any thread.
void Record(const CallLine& line);

}  // namespace simulator

#endif  // SIMULATOR_AGENT_SDK_CALL_RECORD_H_
