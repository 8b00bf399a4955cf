#ifndef SDK_METHOD_CATALOGUE_H_
#define SDK_METHOD_CATALOGUE_H_

#include <string>
#include <unordered_map>

/// The SDK methods that the tool can run. Maps each key to its request text, which is sent byte for
/// byte as written here. Built before main(), constant from then on.
extern std::unordered_map<std::string, const char*> agentsdkMethods;

#endif  // SDK_METHOD_CATALOGUE_H_
