#include "tests/support/tool_test.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <regex>

#include "diag/global_logger.h"
#include "diag/utils.h"

namespace fake {
namespace {

/// Directory of the log file, removed when the test program ends.
class LogDirectory {
 public:
  LogDirectory() {
    std::string name = "/tmp/kxtool-log-XXXXXX";
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

}  // namespace

ToolTest::ToolTest() {
  setenv("TZ", "UTC", 1);
  logger = nullptr;
  MakeTool();
}

ToolTest::~ToolTest() {
  logger = nullptr;
  EXPECT_EQ(sdk.LiveInstances(), 0U) << "an SDK instance was not released";
  EXPECT_EQ(world.openLibraries, 0) << "a library was not unloaded";
  EXPECT_EQ(world.runningThreads, 0) << "a thread was not joined";
}

KXTool& ToolTest::MakeTool(const std::vector<std::string>& words) {
  std::vector<const char*> argv = {"/opt/kx/KXTool"};
  for (const std::string& word : words) argv.push_back(word.c_str());
  tool_.reset();
  tool_ = std::make_unique<KXTool>(static_cast<int>(argv.size()), argv.data());
  return *tool_;
}

Logger* ToolTest::Log() {
  Utils::ActivateLogger(logger, TheLogDirectory().Path());
  TakeLog();
  return logger;
}

std::vector<std::string> ToolTest::TakeLog() {
  LogDirectory& directory = TheLogDirectory();
  std::ifstream file(directory.File());
  file.seekg(directory.position);
  std::vector<std::string> lines;
  static const std::regex kTimeStamp("^[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} ");
  for (std::string line; std::getline(file, line);) {
    directory.position += static_cast<std::streamoff>(line.size()) + 1;
    lines.push_back(std::regex_replace(line, kTimeStamp, ""));
  }
  return lines;
}

Lines Concat(std::initializer_list<Lines> parts) {
  Lines all;
  for (const Lines& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
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
  return Concat({LoadedLibraryLog(method),
                 {"Start RunAsync", "Run async starts at Tue Nov 14 22:13:20 2023", ""},
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

}  // namespace fake
