#include "sdk/agent_sdk.h"

namespace sdk {
namespace {

/// Entries of an instance's function table that the tool uses.
constexpr std::size_t kRunAsyncEntry = 3;
constexpr std::size_t kRegisterEntry = 4;
constexpr std::size_t kUnregisterEntry = 5;

using RunAsyncFunction = int (*)(void* instance, const char* requestJson, const char* batchContext);
using RegisterFunction = int (*)(void* instance, const AgentSDKCallbacks* callbacks, void* context);
using UnregisterFunction = int (*)(void* instance, const AgentSDKCallbacks* callbacks);

}  // namespace

int Instance::Get(GetInstanceFunction getInstance, ReleaseInstanceFunction releaseInstance) {
  Release();
  release_ = releaseInstance;
  const int status = getInstance(&table_, 0);
  if (status != 0) table_ = nullptr;
  return status;
}

void Instance::Release() {
  if (table_ == nullptr) return;
  release_(table_);
  table_ = nullptr;
}

template <typename Function>
Function Instance::Entry(std::size_t index) const {
  return reinterpret_cast<Function>(static_cast<void* const*>(table_)[index]);
}

int Instance::RunAsync(const char* requestJson, const char* batchContext) {
  return Entry<RunAsyncFunction>(kRunAsyncEntry)(table_, requestJson, batchContext);
}

int Instance::Register(const AgentSDKCallbacks& callbacks, void* context) {
  return Entry<RegisterFunction>(kRegisterEntry)(table_, &callbacks, context);
}

int Instance::Unregister(const AgentSDKCallbacks& callbacks) {
  return Entry<UnregisterFunction>(kUnregisterEntry)(table_, &callbacks);
}

Registration::~Registration() {
  if (active_) End();
}

int Registration::Begin(void* context) {
  const int status = instance_.Register(callbacks_, context);
  active_ = status == 0;
  return status;
}

int Registration::End() {
  active_ = false;
  return instance_.Unregister(callbacks_);
}

bool Library::Open(const std::string& path) {
  library_ = platform::DynamicLibrary::Open(path, platform::Binding::kNow);
  return library_.IsOpen();
}

bool Library::FindGetInstance() {
  getInstance_ = reinterpret_cast<GetInstanceFunction>(library_.FindSymbol("AgentSDK_GetInstance"));
  return getInstance_ != nullptr;
}

bool Library::FindReleaseInstance() {
  releaseInstance_ =
      reinterpret_cast<ReleaseInstanceFunction>(library_.FindSymbol("AgentSDK_ReleaseInstance"));
  return releaseInstance_ != nullptr;
}

}  // namespace sdk
