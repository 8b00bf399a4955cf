#include "tests/support/fake_sdk.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>

#include "app/kx_tool.h"
#include "product/install_locations.h"
#include "sdk/run_state.h"
#include "tests/support/allocation_failure.h"
#include "tests/support/fake_platform.h"

namespace fake {
namespace {

std::unique_ptr<Sdk>& Holder() {
  static auto& sdk = *new std::unique_ptr<Sdk>(std::make_unique<Sdk>());
  return sdk;
}

int NextStatus(std::deque<int>& statuses) {
  if (statuses.empty()) return 0;
  const int status = statuses.front();
  statuses.pop_front();
  return status;
}

void UnusedEntry() { ADD_FAILURE() << "an entry of the instance table that nobody may call"; }

int RunAsyncEntry(void* instance, const char* request, const char* batchContext) {
  return Sdk::Current().RunAsync(instance, request, batchContext);
}

int RegisterEntry(void* instance, const AgentSDKCallbacks* callbacks, void* context) {
  return Sdk::Current().Register(instance, callbacks, context);
}

int UnregisterEntry(void* instance, const AgentSDKCallbacks* callbacks) {
  return Sdk::Current().Unregister(instance, callbacks);
}

int GetInstanceExport(void** instance, int reserved) {
  return Sdk::Current().GetInstance(instance, reserved);
}

void ReleaseInstanceExport(void* instance) { Sdk::Current().ReleaseInstance(instance); }

using InstanceTable = std::array<void*, 6>;

}  // namespace

Sdk& Sdk::Current() { return *Holder(); }

Sdk& Sdk::Reset() {
  Holder() = std::make_unique<Sdk>();
  return Current();
}

std::string Sdk::LibraryPath(int number) {
  return productInfoStructure.at(static_cast<std::size_t>(number - 1)).sdkLibraryPath;
}

void Sdk::Install(int number) {
  World& world = World::Current();
  const std::string path = LibraryPath(number);
  world.AddDirectory(productInfoStructure.at(static_cast<std::size_t>(number - 1)).directory);
  world.AddFile(path);
  world.signatures[path] = Signature::Vendors();
  world.libraries[path] = {
      {"AgentSDK_GetInstance", reinterpret_cast<void*>(GetInstanceExport)},
      {"AgentSDK_ReleaseInstance", reinterpret_cast<void*>(ReleaseInstanceExport)}};
}

Sdk::Registered Sdk::LastRegistered() const {
  const std::lock_guard<std::mutex> lock(lastLock_);
  return last_;
}

void Sdk::Complete(const char* batchContext, int error, const char* result) const {
  const AllocationFailure::Pause pause;
  const Registered target = LastRegistered();
  target.callbacks.onRan(target.context, batchContext, error, result);
}

void Sdk::Raise(const char* eventName, const char* eventData) const {
  const AllocationFailure::Pause pause;
  const Registered target = LastRegistered();
  target.callbacks.onProductEvent(target.context, eventName, eventData);
}

void Sdk::RaiseAndSettle(const char* eventName) const {
  Raise(eventName);
  const auto isPending = [this] {
    const std::lock_guard<std::mutex> lock(locker);
    return !static_cast<KXTool*>(LastRegistered().context)->productEvents.empty();
  };
  const bool isDecisive = std::strcmp(eventName, "FileScan.OnDemand.ScanStarted") == 0 ||
                          std::strcmp(eventName, "FileScan.OnDemand.ScanFailed") == 0;
  while (isPending() || (isDecisive && !stopThread)) std::this_thread::yield();
}

int Sdk::GetInstance(void** instance, int reserved) {
  const AllocationFailure::Pause pause;
  World::Current().Record("get instance");
  EXPECT_EQ(reserved, 0);
  instanceTime_ = World::Current().wallMicroseconds / 1000000;
  auto* const unused = reinterpret_cast<void*>(UnusedEntry);
  if (const int status = NextStatus(getInstanceStatuses); status != 0) {
    *instance = unused;  // not an instance; the tool must not use it
    return status;
  }
  auto* const table = new InstanceTable{unused,
                                        unused,
                                        unused,
                                        reinterpret_cast<void*>(RunAsyncEntry),
                                        reinterpret_cast<void*>(RegisterEntry),
                                        reinterpret_cast<void*>(UnregisterEntry)};
  *instance = table;
  instances_.insert(table);
  return 0;
}

void Sdk::ReleaseInstance(void* instance) {
  const AllocationFailure::Pause pause;
  World::Current().Record("release instance");
  EXPECT_EQ(instances_.erase(instance), 1U) << "released twice, or never obtained";
  registered_.erase(instance);
  delete static_cast<InstanceTable*>(instance);
}

int Sdk::RunAsync(void* instance, const char* request, const char* batchContext) {
  const AllocationFailure::Pause pause;
  World& world = World::Current();
  world.Record("run");
  EXPECT_EQ(instances_.count(instance), 1U);
  EXPECT_EQ(registered_.count(instance), 1U) << "run without a registration";
  requests_.emplace_back(request);
  batch_ = batchContext;
  if (onRun) onRun(batch_);
  const int status = NextStatus(runStatuses);
  if (status != 0 || answers.empty()) return status;
  const std::optional<std::string> answer = answers.front();
  if (answers.size() > 1) answers.pop_front();
  if (answer) {
    world.whenWaiting.push_back(
        [this, answer, batch = batch_] { Complete(batch.c_str(), 0, answer->c_str()); });
  }
  return 0;
}

int Sdk::Register(void* instance, const AgentSDKCallbacks* newCallbacks, void* newContext) {
  const AllocationFailure::Pause pause;
  World::Current().Record("register");
  EXPECT_EQ(instances_.count(instance), 1U);
  EXPECT_EQ(newCallbacks->size, 24U);
  EXPECT_EQ(newCallbacks->padding, 0U);
  if (const int status = NextStatus(registerStatuses); status != 0) return status;
  {
    const std::lock_guard<std::mutex> lock(lastLock_);
    last_ = {*newCallbacks, newContext};
  }
  registered_.insert(instance);
  return 0;
}

int Sdk::Unregister(void* instance, const AgentSDKCallbacks* oldCallbacks) {
  const AllocationFailure::Pause pause;
  World::Current().Record("unregister");
  EXPECT_EQ(registered_.count(instance), 1U) << "unregistered twice, or never registered";
  EXPECT_EQ(oldCallbacks->size, 24U);
  const int status = NextStatus(unregisterStatuses);
  if (status == 0) registered_.erase(instance);
  return status;
}

std::string Answer(const std::string& output, const std::string& member, long long error) {
  return R"({"response":{"data":{")" + member + R"(":[{"error":)" + std::to_string(error) +
         R"(,"output":)" + output + "}]}}}";
}

}  // namespace fake
