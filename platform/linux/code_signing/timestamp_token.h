#ifndef PLATFORM_LINUX_CODE_SIGNING_TIMESTAMP_TOKEN_H_
#define PLATFORM_LINUX_CODE_SIGNING_TIMESTAMP_TOKEN_H_

#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/linux/code_signing/certificate.h"
#include "platform/linux/code_signing/check_context.h"

namespace platform::code_signing {

/// The contents of a valid time-stamp token.
struct Timestamp {
  std::int64_t time = 0;  ///< when the signature existed, in seconds since the Unix epoch
  CertificateList certificates;
};

/// Verifies a time-stamp token (RFC 3161): that it covers `signature`, that its own single
/// signature is valid, and that its authority's chain ends in an anchor.
/// @return nothing when the token is not valid.
std::optional<Timestamp> VerifyTimestampToken(std::string_view token, std::string_view signature,
                                              CheckContext& context);

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_TIMESTAMP_TOKEN_H_
