#ifndef PLATFORM_LINUX_CODE_SIGNING_CERTIFICATE_CHAIN_H_
#define PLATFORM_LINUX_CODE_SIGNING_CERTIFICATE_CHAIN_H_

#include "platform/linux/code_signing/certificate.h"
#include "platform/linux/code_signing/check_context.h"

namespace platform::code_signing {

/// Builds the chain of `leaf`, with issuers from `embedded` and, after those, from the anchors. An
/// issuer is who has the name and whose key made the signature. Whether it may issue, and whether
/// anything has expired, is not asked here. Keys that no authority has are not tried.
/// @return a chain that ends in an anchor if there is one, else one that ends in a self-signed
///     certificate, else whatever could be found. Never empty.
CertificateChain BuildChain(const CertificatePtr& leaf, const CertificateList& embedded,
                            CheckContext& context);

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_CERTIFICATE_CHAIN_H_
