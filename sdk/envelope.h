#ifndef SDK_ENVELOPE_H_
#define SDK_ENVELOPE_H_

#include <rapidjson/fwd.h>

#include <string>

class Logger;

namespace sdk {

/// Unpacks the SDK's answer to `method`.
///
/// @param answer JSON text, nested to any depth
/// @param output receives the method's "output" object, made with the document's own allocator, on
///     success; untouched when "output" is null or anything is wrong
/// @return the method's own error, 0 for success; 3 when the answer cannot be used
long long UnpackAnswer(const std::string& answer, const std::string& method,
                       rapidjson::Document& output, Logger* logger);

}  // namespace sdk

#endif  // SDK_ENVELOPE_H_
