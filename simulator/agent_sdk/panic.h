#ifndef SIMULATOR_AGENT_SDK_PANIC_H_
#define SIMULATOR_AGENT_SDK_PANIC_H_

#include <cstdlib>
#include <iostream>

namespace simulator {

/// Ends the process abnormally after saying why: the client broke the interface, or the simulated
/// endpoint is broken. Either must not look like an answer.
template <typename... Parts>
[[noreturn]] void Panic(const Parts&... parts) {
  std::cerr << "stand-in library: ";
  (std::cerr << ... << parts) << std::endl;
  std::abort();
}

}  // namespace simulator

#endif  // SIMULATOR_AGENT_SDK_PANIC_H_
