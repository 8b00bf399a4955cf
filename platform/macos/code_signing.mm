#include "platform/code_signing.h"

#import <Foundation/Foundation.h>
#include <Security/Security.h>

#include "platform/macos/foundation_text.h"
#include "platform/macos/scoped_cf.h"

namespace platform {
namespace {

constexpr SecCSFlags kInformationFlags = kSecCSSigningInformation | kSecCSRequirementInformation |
                                         kSecCSDynamicInformation | kSecCSContentInformation;
static_assert(kInformationFlags == 0x1E, "the parts of the signing information that are asked for");
static_assert(kSecCSCheckAllArchitectures == 1, "every slice of a universal file is checked");

/// Gives the handle its own reference to `object`.
std::shared_ptr<const void> Share(CFTypeRef object) {
  return std::shared_ptr<const void>(CFRetain(object), CFRelease);
}

SecStaticCodeRef CodeOf(const StaticCode& code) {
  return static_cast<SecStaticCodeRef>(const_cast<void*>(code.handle.get()));
}

/// The value of `key`, or null when it is absent or of another type.
CFTypeRef Find(CFDictionaryRef dictionary, CFStringRef key, CFTypeID type) {
  const CFTypeRef value = CFDictionaryGetValue(dictionary, key);
  return value != nullptr && CFGetTypeID(value) == type ? value : nullptr;
}

std::vector<Certificate> ToCertificates(CFArrayRef chain) {
  std::vector<Certificate> certificates;
  certificates.reserve(static_cast<std::size_t>(CFArrayGetCount(chain)));
  for (CFIndex index = 0; index < CFArrayGetCount(chain); ++index) {
    certificates.push_back({Share(CFArrayGetValueAtIndex(chain, index))});
  }
  return certificates;
}

}  // namespace

AutoreleasePool::AutoreleasePool() : pool_([[NSAutoreleasePool alloc] init]) {}

AutoreleasePool::~AutoreleasePool() { [static_cast<NSAutoreleasePool*>(pool_) drain]; }

OsStatus CreateStaticCode(const std::string& path, StaticCode& code) {
  code = {};
  NSString* const pathNs = ToNsString(path);
  if (pathNs == nil) return errSecParam;
  NSURL* const url = [NSURL fileURLWithPath:pathNs];
  ScopedCf<SecStaticCodeRef> created;
  const OSStatus status = SecStaticCodeCreateWithPath(reinterpret_cast<CFURLRef>(url),
                                                      kSecCSDefaultFlags, created.Receive());
  if (status == errSecSuccess) code.handle = Share(created.Get());
  return status;
}

OsStatus CheckValidity(const StaticCode& code) {
  ScopedCf<CFErrorRef> error;
  const OSStatus status = SecStaticCodeCheckValidityWithErrors(
      CodeOf(code), kSecCSCheckAllArchitectures, nullptr, error.Receive());
  if (error) {
    const ScopedCf<CFStringRef> message(SecCopyErrorMessageString(status, nullptr));
  }
  return status;
}

OsStatus CopySigningInformation(const StaticCode& code, SigningInformation& information) {
  ScopedCf<CFDictionaryRef> parts;
  const OSStatus status =
      SecCodeCopySigningInformation(CodeOf(code), kInformationFlags, parts.Receive());
  if (status != errSecSuccess) return status;
  information = {};
  if (const CFTypeRef chain = Find(parts.Get(), kSecCodeInfoCertificates, CFArrayGetTypeID())) {
    information.certificates = ToCertificates(static_cast<CFArrayRef>(chain));
  }
  if (const CFTypeRef team = Find(parts.Get(), kSecCodeInfoTeamIdentifier, CFStringGetTypeID())) {
    information.teamIdentifier = FromNsString(static_cast<NSString*>(team));
  }
  return status;
}

OsStatus CopyCommonName(const Certificate& certificate, std::optional<std::string>& name) {
  name.reset();
  const auto reference =
      static_cast<SecCertificateRef>(const_cast<void*>(certificate.handle.get()));
  ScopedCf<CFStringRef> copied;
  const OSStatus status = SecCertificateCopyCommonName(reference, copied.Receive());
  if (copied) name = FromNsString(reinterpret_cast<NSString*>(copied.Get()));
  return status;
}

}  // namespace platform
