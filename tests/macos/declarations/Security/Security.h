#ifndef TESTS_MACOS_DECLARATIONS_SECURITY_SECURITY_H_
#define TESTS_MACOS_DECLARATIONS_SECURITY_SECURITY_H_

#include <cstdint>

#include "tests/macos/declarations/CoreFoundation/CoreFoundation.h"
#include "tests/macos/declarations/declare.h"

using OSStatus = std::int32_t;
using SecCSFlags = std::uint32_t;
using SecCodeRef = struct __SecCode*;
using SecStaticCodeRef = const struct __SecCode*;
using SecCertificateRef = struct __SecCertificate*;
using SecRequirementRef = struct __SecRequirement*;

KX_CONSTANT(OSStatus, errSecSuccess, 0);
KX_CONSTANT(OSStatus, errSecParam, -50);

KX_CONSTANT(SecCSFlags, kSecCSDefaultFlags, 0);
KX_CONSTANT(SecCSFlags, kSecCSCheckAllArchitectures, 1 << 0);
KX_CONSTANT(SecCSFlags, kSecCSSigningInformation, 1 << 1);
KX_CONSTANT(SecCSFlags, kSecCSRequirementInformation, 1 << 2);
KX_CONSTANT(SecCSFlags, kSecCSDynamicInformation, 1 << 3);
KX_CONSTANT(SecCSFlags, kSecCSContentInformation, 1 << 4);

extern "C" {

extern const CFStringRef kSecCodeInfoCertificates;
extern const CFStringRef kSecCodeInfoTeamIdentifier;

OSStatus SecStaticCodeCreateWithPath(CFURLRef path, SecCSFlags flags, SecStaticCodeRef* code);
OSStatus SecStaticCodeCheckValidityWithErrors(SecStaticCodeRef code, SecCSFlags flags,
                                              SecRequirementRef requirement, CFErrorRef* errors);
OSStatus SecCodeCopySigningInformation(SecStaticCodeRef code, SecCSFlags flags,
                                       CFDictionaryRef* information);
OSStatus SecCertificateCopyCommonName(SecCertificateRef certificate, CFStringRef* commonName);
CFStringRef SecCopyErrorMessageString(OSStatus status, void* reserved);

}  // extern "C"

#endif  // TESTS_MACOS_DECLARATIONS_SECURITY_SECURITY_H_
