#ifndef SDK_AGENT_SDK_H_
#define SDK_AGENT_SDK_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/dynamic_library.h"

/// Binary interface of the product's SDK library. It must match the product's byte for byte.
extern "C" {

using ProductEventCallback = void (*)(void* context, const char* eventName, const char* eventData);
using RanCallback = void (*)(void* context, const char* batchContext, int error,
                             const char* result);

/// What a client registers. The SDK calls the functions on its own threads.
struct AgentSDKCallbacks {
  std::uint32_t size;     ///< of this record
  std::uint32_t padding;  ///< 0, so that no stack contents reach the SDK
  ProductEventCallback onProductEvent;
  RanCallback onRan;
};

}  // extern "C"

static_assert(sizeof(AgentSDKCallbacks) == 24);
static_assert(offsetof(AgentSDKCallbacks, onProductEvent) == 8);
static_assert(offsetof(AgentSDKCallbacks, onRan) == 16);

namespace sdk {

using GetInstanceFunction = int (*)(void** instance, int reserved);
using ReleaseInstanceFunction = void (*)(void* instance);

/// One instance of the SDK. The destructor releases it. Every call returns the SDK's status.
class Instance {
 public:
  Instance() = default;
  ~Instance() { Release(); }
  Instance(const Instance&) = delete;
  Instance& operator=(const Instance&) = delete;

  /// Obtains an instance in place of the one held. @return the SDK's status.
  int Get(GetInstanceFunction getInstance, ReleaseInstanceFunction releaseInstance);
  void Release();
  bool IsHeld() const { return table_ != nullptr; }

  /// Starts a request. For this and the next two functions, an instance must be held.
  int RunAsync(const char* requestJson, const char* batchContext);
  int Register(const AgentSDKCallbacks& callbacks, void* context);
  int Unregister(const AgentSDKCallbacks& callbacks);

 private:
  template <typename Function>
  Function Entry(std::size_t index) const;

  void* table_ = nullptr;
  ReleaseInstanceFunction release_ = nullptr;
};

/// The callbacks' registration with one instance. The destructor ends it, and must run before that
/// of the instance.
class Registration {
 public:
  Registration(Instance& instance, const AgentSDKCallbacks& callbacks)
      : instance_(instance), callbacks_(callbacks) {}
  ~Registration();
  Registration(const Registration&) = delete;
  Registration& operator=(const Registration&) = delete;

  /// @return the SDK's status; the callbacks are registered when it is 0.
  int Begin(void* context);
  /// @return the SDK's status. The registration counts as ended regardless of the status.
  int End();

 private:
  Instance& instance_;
  const AgentSDKCallbacks& callbacks_;
  bool active_ = false;
};

/// The loaded SDK library and its two exports.
class Library {
 public:
  /// The next three functions return whether they succeeded. The exports can be looked up once the
  /// library is open.
  bool Open(const std::string& path);
  bool FindGetInstance();
  bool FindReleaseInstance();
  void Close() { library_.Close(); }

  GetInstanceFunction GetInstance() const { return getInstance_; }
  ReleaseInstanceFunction ReleaseInstance() const { return releaseInstance_; }

 private:
  platform::DynamicLibrary library_;
  GetInstanceFunction getInstance_ = nullptr;
  ReleaseInstanceFunction releaseInstance_ = nullptr;
};

}  // namespace sdk

#endif  // SDK_AGENT_SDK_H_
