#ifndef SDK_RUN_STATE_H_
#define SDK_RUN_STATE_H_

#include <atomic>
#include <condition_variable>
#include <mutex>

class KXTool;

/// State that the main thread, the SDK's callback threads and the scan-event thread share. Every
/// change that a waiter depends on is followed by a notification of all waiters on `cv`; whoever
/// makes the change without holding `locker` passes through the lock before notifying, so that no
/// waiter misses it between its test and its sleep.

/// Guards the tool's `sdkResponse` and `productEvents`.
extern std::mutex locker;
extern std::condition_variable cv;

/// Scan events are not followed: product events are dropped while it is set.
extern std::atomic<bool> stopThread;
/// A scan event has decided the outcome.
extern std::atomic<bool> hasProductEvent;
/// The completion of the current batch has arrived.
extern std::atomic<bool> isReady;

namespace sdk {

/// Admits SDK callbacks to the tool while it lives. The SDK's threads are the SDK's: a callback may
/// come late, twice, or after the tool has gone, and must then find nothing.
class CallbackGate {
 public:
  /// Lets callbacks through to `tool`, in place of any other.
  static void Open(KXTool& tool);

  /// Waits for the callbacks that are with `tool` to end; none gets through afterwards.
  static void Close(KXTool& tool);

  /// Waits until the callbacks that have delivered are gone, so that the library they return to can
  /// be given back. Does not wait for those that still want `locker`, which may be held.
  static void AwaitDelivered();

  /// Replaces the tool's batch identifier.
  static void SetBatchContext(KXTool& tool, const char* text);

  /// A callback's stay with the tool.
  class Pass {
   public:
    /// @param context what the SDK handed back as the callback's context; may be anything.
    explicit Pass(void* context);
    ~Pass();
    Pass(const Pass&) = delete;
    Pass& operator=(const Pass&) = delete;

    /// @return the tool, alive until this goes; null when the context is not the living tool.
    KXTool* Tool() const { return tool_; }

    /// Whether `batchContext` is the tool's current batch identifier. There must be a tool.
    bool IsCurrentBatch(const char* batchContext) const;

    /// Tells, while `locker` is held, that the callback has delivered and takes no lock of the tool
    /// any more. There must be a tool.
    void SetDelivered();

   private:
    KXTool* tool_;
    bool hasDelivered_ = false;
  };
};

}  // namespace sdk

#endif  // SDK_RUN_STATE_H_
