#include "sdk/callbacks.h"

#include "app/kx_tool.h"
#include "diag/global_logger.h"
#include "diag/log_message.h"
#include "sdk/run_state.h"

namespace {

/// The SDK's texts may be null, which counts as empty.
std::string TextOrEmpty(const char* text) { return text == nullptr ? "" : text; }

}  // namespace

void OnRan(void* context, const char* batchContext, int error, const char* result) noexcept {
  Utils::LogMessage(logger, "Start OnRan");
  Utils::LogMessage(logger, "Is null batch_context = ", batchContext == nullptr);
  if (batchContext != nullptr) {
    Utils::LogMessage(logger, "Batch context = ", static_cast<signed char>(batchContext[0]));
  }
  Utils::LogMessage(logger, "Error = ", error);
  Utils::LogMessage(logger, "Is null result = ", result == nullptr);
  if (batchContext == nullptr) return;

  sdk::CallbackGate::Pass pass(context);
  if (pass.Tool() == nullptr || !pass.IsCurrentBatch(batchContext)) return;
  {
    const std::lock_guard<std::mutex> lock(locker);
    if (result != nullptr) pass.Tool()->sdkResponse = result;
    Utils::LogMessage(logger, "OnRun response");
    Utils::LogMessage(logger, result == nullptr ? "nullptr" : result);
    isReady.exchange(true);
    pass.SetDelivered();
  }
  cv.notify_all();
  Utils::LogMessage(logger, "End OnRan");
}

void OnProductEvent(void* context, const char* eventName, const char* eventData) noexcept {
  if (context == nullptr || stopThread) return;
  sdk::CallbackGate::Pass pass(context);
  if (pass.Tool() == nullptr) return;
  {
    const std::lock_guard<std::mutex> lock(locker);
    pass.Tool()->productEvents.emplace_back(TextOrEmpty(eventName), TextOrEmpty(eventData));
    pass.SetDelivered();
  }
  cv.notify_all();
}
