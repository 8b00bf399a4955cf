#ifndef PLATFORM_LINUX_CODE_SIGNING_HASH_AGILITY_H_
#define PLATFORM_LINUX_CODE_SIGNING_HASH_AGILITY_H_

#include "platform/linux/code_signing/cms_message.h"
#include "platform/linux/code_signing/code_directory_set.h"

namespace platform::code_signing {

/// Checks the two signed attributes in which Apple's signers list the hashes of all
/// CodeDirectories, since the signature itself covers only one. An attribute that is absent is no
/// failure. (SecStaticCode::verifySignature() in StaticCode.cpp of Apple's open Security project.)
OsStatus CheckHashAgility(const CmsSigner& signer, const CodeDirectorySet& directories);

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_HASH_AGILITY_H_
