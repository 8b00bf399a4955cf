#ifndef TESTS_SUPPORT_FAKE_SDK_H_
#define TESTS_SUPPORT_FAKE_SDK_H_

#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "sdk/agent_sdk.h"

namespace fake {

/// The product's SDK library within the fake World. Calls are recorded there. It checks its own
/// use: calls on an instance that is not live, or unregistering what is not registered, fail the
/// test.
class Sdk {
 public:
  /// The SDK of the running test.
  static Sdk& Current();

  /// Makes a fresh SDK that is not installed.
  static Sdk& Reset();

  /// Puts the product into the World: directory of layout `number` (1 to 3), signed SDK library
  /// with both exports.
  void Install(int number = 1);

  /// Path of the SDK library of layout `number`.
  static std::string LibraryPath(int number = 1);

  // Statuses of the next calls; 0 once they are used up.
  std::deque<int> getInstanceStatuses;
  std::deque<int> registerStatuses;
  std::deque<int> runStatuses;
  std::deque<int> unregisterStatuses;

  /// The strings with which the next runs complete, as soon as the tool waits; the last one
  /// repeats. A run whose answer is absent does not complete by itself. No run does while this is
  /// empty.
  std::deque<std::optional<std::string>> answers;

  /// Called inside each run call, before it returns; may be empty.
  std::function<void(const std::string& batchContext)> onRun;

  /// Completes the run of `batchContext` (may be null) on the calling thread.
  void Complete(const char* batchContext, int error, const char* result) const;
  /// Raises a product event on the calling thread.
  void Raise(const char* eventName, const char* eventData = "") const;
  /// Raises an event and waits until the event thread has taken it.
  void RaiseAndSettle(const char* eventName) const;

  const std::deque<std::string>& Requests() const { return requests_; }
  /// Batch identifier of the last run.
  const std::string& Batch() const { return batch_; }
  /// Wall clock, in seconds, when the last instance was obtained.
  std::int64_t InstanceTime() const { return instanceTime_; }
  std::size_t LiveInstances() const { return instances_.size(); }
  std::size_t LiveRegistrations() const { return registered_.size(); }

  /// What was registered last. Any thread may ask.
  struct Registered {
    AgentSDKCallbacks callbacks{};
    void* context = nullptr;
  };
  Registered LastRegistered() const;

  // The library's functions.
  int GetInstance(void** instance, int reserved);
  void ReleaseInstance(void* instance);
  int RunAsync(void* instance, const char* request, const char* batchContext);
  int Register(void* instance, const AgentSDKCallbacks* newCallbacks, void* newContext);
  int Unregister(void* instance, const AgentSDKCallbacks* oldCallbacks);

 private:
  std::deque<std::string> requests_;
  std::string batch_;
  std::int64_t instanceTime_ = 0;
  mutable std::mutex lastLock_;
  Registered last_;
  std::set<void*> instances_;
  std::set<void*> registered_;
};

/// An answer of the SDK: `output` (JSON text) as the output of a method of namespace `member`.
std::string Answer(const std::string& output, const std::string& member = "Product",
                   long long error = 0);

}  // namespace fake

#endif  // TESTS_SUPPORT_FAKE_SDK_H_
