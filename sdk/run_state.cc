#include "sdk/run_state.h"

#include <chrono>
#include <cstring>

#include "app/kx_tool.h"
#include "platform/clock.h"

std::mutex locker;
std::condition_variable cv;
std::atomic<bool> stopThread;
std::atomic<bool> hasProductEvent;
std::atomic<bool> isReady;

namespace sdk {
namespace {

struct GateState {
  std::mutex lock;  ///< also guards the tool's batchContext
  std::condition_variable empty;
  std::condition_variable pause;
  KXTool* tool = nullptr;
  int inside = 0;
  int delivered = 0;  ///< of those inside
};

/// Never destroyed, because an SDK thread may still call while the process exits.
GateState& Gate() {
  static GateState& gate = *new GateState;
  return gate;
}

}  // namespace

void CallbackGate::Open(KXTool& tool) {
  GateState& gate = Gate();
  const std::lock_guard<std::mutex> lock(gate.lock);
  gate.tool = &tool;
}

void CallbackGate::Close(KXTool& tool) {
  GateState& gate = Gate();
  std::unique_lock<std::mutex> lock(gate.lock);
  if (gate.tool == &tool) gate.tool = nullptr;
  gate.empty.wait(lock, [&gate] { return gate.inside == 0; });
}

void CallbackGate::AwaitDelivered() {
  GateState& gate = Gate();
  std::unique_lock<std::mutex> lock(gate.lock);
  // `pause` is never notified: a callback that woke this thread up could lose the processor to it
  // just before returning.
  while (gate.delivered != 0) {
    platform::WaitUntil(gate.pause, lock, platform::MonotonicNow() + std::chrono::milliseconds(1));
  }
}

void CallbackGate::SetBatchContext(KXTool& tool, const char* text) {
  const std::lock_guard<std::mutex> lock(Gate().lock);
  std::memset(tool.batchContext, 0, sizeof tool.batchContext);
  std::strncpy(tool.batchContext, text, sizeof tool.batchContext - 1);
}

CallbackGate::Pass::Pass(void* context) : tool_(nullptr) {
  GateState& gate = Gate();
  const std::lock_guard<std::mutex> lock(gate.lock);
  if (context == nullptr || context != gate.tool) return;
  tool_ = gate.tool;
  ++gate.inside;
}

CallbackGate::Pass::~Pass() {
  if (tool_ == nullptr) return;
  GateState& gate = Gate();
  const std::lock_guard<std::mutex> lock(gate.lock);
  if (hasDelivered_) --gate.delivered;
  if (--gate.inside == 0) gate.empty.notify_all();
}

void CallbackGate::Pass::SetDelivered() {
  GateState& gate = Gate();
  const std::lock_guard<std::mutex> lock(gate.lock);
  hasDelivered_ = true;
  ++gate.delivered;
}

bool CallbackGate::Pass::IsCurrentBatch(const char* batchContext) const {
  const std::lock_guard<std::mutex> lock(Gate().lock);
  return std::strcmp(tool_->batchContext, batchContext) == 0;
}

}  // namespace sdk
