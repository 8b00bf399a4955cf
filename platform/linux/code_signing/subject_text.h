#ifndef PLATFORM_LINUX_CODE_SIGNING_SUBJECT_TEXT_H_
#define PLATFORM_LINUX_CODE_SIGNING_SUBJECT_TEXT_H_

#include <openssl/asn1.h>

#include <string>

namespace platform::code_signing {

/// The text of a value in a certificate's subject, in UTF-8, as SecCertificate.c of Apple's open
/// Security project reads it. Bytes that the value's string type does not allow come back as a list
/// of hexadecimal numbers.
std::string SubjectText(const ASN1_STRING& value);

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_SUBJECT_TEXT_H_
