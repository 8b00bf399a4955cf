#ifndef PLATFORM_LINUX_CODE_SIGNING_SUBJECT_TEXT_H_
#define PLATFORM_LINUX_CODE_SIGNING_SUBJECT_TEXT_H_

#include <openssl/asn1.h>

#include <string>

namespace platform::code_signing {

/// Decodes a value in a certificate's subject to UTF-8, as SecCertificate.c of Apple's open
/// Security project does. Bytes that are illegal in the value's string type yield a list of
/// hexadecimal numbers.
std::string SubjectText(const ASN1_STRING& value);

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_SUBJECT_TEXT_H_
