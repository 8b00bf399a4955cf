#ifndef PLATFORM_LINUX_CODE_SIGNING_CERTIFICATE_CHAIN_H_
#define PLATFORM_LINUX_CODE_SIGNING_CERTIFICATE_CHAIN_H_

#include "platform/linux/code_signing/certificate.h"
#include "platform/linux/code_signing/check_context.h"

namespace platform::code_signing {

/// Builds the chain of `leaf`, with issuers from `embedded` first, then from the anchors. An issuer
/// has the right name and a key that verifies the signature; only usable keys are tried
/// (HasUsableKey()). Policy and expiry are not checked here.
/// @return a chain that ends in an anchor if there is one, else one that ends in a self-signed
///     certificate, else the longest incomplete one. Never empty.
CertificateChain BuildChain(const CertificatePtr& leaf, const CertificateList& embedded,
                            CheckContext& context);

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_CERTIFICATE_CHAIN_H_
