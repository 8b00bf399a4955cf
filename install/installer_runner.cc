#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>

#include "app/error_codes.h"
#include "app/kx_tool.h"
#include "diag/log_message.h"
#include "diag/text.h"
#include "install/attach_output.h"
#include "platform/bundle.h"
#include "platform/files.h"
#include "platform/task.h"

namespace {

constexpr char kDiskImageTool[] = "/usr/bin/hdiutil";
constexpr char kPackageInstaller[] = "/usr/sbin/installer";
constexpr char kConfigurationName[] = "installer.xml";
constexpr char kPackageExtension[] = "pkg";
constexpr char kApplicationExtension[] = "app";

bool HasExtension(const std::string& path, const char* extension) {
  return Utils::EqualsIgnoringCase(platform::PathExtension(path), extension);
}

/// The file called `name` in the directory that holds `installerPath`.
std::string Beside(const std::string& installerPath, const std::string& name) {
  return platform::JoinPath(platform::ParentPath(installerPath), name);
}

/// How a path that was not found appears in a log line.
std::string PathText(const std::string& path) { return path.empty() ? "(null)" : path; }

/// Returns `number` + 1; wraps from INT_MAX to INT_MIN.
std::int32_t NextNumber(std::int32_t number) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(number) + 1);
}

/// One installation from a disk image. Every step that can fail returns the operation's code.
class DiskImageInstall {
 public:
  DiskImageInstall(KXTool& tool, std::string& result, const std::string& imagePath,
                   bool packageMode, Logger* logger)
      : tool_(tool),
        result_(result),
        imagePath_(imagePath),
        packageMode_(packageMode),
        logger_(logger),
        destinationConfiguration_(Beside(imagePath, kConfigurationName)) {}

  int Run();

 private:
  int CreateOutputFile();
  int Attach();
  void Search();
  int CopyToDestination();
  /// Keeps a configuration that already lies beside the image, or copies the image's own there.
  bool ProvideConfiguration();
  /// Accepts the copied application, or undoes everything done so far.
  int CheckApplication();
  int Install();
  void Detach();
  void DeleteOutputFile();

  template <typename... Parts>
  void Log(const Parts&... parts) const {
    Utils::LogMessage(logger_, parts...);
  }

  KXTool& tool_;
  std::string& result_;
  const std::string& imagePath_;
  const bool packageMode_;
  Logger* const logger_;

  std::string outputPath_;  ///< temporary file that receives the attach output
  std::string mountPoint_;
  std::optional<std::string> device_;
  std::string item_;           ///< package or application, relative to the mount point
  std::string configuration_;  ///< likewise; both are empty until found
  std::string destinationItem_;
  const std::string destinationConfiguration_;
};

int DiskImageInstall::Run() {
  Log("Running ORVEX Install with installer");
  if (const int code = CreateOutputFile(); code != kSuccess) return code;
  if (const int code = Attach(); code != kSuccess) return code;
  Search();
  Log("Running ORVEX install process");
  int status = CopyToDestination();
  if (status == kSuccess) {
    if (!packageMode_) {
      if (const int code = CheckApplication(); code != kSuccess) return code;
    }
    status = Install();
  }
  Detach();
  DeleteOutputFile();
  Log("Finished ORVEX install with status: ", status);
  return status;
}

int DiskImageInstall::CreateOutputFile() {
  const std::optional<std::string> directory = platform::TemporaryDirectory();
  if (!directory) {
    Log("Cannot create temporary directory");
    return kENOENT;
  }
  // The generator is never seeded, so every run counts up from the same number.
  std::int32_t number = std::rand();
  int error = 0;
  do {
    outputPath_ = *directory + "KXToolInstall_" + std::to_string(number);
    error = platform::CreateFileExclusively(outputPath_);
    number = NextNumber(number);
  } while (error == EEXIST);
  if (error != 0) Log("Failed to mount installer. Exit code: ", error);
  return error;
}

int DiskImageInstall::Attach() {
  const int status = platform::RunTask(
      {kDiskImageTool, {"attach", imagePath_, "-plist", "-private", "-nobrowse"}, outputPath_});
  std::optional<std::string> mountPoint;
  if (const auto output = platform::ReadPropertyListDictionary(outputPath_)) {
    mountPoint = install::FindMountPoint(*output);
    device_ = install::FindDevice(*output);
  }
  if (status != 0) {
    Log("Failed to mount installer. Exit code: ", status);
    return status;
  }
  if (!mountPoint) {
    Log("Cannot find mount point");
    return kENOENT;
  }
  mountPoint_ = *mountPoint;
  return kSuccess;
}

void DiskImageInstall::Search() {
  Log("Searching for app");
  const char* const extension = packageMode_ ? kPackageExtension : kApplicationExtension;
  platform::WalkTree(mountPoint_, [&](const std::string& path) {
    // The tool looks up the relative path in the working directory, not on the image. So it finds
    // applications, which are directories on the image.
    if (platform::DirectoryExists(path)) return true;
    if (HasExtension(path, extension)) {
      item_ = path;
      Log("Found app path: ", path);
    } else if (platform::LastPathComponent(path) == kConfigurationName) {
      configuration_ = path;
      Log("Found installer path:", path);
    }
    return item_.empty() || configuration_.empty();
  });
}

