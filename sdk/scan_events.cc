#include "sdk/scan_events.h"

#include <mutex>
#include <optional>
#include <string>

#include "app/error_codes.h"
#include "app/kx_tool.h"
#include "platform/clock.h"
#include "sdk/run_state.h"

namespace {

/// The scan outcome that an event of this name stands for; nothing for all other events.
std::optional<long long> OutcomeOf(const std::string& eventName) {
  if (eventName == "FileScan.OnDemand.ScanStarted") return kSuccess;
  if (eventName == "FileScan.OnDemand.ScanFailed") return kScanFailed;
  return std::nullopt;
}

/// Notifies all waiters after a flag was changed without the lock. A waiter that tested the flag
/// before the change is asleep by the time the lock is acquired.
void NotifyThroughLock() {
  { const std::lock_guard<std::mutex> lock(locker); }
  cv.notify_all();
}

}  // namespace

void* ProcessProductEvents(void* toolPointer) {
  auto* const tool = static_cast<KXTool*>(toolPointer);
  if (tool == nullptr) return nullptr;
  while (true) {
    std::optional<long long> outcome;
    {
      std::unique_lock<std::mutex> lock(locker);
      while (!isReady && !stopThread && tool->productEvents.empty()) platform::Wait(cv, lock);
      if (isReady) return nullptr;
      if (!tool->productEvents.empty()) {
        outcome = OutcomeOf(tool->productEvents.front().first);
        tool->productEvents.pop_front();
      }
    }
    if (outcome) {
      tool->scanError = *outcome;
      hasProductEvent.exchange(true);
      stopThread.exchange(true);
    }
    if (stopThread) {
      NotifyThroughLock();
      return nullptr;
    }
  }
}

namespace sdk {

EventThread::~EventThread() {
  if (!thread_.IsJoinable()) return;
  stopThread.exchange(true);
  NotifyThroughLock();
  thread_.Join();
}

int EventThread::Start(KXTool& tool) {
  hasProductEvent.exchange(false);
  stopThread.exchange(false);
  return thread_.Start(ProcessProductEvents, &tool);
}

}  // namespace sdk
