#include <optional>

#include "app/error_codes.h"
#include "app/kx_tool.h"
#include "diag/log_message.h"
#include "platform/bundle.h"

int KXTool::GetVersion(std::string& result, Logger* logger) {
  Utils::LogMessage(logger, "Get file version info size");
  const std::optional<std::string> version = platform::MainBundleText("RMMToolVersion");
  if (!version) {
    Utils::LogMessage(logger, "Failed to retrieve file version info");
    return kENOENT;
  }
  result = *version;
  Utils::LogMessage(logger, "RMM Tools version retrieved successfully. Version is:", result);
  return kSuccess;
}
