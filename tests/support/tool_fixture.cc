#include "tests/support/tool_fixture.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <string_view>
#include <utility>

#include "diag/global_logger.h"

namespace fake {
namespace {

/// Directory of the log file, removed when the test program ends.
class LogDirectory {
 public:
  LogDirectory() {
    std::string name = testing::TempDir() + "kxtool-log-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) std::abort();
    path_ = name + "/";
  }
  ~LogDirectory() {
    unlink(File().c_str());
    rmdir(path_.c_str());
  }
  LogDirectory(const LogDirectory&) = delete;
  LogDirectory& operator=(const LogDirectory&) = delete;

  const std::string& Path() const { return path_; }
  std::string File() const { return path_ + "log.txt"; }

  std::streamoff position = 0;  ///< up to where the log has been taken

 private:
  std::string path_;
};

LogDirectory& TheLogDirectory() {
  static LogDirectory directory;
  return directory;
}

/// What each log line begins with; a "0" stands for any digit.
constexpr std::string_view kTimeStampForm = "0000-00-00 00:00:00 ";

bool HasTimeStamp(std::string_view line) {
  return line.size() >= kTimeStampForm.size() &&
         std::equal(kTimeStampForm.begin(), kTimeStampForm.end(), line.begin(),
                    [](char form, char actual) {
                      return form == '0' ? actual >= '0' && actual <= '9' : form == actual;
                    });
}

}  // namespace

ToolFixture::ToolFixture() {
  setenv("TZ", "UTC", 1);
  logger = nullptr;
  MakeTool();
}

ToolFixture::~ToolFixture() {
  logger = nullptr;
  EXPECT_EQ(sdk.LiveInstances(), 0U) << "an SDK instance was not released";
  EXPECT_EQ(world.openFiles, 0) << "a file was not closed";
  EXPECT_EQ(world.openDirectories, 0) << "a directory was not closed";
  EXPECT_EQ(world.openPools, 0) << "a pool was not drained";
  EXPECT_EQ(world.openLibraries, 0) << "a library was not unloaded";
  EXPECT_EQ(world.runningThreads, 0) << "a thread was not joined";
}

KXTool& ToolFixture::MakeTool(const std::vector<std::string>& words) {
  std::vector<const char*> argv = {"/opt/kx/KXTool"};
  for (const std::string& word : words) argv.push_back(word.c_str());
  tool_.reset();
  tool_ = std::make_unique<KXTool>(static_cast<int>(argv.size()), argv.data());
  return *tool_;
}

Logger* ToolFixture::Log() {
  logger = Logger::GetLogger(TheLogDirectory().Path());
  TakeLog();
  return logger;
}

std::vector<std::string> ToolFixture::TakeLog() {
  LogDirectory& directory = TheLogDirectory();
  std::ifstream file(directory.File());
  file.seekg(directory.position);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) {
    directory.position += static_cast<std::streamoff>(line.size()) + 1;
    if (HasTimeStamp(line)) line.erase(0, kTimeStampForm.size());
    lines.push_back(std::move(line));
  }
  return lines;
}

Lines Concat(std::initializer_list<Lines> parts) {
  Lines all;
  for (const Lines& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

Lines SplitAtNewlines(const Lines& messages) {
  Lines lines;
  for (const std::string& message : messages) {
    std::size_t begin = 0;
    for (std::size_t end; (end = message.find('\n', begin)) != std::string::npos; begin = end + 1) {
      lines.push_back(message.substr(begin, end - begin));
    }
    lines.push_back(message.substr(begin));
  }
  return lines;
}

Lines AcceptedSignatureLog(const std::string& path) {
  return {"Retrieve Sec static code for " + path,
          "Check code validity",
          "Code is valid",
          "Retrieve signing information",
          "Signing information retrieved successfully",
          "Save certificate name",
          "Certificate saved successfully",
          "Save certificate team id",
          "Certificate team id saved successfully",
          "Check if it is signed by Corvane",
          "Check complete. File is signed by Corvane"};
}

Lines LoadedLibraryLog(const std::string& method) {
  const std::string path = Sdk::LibraryPath();
  return Concat({{"Executing AgentSDK method: " + method, "Retrieving ORVEX directory path",
                  "GetDirectory error code = 0", "Validate " + path + " binary"},
                 AcceptedSignatureLog(path),
                 {"Binary is valid", "Loading library from: " + path, "Set AgentSDK get instance",
                  "AgentSDK get instance is set", "Set AgentSDK release instance",
                  "Search in actions for the declared method: " + method}});
}

Lines TryLog(int number, int status) {
  return {"Get AgentSDK instance",
          "Instance retrieved successfully",
          "RunAsync register instance notifications",
          "Try no = " + std::to_string(number),
          "Creating batch context",
          "Batch context = " + UuidText(World::Current().uuids),
          "Run instance",
          "Inner apiError = " + std::to_string(status),
          "Inner RunAsync elapsed time = 0.000000 seconds"};
}

Lines StartedCallLog(const std::string& method) {
  const auto now = static_cast<std::time_t>(Sdk::Current().InstanceTime());
  char start[64];
  std::strftime(start, sizeof start, "%a %b %e %H:%M:%S %Y", std::gmtime(&now));
  return Concat({LoadedLibraryLog(method),
                 {"Start RunAsync", std::string("Run async starts at ") + start, ""},
                 TryLog(1, 0),
                 {"RunAsync elapsed time = 0.000000 seconds", "RunAsync error code = 0",
                  "End RunAsync", "AgentSDK response", ""}});
}

Lines CompletionLog(const std::string& answer) {
  return {"Start OnRan",
          "Is null batch_context = 0",
          "Batch context = 48",
          "Error = 0",
          "Is null result = 0",
          "OnRun response",
          answer,
          "End OnRan"};
}

Lines AnsweredWrapperLog(const std::string& method, const std::string& answer) {
  return Concat({{"Executing AgentSDK Wrapper method: " + method},
                 StartedCallLog(method),
                 {"Set run async timeout"},
                 CompletionLog(answer),
                 {"Parse AgentSDK response", "Parse \"response\" member", "Parse \"data\" member",
                  "Find method key", "Parse \"error\" member", "Response error code : 0",
                  "Parse \"output\" member", "Instance unregistered with exit code : 0",
                  "Finished executing AgentSDK method", "Return error: 0", "API error = 0",
                  "Agent SDK Error = 0", "AgentSDK Method returned with error code: 0"}});
}

}  // namespace fake
