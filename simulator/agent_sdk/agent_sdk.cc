#include <dlfcn.h>
#include <rapidjson/document.h>

#include <algorithm>
#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "simulator/agent_sdk/call_record.h"
#include "simulator/agent_sdk/deliveries.h"
#include "simulator/agent_sdk/interface.h"
#include "simulator/agent_sdk/scenario.h"
#include "simulator/stand_in.h"

/// A stand-in for the product's SDK library. It follows the scenario and records every call.
namespace simulator {
namespace {

/// An instance. Clients get a new one for every try of a run. They use the pointer to it as a
/// pointer to its function table, so the table must be the first member.
struct Instance {
  FunctionTable table;
  int number;                      ///< counted from 1
  const Callbacks* callbacks;      ///< null unless registered
  std::shared_ptr<Client> client;  ///< null until the first registration
  std::shared_ptr<Run> run;        ///< null before the run call
  std::string method;              ///< of the run
  bool isRunRefused = false;
};
static_assert(offsetof(Instance, table) == 0);

/// Keeps the library loaded when the client has closed it, since its threads can still be calling
/// back and must return to it.
bool StayLoaded() {
  Dl_info here;
  if (dladdr(reinterpret_cast<void*>(&StayLoaded), &here) == 0 ||
      dlopen(here.dli_fname, RTLD_LAZY) == nullptr) {
    Panic("cannot stay in memory");
  }
  return true;
}

/// The state of the library. It outlives every call.
struct Library {
  bool isResident = StayLoaded();
  std::mutex mutex;
  Scenario scenario = ReadScenario(kScenarioPath);
  std::map<void*, std::unique_ptr<Instance>> instances;
  int instancesAsked = 0;
  std::string latestBatch;
  Deliveries deliveries;
};

Library& TheLibrary() {
  static Library library;
  return library;
}

Instance& FindInstance(Library& library, void* pointer) {
  const auto found = library.instances.find(pointer);
  if (found == library.instances.end()) Panic("called with a pointer that is not an instance");
  return *found->second;
}

/// Starts the deliveries that the scenario has at `moment` for the registration and run of an
/// instance.
void StartDeliveries(Library& library, const Instance& instance, Moment moment) {
  for (const Delivery& delivery : library.scenario.deliveries) {
    const bool isForTry =
        delivery.tryNumber == 0 ? !instance.isRunRefused : delivery.tryNumber == instance.number;
    const bool isForMethod =
        delivery.isEvent || instance.run == nullptr || delivery.method == instance.method;
    if (delivery.when != moment || !isForTry || !isForMethod) continue;
    const auto run = instance.run == nullptr ? std::make_shared<Run>() : instance.run;
    if (moment == Moment::kInsideRun) {
      Deliver(delivery, *instance.client, *run);
    } else {
      library.deliveries.Start(delivery, instance.client, run);
    }
  }
}

/// The product operation that a request asks for, as in "Product.GetStatus"; empty if the text is
/// not a request for exactly one operation.
std::string MethodOf(const char* requestJson) {
  rapidjson::Document request;
  request.Parse(requestJson);
  if (request.HasParseError() || !request.IsObject()) return "";
  const auto data = request.FindMember("data");
  if (data == request.MemberEnd() || !data->value.IsObject()) return "";
  if (data->value.MemberCount() != 1) return "";
  const auto operations = data->value.MemberBegin();
  if (!operations->value.IsArray() || operations->value.Size() != 1) return "";
  const rapidjson::Value& operation = operations->value[0];
  if (!operation.IsObject()) return "";
  const auto name = operation.FindMember("@name");
  const auto input = operation.FindMember("input");
  if (name == operation.MemberEnd() || !name->value.IsString()) return "";
  if (input == operation.MemberEnd() || !input->value.IsObject()) return "";
  return std::string(operations->name.GetString()) + "." + name->value.GetString();
}

template <int Entry>
void RefuseUnusedEntry() {
  Panic("entry ", Entry, " of the function table was called");
}

int RunRequest(void* pointer, const char* requestJson, const char* batchContext) {
  Library& library = TheLibrary();
  const std::lock_guard<std::mutex> lock(library.mutex);
  Instance& instance = FindInstance(library, pointer);
  if (instance.client == nullptr) Panic("a run without registered notifications");
  if (requestJson == nullptr || batchContext == nullptr)
    Panic("a run without a request or a batch");
  const int status = library.scenario.run.Next();
  instance.isRunRefused = status != 0;
  instance.method = MethodOf(requestJson);
  instance.run = std::make_shared<Run>(Run{batchContext, library.latestBatch});
  library.latestBatch = batchContext;
  Record(
      {"run", instance.number, status, std::nullopt, instance.method, requestJson, batchContext});
  StartDeliveries(library, instance, Moment::kInsideRun);
  StartDeliveries(library, instance, Moment::kDuringRun);
  StartDeliveries(library, instance, Moment::kAfterRun);
  library.deliveries.FinishRun(*instance.run);
  return status;
}

int RegisterCallbacks(void* pointer, const Callbacks* callbacks, void* context) {
  Library& library = TheLibrary();
  const std::lock_guard<std::mutex> lock(library.mutex);
  Instance& instance = FindInstance(library, pointer);
  if (instance.client != nullptr) Panic("notifications were registered twice");
  if (callbacks == nullptr || callbacks->size != sizeof(Callbacks) ||
      callbacks->onProductEvent == nullptr || callbacks->onRan == nullptr) {
    Panic("the callback record is invalid");
  }
  const int status = library.scenario.registerCallbacks.Next();
  Record({"register", instance.number, status});
  if (status != 0) return status;
  instance.callbacks = callbacks;
  instance.client =
      std::make_shared<Client>(Client{callbacks->onProductEvent, callbacks->onRan, context});
  StartDeliveries(library, instance, Moment::kDuringRegister);
  return status;
}

int UnregisterCallbacks(void* pointer, const Callbacks* callbacks) {
  Library& library = TheLibrary();
  const std::lock_guard<std::mutex> lock(library.mutex);
  Instance& instance = FindInstance(library, pointer);
  if (instance.callbacks == nullptr || instance.callbacks != callbacks) {
    Panic("the client unregistered notifications that were not registered");
  }
  const int status = library.scenario.unregisterCallbacks.Next();
  Record({"unregister", instance.number, status});
  StartDeliveries(library, instance, Moment::kDuringUnregister);
  if (status != 0) return status;
  library.deliveries.FinishRegistration(*instance.client);
  instance.callbacks = nullptr;
  StartDeliveries(library, instance, Moment::kAfterUnregister);
  return status;
}

constexpr FunctionTable kFunctionTable = {
    {RefuseUnusedEntry<0>, RefuseUnusedEntry<1>, RefuseUnusedEntry<2>},
    RunRequest,
    RegisterCallbacks,
    UnregisterCallbacks};

}  // namespace
}  // namespace simulator

extern "C" [[gnu::visibility("default")]] int AgentSDK_GetInstance(void** pointer, int reserved) {
  using namespace simulator;
  Library& library = TheLibrary();
  const std::lock_guard<std::mutex> lock(library.mutex);
  if (pointer == nullptr) Panic("AgentSDK_GetInstance was called with a null pointer");
  const int status = library.scenario.getInstance.Next();
  const int number = ++library.instancesAsked;
  Record({"getInstance", number, status, reserved});
  if (status != 0) return status;
  auto instance = std::make_unique<Instance>(Instance{kFunctionTable, number, nullptr, {}, {}, {}});
  *pointer = instance.get();
  library.instances.emplace(*pointer, std::move(instance));
  return status;
}

extern "C" [[gnu::visibility("default")]] void AgentSDK_ReleaseInstance(void* pointer) {
  using namespace simulator;
  Library& library = TheLibrary();
  const std::lock_guard<std::mutex> lock(library.mutex);
  Record({"release", FindInstance(library, pointer).number});
  library.instances.erase(pointer);
}
