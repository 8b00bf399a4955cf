#ifndef SIMULATOR_AGENT_SDK_CALL_RECORD_H_
#define SIMULATOR_AGENT_SDK_CALL_RECORD_H_

#include <optional>
#include <string>

namespace simulator {

/// One line of the call record: a JSON object with these members. Those that are absent are left
/// out.
struct CallLine {
  /// A call of the client: "getInstance", "register", "run", "unregister", "release"; or one of the
  /// library, written before it is made: "completion", "event".
  const char* what;
  std::optional<int> instance = std::nullopt;  ///< its number
  std::optional<int> status = std::nullopt;    ///< that the call returns, or the completion carries
  std::optional<int> number = std::nullopt;    ///< the reserved argument; how often it is repeated
  std::optional<std::string> method = std::nullopt;   ///< the product operation that is run
  std::optional<std::string> request = std::nullopt;  ///< exactly as it came
  std::optional<std::string> batch = std::nullopt;
  std::optional<std::string> text = std::nullopt;  ///< the answer, or the event's name
};

/// Appends a line to the file that tests read to see what the client did and what it was told, in
/// order. May be called from any thread.
void Record(const CallLine& line);

}  // namespace simulator

#endif  // SIMULATOR_AGENT_SDK_CALL_RECORD_H_
