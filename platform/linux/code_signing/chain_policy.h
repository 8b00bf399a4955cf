#ifndef PLATFORM_LINUX_CODE_SIGNING_CHAIN_POLICY_H_
#define PLATFORM_LINUX_CODE_SIGNING_CHAIN_POLICY_H_

#include <cstdint>

#include "platform/linux/code_signing/certificate.h"
#include "platform/linux/code_signing/status.h"
#include "platform/linux/code_signing/trust_store.h"

namespace platform::code_signing {

/// The use of the leaf's key.
enum class ChainPurpose { kCodeSigning, kTimeStamping };

enum class DateRule {
  kEnforce,
  kTolerate,  ///< certificates that have expired, or are not valid yet, pass
};

/// Evaluates a chain by the rules of RFC 5280 and of the purpose's policy (SecPolicy.c and
/// SecPolicyServer.c of Apple's open Security project). The last certificate must be an anchor.
/// @return kErrSecSuccess, or the failure that SecTrustGetCssmResultCode() would report.
OsStatus EvaluateChain(const CertificateChain& chain, ChainPurpose purpose, std::int64_t time,
                       DateRule dateRule, const TrustStore& trust);

/// Whether the chain is that of an Apple developer: Developer ID, App Store and development
/// certificates under an Apple root.
bool IsAppleDeveloperChain(const CertificateChain& chain);

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_CHAIN_POLICY_H_
