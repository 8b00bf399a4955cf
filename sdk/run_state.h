#ifndef SDK_RUN_STATE_H_
#define SDK_RUN_STATE_H_

#include <atomic>
#include <condition_variable>
#include <mutex>

class KXTool;

/// State that the main thread, the SDK's callback threads and the scan-event thread share. Every
/// change that a waiter depends on is followed by a notification of all waiters on `cv`. A thread
/// that makes the change without holding `locker` acquires and releases the lock before it
/// notifies, so that no waiter misses the change between its test and its sleep.

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

/// Admits SDK callbacks to the tool object while it exists. The SDK can call late, twice, or even
/// after the object was destroyed; in the last case, the callback must not reach the tool.
class CallbackGate {
 public:
  /// Admits callbacks to `tool` instead of any other object.
  static void Open(KXTool& tool);

  /// Waits until the callbacks inside `tool` have left it. Admits none afterwards.
  static void Close(KXTool& tool);

  /// Waits until the callbacks that have delivered their data have left the tool, so that its
  /// library can be unloaded. This is best effort: the tool cannot know when such a callback has
  /// returned into the library. The SDK must let its callbacks return before it completes an
  /// unregistration. Callbacks that still need `locker`, which the caller may hold, are not waited
  /// for.
  static void AwaitDelivered();

  /// Replaces the tool's batch identifier.
  static void SetBatchContext(KXTool& tool, const char* text);

  /// One callback's access to the tool.
  class Pass {
   public:
    /// @param context the callback's context as the SDK passed it; may be anything.
    explicit Pass(void* context);
    ~Pass();
    Pass(const Pass&) = delete;
    Pass& operator=(const Pass&) = delete;

    /// @return the tool, which exists at least as long as this object; null when the context is not
    ///     the current tool.
    KXTool* Tool() const { return tool_; }

    /// Whether `batchContext` is the tool's current batch identifier. There must be a tool.
    bool IsCurrentBatch(const char* batchContext) const;

    /// Records that the callback has delivered its data and needs no further lock of the tool. Call
    /// while `locker` is held. There must be a tool.
    void SetDelivered();

   private:
    KXTool* tool_;
    bool hasDelivered_ = false;
  };
};

}  // namespace sdk

#endif  // SDK_RUN_STATE_H_
