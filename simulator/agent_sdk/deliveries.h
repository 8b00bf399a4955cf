#ifndef SIMULATOR_AGENT_SDK_DELIVERIES_H_
#define SIMULATOR_AGENT_SDK_DELIVERIES_H_

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "simulator/agent_sdk/interface.h"
#include "simulator/agent_sdk/scenario.h"

namespace simulator {

/// The receiver of callbacks: one registration with one instance.
struct Client {
  ProductEventFunction onProductEvent;
  RanFunction onRan;
  void* context;
  bool isRegistered = true;  ///< guarded by Deliveries
};

/// The run that a delivery belongs to.
struct Run {
  std::string batch;
  std::string previousBatch;
  bool hasReturned = false;  ///< guarded by Deliveries
};

/// Calls the client back, each delivery on its own thread: during its calls, a client can hold a
/// lock that its callbacks take.
///
/// A delivery that has not begun when the registration ends is dropped, unless it is due
/// afterwards. At process exit, those that still wait are delivered at once; then every thread is
/// joined.
class Deliveries {
 public:
  Deliveries() = default;
  ~Deliveries();
  Deliveries(const Deliveries&) = delete;
  Deliveries& operator=(const Deliveries&) = delete;

  /// Starts the delivery. If it belongs inside a call, returns when it has begun. The delay for
  /// kAfterRun counts from FinishRun().
  void Start(const Delivery& delivery, std::shared_ptr<Client> client, std::shared_ptr<Run> run);
  void FinishRun(Run& run);
  void FinishRegistration(Client& client);

 private:
  /// Waits for the moment of the delivery. @return false if it is dropped.
  bool AwaitMoment(const Delivery& delivery, const Client& client, const Run& run);

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::thread> threads_;
  bool isExiting_ = false;
};

/// Calls the client back on this thread.
void Deliver(const Delivery& delivery, const Client& client, const Run& run);

}  // namespace simulator

#endif  // SIMULATOR_AGENT_SDK_DELIVERIES_H_
