#include <array>
#include <cstdint>
#include <ctime>
#include <mutex>
#include <string>
#include <utility>

#include "app/error_codes.h"
#include "app/kx_tool.h"
#include "diag/log_message.h"
#include "json/document.h"
#include "platform/clock.h"
#include "platform/uuid.h"
#include "product/install_locations.h"
#include "sdk/agent_sdk.h"
#include "sdk/callbacks.h"
#include "sdk/envelope.h"
#include "sdk/method_catalogue.h"
#include "sdk/run_state.h"
#include "sdk/time_limits.h"

namespace {

/// Statuses of a run that are worth another try.
constexpr int kInternalError = 1;
constexpr int kTryAgain = 2;

/// Local time in ctime()'s form, which ends in a newline.
std::string LocalTimeText() {
  const auto now = static_cast<std::time_t>(platform::WallClockSeconds());
  std::array<char, 64> text{};
  return ctime_r(&now, text.data()) == nullptr ? "\n" : text.data();
}

/// Returns a function that formats the seconds since `start` (microseconds on the wall clock) with
/// six decimal places.
auto SecondsSince(std::int64_t start) {
  return [start] {
    return std::to_string(static_cast<double>(platform::WallClockMicroseconds() - start) /
                          1000000.0);
  };
}

/// One call of ExecuteAgentSDKMethod(). However the call ends, the destructor releases, in order,
/// everything that was acquired.
class Invocation {
 public:
  Invocation(KXTool& tool, std::string method, int& apiError, Logger* logger)
      : tool_(tool), method_(std::move(method)), apiError_(apiError), logger_(logger) {}

  /// Finds, verifies and loads the library and looks up its exports.
  int Load();
  /// Starts the run, with retries. The lock is held from here on.
  int Start();
  /// Waits for the completion or, in a watched scan, for a decisive event.
  int Await();
  /// Unpacks the answer. @return the method's own error
  long long Unpack(rapidjson::Document& output) const {
    return sdk::UnpackAnswer(tool_.sdkResponse, method_, output, logger_);
  }
  /// Ends the registration, releases the instance and unloads the library.
  void Finish(const char* message);

 private:
  /// Obtains an instance and registers the callbacks with it.
  int Connect();
  void TryRun(int tryNumber, const char* request);
  /// @return whether the next try may follow.
  bool Disconnect();
  bool WaitForFlag(const std::atomic<bool>& flag, long long seconds);

  template <typename... Parts>
  void Log(const Parts&... parts) const {
    Utils::LogMessage(logger_, parts...);
  }

