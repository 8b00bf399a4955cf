#include "queries/status_query.h"

#include "app/error_codes.h"
#include "app/kx_tool.h"
#include "diag/log_message.h"

namespace queries {
namespace {

constexpr std::size_t kAllocatorChunkSize = 1024;

int ExtractGuarded(const QueryLines& lines, const Extraction& extract,
                   const rapidjson::Value& output, Logger* logger) {
  try {
    return extract(output);
  } catch (...) {
    Utils::LogMessage(logger, lines.guard);
    return kESRCH;
  }
}

}  // namespace

int RunStatusQuery(KXTool& tool, const QueryLines& lines, const Extraction& extract,
                   Logger* logger) {
  Utils::LogMessage(logger, "Execute Product.GetStatus method");
  rapidjson::MemoryPoolAllocator<> allocator(kAllocatorChunkSize);
  rapidjson::Document output(&allocator);
  int code = tool.ExecuteAgentSDKMethodWrapper("Product.GetStatus", output, logger);
  if (code != kSuccess) {
    if (lines.failureEndsInCode) {
      Utils::LogMessage(logger, lines.failure, code);
    } else {
      Utils::LogMessage(logger, lines.failure);
    }
    return code;
  }
  code = ExtractGuarded(lines, extract, output, logger);
  Utils::LogMessage(logger, lines.closing, code);
  return code;
}

}  // namespace queries
