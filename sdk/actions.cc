#include "app/error_codes.h"
#include "app/kx_tool.h"
#include "diag/log_message.h"
#include "json/document.h"
#include "sdk/run_state.h"
#include "sdk/scan_events.h"

namespace {

/// What distinguishes one kind of scan from the other.
struct ScanKind {
  const char* method;
  const char* name;       ///< inside a sentence
  const char* nameInEnd;  ///< in the closing line
};

constexpr ScanKind kFullScan = {"FileScan.OnDemand.RunFullScan", "full", "Full"};
constexpr ScanKind kQuickScan = {"FileScan.OnDemand.RunQuickScan", "quick", "Quick"};

/// The outcome of a watched scan whose SDK call was made and whose event thread has ended.
int DecideScan(const KXTool& tool, long long& result, Logger* logger) {
  if (isReady) return kSuccess;
  if (hasProductEvent) {
    Utils::LogMessage(logger, "Product has an event. Scan error: ", tool.scanError);
    result = tool.scanError;
    return kSuccess;
  }
  Utils::LogMessage(logger, "Scan failed. Timeout error");
  return kETIMEDOUT;
}

int StartScan(KXTool& tool, const ScanKind& kind, long long& result, Logger* logger) {
  Utils::LogMessage(logger, "Start ", kind.name, " scan");
  sdk::EventThread eventThread;
  if (tool.scanTimeout > 0) {
    Utils::LogMessage(logger, "Create ", kind.name, " scan thread with ProcessProductEvents");
    if (const int error = eventThread.Start(tool); error != 0) {
      Utils::LogMessage(logger, "Failed to create thread. Error code:", error);
      return error;
    }
  }

  Utils::LogMessage(logger, "Execute ", kind.method, " method");
  rapidjson::Document document;
  int apiError = 0;
  int code = tool.ExecuteAgentSDKMethod(kind.method, document, apiError, result, logger);
  if (code != kSuccess || tool.scanTimeout < 0) {
    Utils::LogMessage(logger, "Could not execute method. Error code: ", code);
    return code;
  }

  if (const int error = eventThread.Join(); error != 0) {
    Utils::LogMessage(logger, "Failed to wait for ", kind.name,
                      " scan thread. Error code: ", error);
    return error;
  }
  code = DecideScan(tool, result, logger);
  Utils::LogMessage(logger, "Finished starting ", kind.nameInEnd, " scan with error code: ", code);
  return code;
}

}  // namespace

int KXTool::StartUpdate(long long& result, Logger* logger) {
  Utils::LogMessage(logger, "Execute Update.StartUpdate method");
  rapidjson::Document document;
  int apiError = 0;
  const int code = ExecuteAgentSDKMethod("Update.StartUpdate", document, apiError, result, logger);
  if (code != kSuccess) {
    Utils::LogMessage(logger, "Failed to execute method. Error code: ", code);
    return code;
  }
  if (apiError != 0) {
    Utils::LogMessage(logger, "Failed to execute method. Error code: ", apiError);
    return apiError;
  }
  Utils::LogMessage(logger, "Finished to Start update with error code: ", kSuccess);
  return kSuccess;
}

int KXTool::StartFullScan(long long& result, Logger* logger) {
  return StartScan(*this, kFullScan, result, logger);
}

int KXTool::StartQuickScan(long long& result, Logger* logger) {
  return StartScan(*this, kQuickScan, result, logger);
}
