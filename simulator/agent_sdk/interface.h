#ifndef SIMULATOR_AGENT_SDK_INTERFACE_H_
#define SIMULATOR_AGENT_SDK_INTERFACE_H_

#include <cstdint>

/// The binary interface of the SDK library, declared independently of the tool.
namespace simulator {

extern "C" {

using ProductEventFunction = void (*)(void* context, const char* eventName, const char* eventData);
using RanFunction = void (*)(void* context, const char* batchContext, int error,
                             const char* result);

struct Callbacks {
  std::uint32_t size;  ///< of this record
  ProductEventFunction onProductEvent;
  RanFunction onRan;
};

/// An instance begins with this table. Clients must not call its first three entries.
struct FunctionTable {
  void (*unused[3])();
  int (*run)(void* instance, const char* requestJson, const char* batchContext);
  int (*registerCallbacks)(void* instance, const Callbacks* callbacks, void* context);
  int (*unregisterCallbacks)(void* instance, const Callbacks* callbacks);
};

}  // extern "C"

static_assert(sizeof(Callbacks) == 24);

}  // namespace simulator

#endif  // SIMULATOR_AGENT_SDK_INTERFACE_H_