  KXTool& tool_;
  const std::string method_;
  int& apiError_;
  Logger* logger_;
  const AgentSDKCallbacks callbacks_{sizeof(AgentSDKCallbacks), 0, OnProductEvent, OnRan};
  std::unique_lock<std::mutex> lock_;  ///< of `locker`; released last
  sdk::Library library_;
  sdk::Instance instance_;
  sdk::Registration registration_{instance_, callbacks_};
};

int Invocation::Load() {
  Log("Retrieving ORVEX directory path");
  ProductInfoStructure* product = nullptr;
  const int directoryCode = GetDirectory(product, productInfoStructure);
  Log("GetDirectory error code = ", directoryCode);
  if (directoryCode != kSuccess) {
    Log("Failed to retrieve ORVEX directory path. Error code : ", directoryCode);
    return directoryCode;
  }
  const std::string& path = product->sdkLibraryPath;

  Log("Validate ", path, " binary");
  bool isSigned = false;
  const int code = tool_.CheckCodeSignature(isSigned, path.c_str(), logger_);
  if (code != kSuccess) {
    Log("Failed to validate binary. Error code : ", code);
    return code;
  }
  if (!isSigned) {
    Log("Binary is not valid");
    return kEINVAL;
  }
  Log("Binary is valid");

  Log("Loading library from: ", path);
  if (!library_.Open(path)) {
    Log("Failed to load library");
    return kEAGAIN;
  }
  Log("Set AgentSDK get instance");
  if (!library_.FindGetInstance()) {
    Log("Failed to set get instance");
    return kEFAULT;
  }
  Log("AgentSDK get instance is set");
  Log("Set AgentSDK release instance");
  if (!library_.FindReleaseInstance()) {
    Log("Failed to set release instance");
    return kEFAULT;
  }
  return kSuccess;
}

int Invocation::Start() {
  Log("Search in actions for the declared method: ", method_);
  const auto action = agentsdkMethods.find(method_);
  if (action == agentsdkMethods.end()) {
    Log("Method not found. Unregistering instance");
    Log("Instance unregistered with exit code : ", apiError_);
    return kEINVAL;
  }

  lock_ = std::unique_lock<std::mutex>(locker);
  tool_.sdkResponse.clear();
  isReady.exchange(false);
  Log("Start RunAsync");
  Log("Run async starts at ", LocalTimeText);
  const std::int64_t start = platform::WallClockMicroseconds();

  for (int tryNumber = 1; tryNumber <= sdk::kMaxTries; ++tryNumber) {
    if (const int code = Connect(); code != kSuccess) return code;
    TryRun(tryNumber, action->second);
    if (apiError_ != kInternalError && apiError_ != kTryAgain) break;
    if (apiError_ == kInternalError) {
      Log("AgentSDK error internal. Sleep ", sdk::kInternalErrorPause, " seconds");
      platform::Sleep(sdk::kInternalErrorPause);
    }
    if (tryNumber < sdk::kMaxTries && !Disconnect()) break;
  }

  Log("RunAsync elapsed time = ", SecondsSince(start), " seconds");
  Log("RunAsync error code = ", apiError_);
  Log("End RunAsync");
  Log("AgentSDK response");
  Log(tool_.sdkResponse);
  if (apiError_ != 0) {
    Log("Failed to run instance. Error code : ", apiError_);
    Finish("Instance unregistered with exit code : ");
    return kENOTSUP;
  }
  return kSuccess;
}

int Invocation::Connect() {
  Log("Get AgentSDK instance");
  apiError_ = instance_.Get(library_.GetInstance(), library_.ReleaseInstance());
  if (!instance_.IsHeld()) {
    Log("Failed to get AgentSDK instance. Error code : ", apiError_);
    return kEACCES;
  }
  Log("Instance retrieved successfully");
  Log("RunAsync register instance notifications");
  apiError_ = registration_.Begin(&tool_);
  if (apiError_ != 0) {
    Log("Failed to register instance notifications. Error code : ", apiError_);
    return kENOTSUP;
  }
  return kSuccess;
}

void Invocation::TryRun(int tryNumber, const char* request) {
  Log("Try no = ", tryNumber);
  const std::int64_t start = platform::WallClockMicroseconds();
  Log("Creating batch context");
  tool_.CreateBatchContext();
  Log("Batch context = ", tool_.batchContext);
  Log("Run instance");
  apiError_ = instance_.RunAsync(request, tool_.batchContext);
  Log("Inner apiError = ", apiError_);
  Log("Inner RunAsync elapsed time = ", SecondsSince(start), " seconds");
}

bool Invocation::Disconnect() {
  Log("RunAsync unregister instance notifications");
  if (const int status = registration_.End(); status != 0) {
    Log("Failed to unregister instance notifications. Error code : ", status);
    return false;
  }
  instance_.Release();
  return true;
}

bool Invocation::WaitForFlag(const std::atomic<bool>& flag, long long seconds) {
  const platform::MonotonicTime deadline = sdk::DeadlineAfter(platform::MonotonicNow(), seconds);
  while (!flag) {
    if (!platform::WaitUntil(cv, lock_, deadline)) break;
  }
  return flag;
}

int Invocation::Await() {
  const bool isWatched = tool_.scanTimeout >= 0;
  if (!isWatched) Log("Set run async timeout");
  const long long limit = sdk::TimeLimit(tool_.arguments[1], tool_.scanTimeout);
  if (WaitForFlag(isWatched ? stopThread : isReady, limit)) return kSuccess;

  Log("Failed to run instance due to timeout");
  if (isWatched) {
    // This wait has no deadline. Only a notification ends it, such as that of a late completion or
    // event, and the call has timed out even then.
    platform::Wait(cv, lock_);
    stopThread.exchange(true);
    cv.notify_all();
  }
  Finish(isWatched ? "Instance unregistered with code : "
                   : "Instance unregistered with exit code : ");
  return kETIMEDOUT;
}

void Invocation::Finish(const char* message) {
  // The callback that ended the wait has to leave the tool before its library is unloaded.
  sdk::CallbackGate::AwaitDelivered();
  apiError_ = registration_.End();
  Log(message, apiError_);
  instance_.Release();
  library_.Close();
}

}  // namespace

void KXTool::CreateBatchContext() {
  char text[platform::kUuidTextSize];
  platform::RandomUuidText(text);
  sdk::CallbackGate::SetBatchContext(*this, text);
}

int KXTool::ExecuteAgentSDKMethod(std::string method, rapidjson::Document& output, int& apiError,
                                  long long& sdkError, Logger* logger) {
  Utils::LogMessage(logger, "Executing AgentSDK method: ", method);
  sdkError = 0;
  apiError = 0;
  Invocation invocation(*this, std::move(method), apiError, logger);
  if (const int code = invocation.Load(); code != kSuccess) return code;
  if (const int code = invocation.Start(); code != kSuccess) return code;
  if (const int code = invocation.Await(); code != kSuccess) return code;
  sdkError = invocation.Unpack(output);
  invocation.Finish("Instance unregistered with exit code : ");
  Utils::LogMessage(logger, "Finished executing AgentSDK method");
  return kSuccess;
}
