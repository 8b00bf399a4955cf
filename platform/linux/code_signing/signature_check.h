#ifndef PLATFORM_LINUX_CODE_SIGNING_SIGNATURE_CHECK_H_
#define PLATFORM_LINUX_CODE_SIGNING_SIGNATURE_CHECK_H_

#include <string_view>

#include "platform/linux/code_signing/certificate.h"
#include "platform/linux/code_signing/check_context.h"
#include "platform/linux/code_signing/code_directory_set.h"

namespace platform::code_signing {

/// Verifies the CMS signature over the CodeDirectories of a slice, and its signer's chain.
/// @param message the bytes of the signature.
/// @param directoriesStatus why `directories` could not be loaded, or kErrSecSuccess. It is
///     reported only for a message that is CMS, even if truncated.
/// @param directories is used only when directoriesStatus is kErrSecSuccess.
/// @param chain receives the signer's chain on success.
OsStatus CheckSignature(std::string_view message, OsStatus directoriesStatus,
                        const CodeDirectorySet& directories, CheckContext& context,
                        CertificateChain& chain);

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_SIGNATURE_CHECK_H_
