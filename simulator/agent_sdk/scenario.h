#ifndef SIMULATOR_AGENT_SDK_SCENARIO_H_
#define SIMULATOR_AGENT_SDK_SCENARIO_H_

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace simulator {

/// The statuses of one SDK call, in order; the last one repeats.
class Statuses {
 public:
  explicit Statuses(std::vector<int> values) : values_(std::move(values)) {}
  int Next();

 private:
  std::vector<int> values_;
  std::size_t next_ = 0;
};

/// When a callback is called. Only kInsideRun is on a thread of the client.
enum class Moment {
  kDuringRegister,    ///< begins before the register call returns
  kInsideRun,         ///< inside the run call, during which the client can hold locks
  kDuringRun,         ///< begins before the run call returns
  kAfterRun,          ///< once the run call has returned
  kDuringUnregister,  ///< begins before the unregister call returns
  kAfterUnregister,   ///< once the unregister call has returned, at the latest at process exit
};

enum class Batch { kOwn, kPrevious, kForeign, kNone };
enum class Context { kOwn, kForeign, kNone };

/// One callback, or several equal ones in a row on one thread.
struct Delivery {
  bool isEvent = false;
  Moment when = Moment::kAfterRun;
  std::chrono::milliseconds delay{0};
  unsigned repeat = 1;
  int tryNumber = 0;  ///< belongs to this instance, counted from 1; 0: to all whose run is accepted
  std::size_t padding = 0;  ///< blanks that follow the result or the data
  Context context = Context::kOwn;

  // Completions.
  std::string method;  ///< that was run
  Batch batch = Batch::kOwn;
  int error = 0;
  std::optional<std::string> result;

  // Events.
  std::optional<std::string> name;
  std::optional<std::string> data;
};

/// How the library behaves.
struct Scenario {
  Statuses getInstance{{0}};
  Statuses registerCallbacks{{0}};
  Statuses run{{0}};
  Statuses unregisterCallbacks{{0}};
  std::vector<Delivery> deliveries;
};

/// Reads the scenario that the launcher has validated. Panics if it is invalid.
Scenario ReadScenario(const char* path);

}  // namespace simulator

#endif  // SIMULATOR_AGENT_SDK_SCENARIO_H_
