#ifndef SIMULATOR_AGENT_SDK_REQUEST_H_
#define SIMULATOR_AGENT_SDK_REQUEST_H_

#include <string>

namespace simulator {

/// The product operation that a request asks for: its namespace, a dot and its name, as in
/// "Product.GetStatus". Empty when the text is no request for exactly one operation.
std::string MethodOf(const char* requestJson);

}  // namespace simulator

#endif  // SIMULATOR_AGENT_SDK_REQUEST_H_
