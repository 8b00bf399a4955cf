#ifndef SDK_CALLBACKS_H_
#define SDK_CALLBACKS_H_

/// What the SDK calls, on threads of its own and at any time, even after the registration ended.
/// The tool holds `locker` while it calls the SDK: what has to take it waits until the tool does,
/// so the SDK must not wait for such a callback within a call of the tool. `context` is the KXTool
/// that was registered; anything else is ignored. No exception enters the SDK: when memory runs
/// out, the process ends here as it does anywhere else.
extern "C" {

/// A run has completed. Answers for a batch that is not the current one when the call comes are
/// ignored; one that was current then is taken, even if it has to wait for the lock while the next
/// try begins.
/// @param batchContext the run's batch identifier, or null
/// @param error logged, and nothing else
/// @param result the answer text, or null
void OnRan(void* context, const char* batchContext, int error, const char* result) noexcept;

/// The product has something to tell. Ignored unless a scan is being watched.
void OnProductEvent(void* context, const char* eventName, const char* eventData) noexcept;

}  // extern "C"

#endif  // SDK_CALLBACKS_H_
