#ifndef APP_KX_TOOL_H_
#define APP_KX_TOOL_H_

#include <rapidjson/fwd.h>

#include <cstdint>
#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "platform/uuid.h"

class Logger;

/// The tool: one command line and the operation that it asks for. There is one object per process;
/// it must outlive every SDK call that it makes. The destructor waits for SDK callbacks that are
/// running, and later ones are ignored.
///
/// Operations return 0, a number from app/error_codes.h, the product's own error, a status of the
/// signature check, a child's exit status or a system error. They log their steps to `logger`,
/// which may be null, and run on the main thread. Results are returned by reference; each operation
/// documents what happens to them on failure.
class KXTool {
 public:
  /// @param argv `argumentCount` strings, copied.
  KXTool(int argumentCount, const char** argv);
  ~KXTool();
  KXTool(const KXTool&) = delete;
  KXTool& operator=(const KXTool&) = delete;

  /// Runs the operation that the command line asks for and writes its result to standard output,
  /// without a newline.
  /// @param result receives the answer text.
  /// @return the operation's code, or 22 for an invalid command line.
  /// @throws std::invalid_argument, std::out_of_range for a scan time limit that is empty or does
  ///     not fit 64 bits.
  int Run(std::string& result);

  // Front end (app/).

  /// The tool's own version. @param result is untouched on failure.
  int GetVersion(std::string& result, Logger* logger);

  // Product discovery and trust (product/).

  /// Checks that the file or bundle at `path` is validly signed by the vendor.
  /// @param isSigned is true only if the function returns 0.
  /// @return 0 when the check could be carried out, whatever its outcome.
  int CheckCodeSignature(bool& isSigned, const char* path, Logger* logger);

  // SDK bridge (sdk/).

  /// Runs one SDK method and waits for its answer.
  /// @param method a key of the method catalogue.
  /// @param output receives the method's "output" object when the method answered with error 0.
  /// @param apiError receives the status of the last SDK call.
  /// @param sdkError receives the method's own error, or 3 for an unusable answer.
  /// @return 0 whenever the SDK answered.
  int ExecuteAgentSDKMethod(std::string method, rapidjson::Document& output, int& apiError,
                            long long& sdkError, Logger* logger);

  /// ExecuteAgentSDKMethod() with its three outcomes reduced to one code: the method's error, else
  /// the SDK's status, else the invocation's code.
  int ExecuteAgentSDKMethodWrapper(std::string method, rapidjson::Document& output, Logger* logger);

  /// Puts the text of a fresh random UUID into `batchContext`.
  void CreateBatchContext();

  /// Each of the next three functions stores the method's own error in `result`, or the scan's
  /// outcome if an event determines it.
  int StartUpdate(long long& result, Logger* logger);
  int StartFullScan(long long& result, Logger* logger);
  int StartQuickScan(long long& result, Logger* logger);

  // Status queries (queries/). On a failed SDK call the result is untouched and the call's code is
  // returned.

  /// "name=error" of each update location whose last update failed, joined by "|".
  int GetUpdateErrors(std::string& result, Logger* logger);
  /// "error|time|lastSucceededTime" of the update location `status`.
  int GetUpdateStatus(std::string& result, const char* status, Logger* logger);
  /// @param upToDate is true unless a location failed or is stale; also true on failure.
  int CheckIsUpToDate(bool& upToDate, Logger* logger);
  /// Names of the update locations, joined by "|".
  int GetUpdateLocations(std::string& result, Logger* logger);
  /// Time of the product's last update, as the product reports it.
  int GetLastUpdate(std::string& result, Logger* logger);
  /// Names of the critical alerts, joined by "|".
  int GetCriticalIssues(std::string& result, Logger* logger);
  /// The product's version.
  int GetProductVersion(std::string& result, Logger* logger);
  /// "id=1" or "id=0" for each feature, joined by "|".
  int GetFeatureStatus(std::string& result, Logger* logger);
  /// Appends "task=seconds" for the newest full and quick scan, joined by "|".
  /// @throws rapidxml::parse_error for a summary that is not XML.
  int GetLastSystemScan(std::string& result, Logger* logger);

  // Installation and detection (install/).

  /// Installs the product from a package or disk image (`packageMode`) or from a disk image with a
  /// setup downloader. @param result receives a detection record.
  int ORVEXInstall(std::string& result, const std::string& installerPath, bool packageMode,
                   Logger* logger);
  /// Runs one installation and deletes both files. @return the process's exit status.
  int RunInstall(const char* itemPath, const char* installerXmlPath, bool usePackageInstaller);
  /// Fills `result` with the detection record "state|company|group|endpoint".
  /// @return 16 when the product is present, 0 when it is not.
  int ORVEXDetectInstall(std::string& result, Logger* logger);
  /// Whether one of the two sets of service processes is running. Takes 5 to 50 seconds.
  bool CheckRunningProcesses();
  /// File name of the executable of process `pid`. @return false when it cannot be read.
  bool GetProcessName(std::string& name, int pid);
  /// Passes the arguments to the vendor's links library and returns its answer.
  int GetInstallationLinks(std::string& result, const char* consoleUrl, const char* apiKey,
                           const char* packageName, bool setupDownloaderLink, Logger* logger);
  /// Fills each identifier whose pointer is not null from the SDK (when `useIdentityMethod`) and
  /// then from the agent configuration file. An identifier that neither has is empty.
  int GetEndpointInformation(std::string* companyId, std::string* groupId, std::string* endpointId,
                             const char* agcfFilePath, bool useIdentityMethod, Logger* logger);
  /// Reads the identifiers that the SDK has. Note the order of the arguments.
  int GetSLIdentity(std::string* endpointId, std::string* companyId, Logger* logger);

  int argc;
  /// Seconds that a watched scan may take, at least 5; -1 without a limit.
  long long scanTimeout;
  /// Outcome of a watched scan: 0 or 5023.
  long long scanError;
  /// The command line; [0] is the program path, [1] the option.
  std::vector<std::string> arguments;
  /// The SDK's answer. Guarded by `locker`.
  std::string sdkResponse;
  /// Identifier of the current SDK run. Guarded by the callback gate of sdk/run_state.h.
  char batchContext[platform::kUuidTextSize];
  /// Product events (name, data) not yet processed. Guarded by `locker`.
  std::deque<std::pair<std::string, std::string>> productEvents;
};

#endif  // APP_KX_TOOL_H_
