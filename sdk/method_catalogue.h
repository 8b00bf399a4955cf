#ifndef SDK_METHOD_CATALOGUE_H_
#define SDK_METHOD_CATALOGUE_H_

#include <string>
#include <unordered_map>

/// The SDK methods that the tool may run: key to request text, sent byte for byte as it stands
/// here. Built before main(), constant from then on.
extern std::unordered_map<std::string, const char*> agentsdkMethods;

#endif  // SDK_METHOD_CATALOGUE_H_
