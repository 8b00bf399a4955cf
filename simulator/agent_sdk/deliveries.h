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

/// Whom callbacks go to: one registration with one instance.
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

/// Calls the client back, each delivery on a thread of its own: a client may hold a lock during its
/// calls that its callbacks take.
///
/// A delivery that has not begun when the registration ends is dropped, except those that are meant
/// for afterwards. When the process exits those that still wait are delivered at once; then every
/// thread is joined.
class Deliveries {
 public:
  Deliveries() = default;
  ~Deliveries();
  Deliveries(const Deliveries&) = delete;
  Deliveries& operator=(const Deliveries&) = delete;

  /// Starts the delivery. For the moments inside a call it returns when the delivery has begun; for
  /// kAfterRun the delay counts from FinishRun().
  void Start(const Delivery& delivery, std::shared_ptr<Client> client, std::shared_ptr<Run> run);
  void FinishRun(Run& run);
  void FinishRegistration(Client& client);

 private:
  /// Waits for the delivery's moment. @return false when it is dropped.
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
