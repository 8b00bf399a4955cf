#include "product/code_signature.h"

#include "app/error_codes.h"
#include "app/kx_tool.h"
#include "diag/log_message.h"

namespace {

constexpr char kVendorCommonName[] = "Developer ID Application: Corvane SRL (QK7ZP2M9XD)";
constexpr char kVendorTeamIdentifier[] = "QK7ZP2M9XD";

}  // namespace

bool CheckCodeValidity(const platform::StaticCode& code) {
  return platform::CheckValidity(code) == kSuccess;
}

int SaveCertificateName(std::optional<std::string>& name,
                        const platform::SigningInformation& info) {
  if (!info.certificates || info.certificates->empty()) return kENOENT;
  // A certificate without a common name is not an error here: no name compares equal to it.
  static_cast<void>(platform::CopyCommonName(info.certificates->front(), name));
  return kSuccess;
}

int SaveCertificateTeamId(std::optional<std::string>& teamId,
                          const platform::SigningInformation& info) {
  if (!info.teamIdentifier) return kENOENT;
  teamId = info.teamIdentifier;
  return kSuccess;
}

bool CheckIsSignedByCorvane(const std::optional<std::string>& name,
                            const std::optional<std::string>& teamId) {
  return name == kVendorCommonName && teamId == kVendorTeamIdentifier;
}

int KXTool::CheckCodeSignature(bool& isSigned, const char* path, Logger* logger) {
  isSigned = false;
  const platform::AutoreleasePool pool;
  Utils::LogMessage(logger, "Retrieve Sec static code for ", path);
  platform::StaticCode code;
  if (const platform::OsStatus status = platform::CreateStaticCode(path, code);
      status != kSuccess) {
    Utils::LogMessage(logger, "Failed to retrieve static code. Error code: ", status);
    return status;
  }

  Utils::LogMessage(logger, "Check code validity");
  if (!CheckCodeValidity(code)) {
    Utils::LogMessage(logger, "Code is not valid");
    return kSuccess;
  }
  Utils::LogMessage(logger, "Code is valid");

  Utils::LogMessage(logger, "Retrieve signing information");
  platform::SigningInformation info;
  if (const platform::OsStatus status = platform::CopySigningInformation(code, info);
      status != kSuccess) {
    Utils::LogMessage(logger, "Failed to retrieve signing information. Error code: ", status);
    return status;
  }
  Utils::LogMessage(logger, "Signing information retrieved successfully");

  Utils::LogMessage(logger, "Save certificate name");
  std::optional<std::string> name;
  if (const int status = SaveCertificateName(name, info); status != kSuccess) {
    Utils::LogMessage(logger, "Cannot save certificate. Error code: ", status);
    return status;
  }
  Utils::LogMessage(logger, "Certificate saved successfully");

  Utils::LogMessage(logger, "Save certificate team id");
  std::optional<std::string> teamId;
  if (const int status = SaveCertificateTeamId(teamId, info); status != kSuccess) {
    Utils::LogMessage(logger, "Failed to save certificate team id. Error code: ", status);
    return status;
  }
  Utils::LogMessage(logger, "Certificate team id saved successfully");

  Utils::LogMessage(logger, "Check if it is signed by Corvane");
  isSigned = CheckIsSignedByCorvane(name, teamId);
  Utils::LogMessage(logger, "Check complete. File is ", isSigned ? "signed" : "not signed",
                    " by Corvane");
  return kSuccess;
}
