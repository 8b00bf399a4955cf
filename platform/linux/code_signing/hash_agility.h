#ifndef PLATFORM_LINUX_CODE_SIGNING_HASH_AGILITY_H_
#define PLATFORM_LINUX_CODE_SIGNING_HASH_AGILITY_H_

#include "platform/linux/code_signing/cms_message.h"
#include "platform/linux/code_signing/code_directory_set.h"

namespace platform::code_signing {

/// Checks the two signed attributes in which Apple's signers list the hashes of all
/// CodeDirectories, because the signature itself covers only the one in the main slot
/// (SecStaticCode::verifySignature() in StaticCode.cpp of Apple's open Security project). Stricter
/// than the platform: a directory that neither the signature nor an attribute covers is an error,
/// because anybody could have added it, and everything else may be compared with it.
/// @return kErrSecSuccess when all directories are covered.
OsStatus CheckHashAgility(const CmsSigner& signer, const CodeDirectorySet& directories);

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_HASH_AGILITY_H_
