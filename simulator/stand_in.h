#ifndef SIMULATOR_STAND_IN_H_
#define SIMULATOR_STAND_IN_H_

#include <cstdlib>
#include <iostream>

/// Shared by the stand-ins for libraries.
namespace simulator {

/// Where the launcher writes how the stand-ins behave, and where they record what happened.
constexpr char kScenarioPath[] = "/Library/Corvane/XQP/simulator/scenario.json";
constexpr char kCallRecordPath[] = "/Library/Corvane/XQP/simulator/calls.jsonl";

/// Prints a message and aborts: the client violated the interface, or the simulated endpoint is
/// broken. Neither may look like an answer.
template <typename... Parts>
[[noreturn]] void Panic(const Parts&... parts) {
  std::cerr << "stand-in library: ";
  (std::cerr << ... << parts) << std::endl;
  std::abort();
}

}  // namespace simulator

#endif  // SIMULATOR_STAND_IN_H_
