#include <string>

#include "app/error_codes.h"
#include "app/kx_tool.h"
#include "diag/log_message.h"
#include "platform/dynamic_library.h"

namespace {

constexpr char kLinksLibrary[] = "libsl.dylib";

/// The library's one export. Tool and library share the standard library's string type.
using GetInstallationLinksFunction = int (*)(std::string& result, const char* consoleUrl,
                                             const char* apiKey, const char* packageName,
                                             bool setupDownloaderLink);

/// @return 0 when the library in the working directory is signed by the vendor
int CheckLinksLibrary(KXTool& tool, Logger* logger) {
  Utils::LogMessage(logger, "Searching for \"libsl.dylib\"");
  bool valid = false;
  if (const int code = tool.CheckCodeSignature(valid, kLinksLibrary, logger); code != kSuccess) {
    Utils::LogMessage(logger, "Cannot check signature for \"libsl.dylib\". Exit code: ", code);
    return code;
  }
  if (!valid) {
    Utils::LogMessage(logger, "Invalid signature for \"libsl.dylib\"");
    return kEINVAL;
  }
  return kSuccess;
}

}  // namespace

int KXTool::GetInstallationLinks(std::string& result, const char* consoleUrl, const char* apiKey,
                                 const char* packageName, bool setupDownloaderLink,
                                 Logger* logger) {
  if (const int code = CheckLinksLibrary(*this, logger); code != kSuccess) return code;

  platform::DynamicLibrary library = platform::DynamicLibrary::OpenFromWorkingDirectory(
      kLinksLibrary, platform::Binding::kLazyGlobal);
  if (!library.IsOpen()) {
    Utils::LogMessage(logger, "Library not found");
    return kEAGAIN;
  }
  Utils::LogMessage(logger, "Set the \"GetInstallationLinks\" handle");
  const auto getLinks =
      reinterpret_cast<GetInstallationLinksFunction>(library.FindSymbol("GetInstallationLinks"));
  if (getLinks == nullptr) {
    library.Close();
    Utils::LogMessage(logger, "Handle not found");
    return kENOENT;
  }
  const int code = getLinks(result, consoleUrl, apiKey, packageName, setupDownloaderLink);
  Utils::LogMessage(logger, "Method finished with exit code: ", code);
  return code;
}
