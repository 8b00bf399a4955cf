#ifndef PRODUCT_CODE_SIGNATURE_H_
#define PRODUCT_CODE_SIGNATURE_H_

#include <optional>
#include <string>

#include "platform/code_signing.h"

/// The steps of KXTool::CheckCodeSignature().

/// Whether `code` has a valid signature, for all its architectures.
bool CheckCodeValidity(const platform::StaticCode& code);

/// Takes the common name of the signing certificate.
/// @param name is empty after a success when the certificate has no common name.
/// @return 0, or 2 when the signature carries no certificates.
int SaveCertificateName(std::optional<std::string>& name, const platform::SigningInformation& info);

/// Takes the team identifier. @return 0, or 2 when the signature carries none.
int SaveCertificateTeamId(std::optional<std::string>& teamId,
                          const platform::SigningInformation& info);

/// Whether `name` and `teamId` are exactly the vendor's; an absent value never matches.
bool CheckIsSignedByCorvane(const std::optional<std::string>& name,
                            const std::optional<std::string>& teamId);

#endif  // PRODUCT_CODE_SIGNATURE_H_
