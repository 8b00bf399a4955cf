#include "sdk/envelope.h"

#include <string_view>
#include <utility>

#include "app/error_codes.h"
#include "app/kx_tool.h"
#include "diag/log_message.h"
#include "json/document.h"
#include "json/lookup.h"

namespace sdk {
namespace {

/// The member of "data" that holds the results of `method`: its namespace, which is the key without
/// its last component.
std::string_view ResultMember(std::string_view method) {
  const std::size_t dot = method.rfind('.');
  return dot == std::string_view::npos || dot == 0 ? method : method.substr(0, dot);
}

long long RejectAnswer(Logger* logger, const char* reason) {
  Utils::LogMessage(logger, "Invalid JSON. ", reason);
  return kUnusableAnswer;
}

}  // namespace

long long UnpackAnswer(const std::string& answer, const std::string& method,
                       rapidjson::Document& output, Logger* logger) {
  if (answer.empty()) {
    Utils::LogMessage(logger, "Failed to receive AgentSDK response. JSON is empty");
    return kUnusableAnswer;
  }

  Utils::LogMessage(logger, "Parse AgentSDK response");
  // Uses the caller's allocator, so that "output" can be moved instead of copied.
  json::Document document(&output.GetAllocator());
  rapidjson::StringStream text(answer.c_str());
  if (!document.Read(text) || !document.IsObject()) {
    return RejectAnswer(logger, "Response has parse errors or is not an object");
  }

  Utils::LogMessage(logger, "Parse \"response\" member");
  rapidjson::Value* const response = json::FindObject(document, "response");
  if (response == nullptr) {
    return RejectAnswer(logger, "Response does not have \"response\" member");
  }

  Utils::LogMessage(logger, "Parse \"data\" member");
  rapidjson::Value* const data = json::FindObject(*response, "data");
  if (data == nullptr) return RejectAnswer(logger, "Response does not have \"data\" member");

  Utils::LogMessage(logger, "Find method key");
  rapidjson::Value* const results = json::FindMember(*data, ResultMember(method));
  if (results == nullptr || !results->IsArray() || results->Empty()) {
    Utils::LogMessage(logger, "Invalid JSON. Response does not have \"", method, "\" key");
    return kUnusableAnswer;
  }
  rapidjson::Value& result = *results->Begin();

  Utils::LogMessage(logger, "Parse \"error\" member");
  const rapidjson::Value* const error = json::FindMember(result, "error");
  if (error == nullptr) return RejectAnswer(logger, "Error is not found");
  if (!error->IsInt64()) return RejectAnswer(logger, "Error value is invalid");
  Utils::LogMessage(logger, "Response error code : ", error->GetInt64());
  if (error->GetInt64() != kSuccess) return error->GetInt64();

  Utils::LogMessage(logger, "Parse \"output\" member");
  rapidjson::Value* const found = json::FindMember(result, "output");
  if (found == nullptr) return RejectAnswer(logger, "Response does not have \"output\" member");
  if (found->IsObject()) {
    static_cast<rapidjson::Value&>(output) = *found;
  } else if (!found->IsNull()) {
    return RejectAnswer(logger, "\"output\" member is invalid");
  }
  return kSuccess;
}

}  // namespace sdk

int KXTool::ExecuteAgentSDKMethodWrapper(std::string method, rapidjson::Document& output,
                                         Logger* logger) {
  Utils::LogMessage(logger, "Executing AgentSDK Wrapper method: ", method);
  int apiError = 0;
  long long sdkError = 0;
  const int code = ExecuteAgentSDKMethod(std::move(method), output, apiError, sdkError, logger);
  Utils::LogMessage(logger, "Return error: ", code);
  Utils::LogMessage(logger, "API error = ", apiError);
  Utils::LogMessage(logger, "Agent SDK Error = ", sdkError);
  if (sdkError != 0) {
    Utils::LogMessage(logger, "Agent SDK failed with error code: ", sdkError);
    return static_cast<int>(sdkError);
  }
  if (apiError != 0) {
    Utils::LogMessage(logger, "API failed with error code: ", apiError);
    return apiError;
  }
  Utils::LogMessage(logger, "AgentSDK Method returned with error code: ", code);
  return code;
}
