#ifndef SIMULATOR_AGENT_SDK_CALL_RECORD_H_
#define SIMULATOR_AGENT_SDK_CALL_RECORD_H_

#include <optional>
#include <string>

namespace simulator {

/// One line of the call record: a JSON object whose first member names what happened. Members that
/// are absent are left out.
struct CallLine {
  const char* what;
  std::optional<int> instance = std::nullopt;
  std::optional<int> status = std::nullopt;
  std::optional<int> number = std::nullopt;
  std::optional<std::string> method = std::nullopt;
  std::optional<std::string> request = std::nullopt;
  std::optional<std::string> batch = std::nullopt;
  std::optional<std::string> text = std::nullopt;
};

/// Appends a line to the file that tests read to see what the client did and what it was told, in
/// order. May be called from any thread.
void Record(const CallLine& line);

}  // namespace simulator

#endif  // SIMULATOR_AGENT_SDK_CALL_RECORD_H_