int DiskImageInstall::CopyToDestination() {
  if (item_.empty() ||
      (configuration_.empty() && !platform::FileExists(destinationConfiguration_))) {
    Log("app or installer xml does exist at given path:  ", PathText(item_), "  ",
        PathText(configuration_), "  ", destinationConfiguration_);
    return kENOENT;
  }
  destinationItem_ = Beside(imagePath_, platform::LastPathComponent(item_));
  if (platform::FileExists(destinationItem_) && !platform::RemoveTree(destinationItem_)) {
    Log("Cannot remove app path");
    return kEACCES;
  }
  if (!platform::CopyTree(mountPoint_ + "/" + item_, destinationItem_) || !ProvideConfiguration()) {
    Log("Cannot copy new app or installer xml does not exist and it cannot be copied");
    return kENOENT;
  }
  return kSuccess;
}

bool DiskImageInstall::ProvideConfiguration() {
  // What lay beside the image during the search may be gone by now: it may have been a link into
  // the old item.
  if (platform::FileExists(destinationConfiguration_)) return true;
  return !configuration_.empty() &&
         platform::CopyTree(mountPoint_ + "/" + configuration_, destinationConfiguration_);
}

int DiskImageInstall::CheckApplication() {
  Log("Checking code signature for ", destinationItem_);
  bool valid = false;
  const int code = tool_.CheckCodeSignature(valid, destinationItem_.c_str(), logger_);
  if (code == kSuccess && valid) return kSuccess;

  Detach();
  platform::RemoveTree(destinationItem_);
  platform::RemoveTree(destinationConfiguration_);
  DeleteOutputFile();
  if (code == kSuccess) {
    Log("Invalid signature for \"app\"");
    return kEINVAL;
  }
  Log("Cannot check signature for \"app\". Exit code: ", code);
  return code;
}

int DiskImageInstall::Install() {
  Log("Running ORVEX Install");
  const int status =
      tool_.RunInstall(destinationItem_.c_str(), destinationConfiguration_.c_str(), packageMode_);
  Log("ORVEX Install finished with exit code: ", status);
  Log("Starting final ORVEX Detect");
  tool_.ORVEXDetectInstall(result_, logger_);
  Log("Finished ORVEX Detect");
  return status;
}

void DiskImageInstall::Detach() {
  platform::Task detach = {kDiskImageTool, {"detach"}, {}};
  // Without a device the argument list ends early, as a nil-terminated one does.
  if (device_) detach.arguments.insert(detach.arguments.end(), {*device_, "-quiet"});
  platform::RunTask(detach);
}

void DiskImageInstall::DeleteOutputFile() {
  if (platform::IsDeletable(outputPath_)) platform::RemoveTree(outputPath_);
}

/// Installs the package that was given directly, with the configuration beside it.
int InstallPackage(KXTool& tool, std::string& result, const std::string& packagePath,
                   Logger* logger) {
  if (!platform::FileExists(packagePath)) {
    Utils::LogMessage(logger, "pkg file does not exist");
    return kENOENT;
  }
  Utils::LogMessage(logger, "Checking for installer xml");
  const std::string configurationPath = Beside(packagePath, kConfigurationName);
  if (!platform::FileExists(configurationPath)) {
    Utils::LogMessage(logger, "Installer xml does not exist");
    return kENOENT;
  }
  Utils::LogMessage(logger, "Running ORVEX Install");
  const int status = tool.RunInstall(packagePath.c_str(), configurationPath.c_str(), true);
  Utils::LogMessage(logger, "ORVEX Install finished with exit code: ", status);
  Utils::LogMessage(logger, "Starting ORVEX detect");
  tool.ORVEXDetectInstall(result, logger);
  Utils::LogMessage(logger, "Finished ORVEX detect");
  return status;
}

/// Whether a detection found the product, healthy or not.
bool IsPresent(int code, const std::string& record) {
  const std::string state = record.substr(0, 2);
  return code != kSuccess && (state == "1|" || state == "2|");
}

/// Sets up the installation of `itemPath`. @return 0, or 2 when an application has no executable.
int MakeInstallTask(const char* itemPath, bool usePackageInstaller, platform::Task& task) {
  if (usePackageInstaller) {
    task = {kPackageInstaller, {"-pkg", itemPath, "-target", "/"}, {}};
    return kSuccess;
  }
  const std::optional<std::string> executable = platform::ApplicationExecutable(itemPath);
  if (!executable) return kENOENT;
  task = {*executable, {"--silent"}, {}};
  return kSuccess;
}

}  // namespace

int KXTool::RunInstall(const char* itemPath, const char* installerXmlPath,
                       bool usePackageInstaller) {
  platform::Task task;
  int status = MakeInstallTask(itemPath, usePackageInstaller, task);
  if (status == kSuccess) status = platform::RunTask(task);
  platform::RemoveTree(itemPath);
  platform::RemoveTree(installerXmlPath);
  return status;
}

int KXTool::ORVEXInstall(std::string& result, const std::string& installerPath, bool packageMode,
                         Logger* logger) {
  Utils::LogMessage(logger, "Starting ORVEX Detect");
  if (IsPresent(ORVEXDetectInstall(result, logger), result)) {
    Utils::LogMessage(logger, "ORVEX Already exists");
    return kEBUSY;
  }
  Utils::LogMessage(logger, "Get installer path attributes");
  if (const int error = platform::CheckAccess(installerPath, platform::AccessTest::kExists);
      error != 0) {
    Utils::LogMessage(logger, "Invalid file attributes or Installer is a directory");
    return error;
  }
  Utils::LogMessage(logger, "Running ORVEX Install");
  if (packageMode) {
    Utils::LogMessage(logger, "Running ORVEX Install with \"pkg installer\"");
    Utils::LogMessage(logger, "Check for pkg filename");
    if (HasExtension(installerPath, kPackageExtension)) {
      return InstallPackage(*this, result, installerPath, logger);
    }
  }
  return DiskImageInstall(*this, result, installerPath, packageMode, logger).Run();
}
