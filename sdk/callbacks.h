#ifndef SDK_CALLBACKS_H_
#define SDK_CALLBACKS_H_

/// The functions that the SDK calls, on its own threads and at any time, even after unregistration.
/// The tool holds `locker` while it calls the SDK, so the SDK must not wait for a callback within
/// such a call. `context` is the KXTool that was registered; anything else is ignored. No exception
/// enters the SDK: when memory runs out, the process ends, as it does everywhere else.
extern "C" {

/// Stores the answer of a completed run. Ignores answers for a batch that is not the current one
/// when the call begins. An answer that was current then is stored even if it has to wait for the
/// lock while the next try begins.
/// @param batchContext the run's batch identifier, or null
/// @param error only logged
/// @param result the answer text, or null
void OnRan(void* context, const char* batchContext, int error, const char* result) noexcept;

/// Queues a product event. Ignored unless a scan is being watched.
void OnProductEvent(void* context, const char* eventName, const char* eventData) noexcept;

}  // extern "C"

#endif  // SDK_CALLBACKS_H_
