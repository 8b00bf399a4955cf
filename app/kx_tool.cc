#include "app/kx_tool.h"

#include "sdk/run_state.h"

KXTool::KXTool(int argumentCount, const char** argv)
    : argc(argumentCount),
      scanTimeout(-1),
      scanError(0),
      arguments(argv, argv + argumentCount),
      batchContext{} {
  stopThread.exchange(true);
  hasProductEvent.exchange(false);
  isReady.exchange(false);
  sdk::CallbackGate::Open(*this);
}

KXTool::~KXTool() { sdk::CallbackGate::Close(*this); }
