// Stands in for the Security framework, with the project's own verifier, and for Core Foundation.
// Their objects are Foundation objects, as on macOS.

#import <Foundation/Foundation.h>
#include <Security/Security.h>

#include <memory>
#include <vector>

#include "platform/code_signing.h"
#include "tests/gnustep/require.h"

namespace {

constexpr CFTypeID kArrayType = 1;
constexpr CFTypeID kStringType = 2;
constexpr CFTypeID kOtherType = 3;
constexpr SecCSFlags kAllInformation = 0x1E;

int livingHandles = 0;

id Object(CFTypeRef reference) {
  gnustep::Require(reference != nullptr, "a reference must not be null");
  return static_cast<id>(const_cast<void*>(reference));
}

}  // namespace

/// A framework's object. It holds one of the verifier's.
@interface KXHandle : NSObject {
 @public
  std::shared_ptr<const void>* content;
}
@end

@implementation KXHandle
+ (KXHandle*)handleFor:(const std::shared_ptr<const void>&)content {
  KXHandle* const handle = [[[KXHandle alloc] init] autorelease];
  handle->content = new std::shared_ptr<const void>(content);
  ++livingHandles;
  return handle;
}
- (void)dealloc {
  delete content;
  --livingHandles;
  [super dealloc];
}
@end

namespace {

/// Objects that the tool has received. It must have released them all when the program ends.
class HandedOut {
 public:
  ~HandedOut() {
    for (const id object : objects_) {
      gnustep::Require([object retainCount] == 1, "every object must be released exactly once");
      [object release];
    }
    gnustep::Require(livingHandles == 0, "every pool must be drained");
  }

  template <typename Reference>
  void Give(id object, Reference* reference) {
    gnustep::Require(reference != nullptr && *reference == nullptr,
                     "the variable for a returned reference must be null");
    objects_.push_back([object retain]);
    *reference = reinterpret_cast<Reference>([object retain]);
  }

 private:
  std::vector<id> objects_;
};

HandedOut handedOut;

const std::shared_ptr<const void>& Content(CFTypeRef reference) {
  gnustep::Require([Object(reference) isKindOfClass:[KXHandle class]],
                   "an object must have the expected type");
  return *static_cast<KXHandle*>(Object(reference))->content;
}

/// Makes a new text object: constant texts are shared and never released.
NSString* OwnText(const std::string& text) {
  return [NSMutableString stringWithUTF8String:text.c_str()];
}

/// Leaves an object in the caller's pool, as the framework does.
void UsePool() { [KXHandle handleFor:nullptr]; }

}  // namespace

extern "C" {

const CFStringRef kSecCodeInfoCertificates = reinterpret_cast<CFStringRef>(@"certificates");
const CFStringRef kSecCodeInfoTeamIdentifier = reinterpret_cast<CFStringRef>(@"teamid");

CFTypeRef CFRetain(CFTypeRef object) { return [Object(object) retain]; }
void CFRelease(CFTypeRef object) { [Object(object) release]; }

CFTypeID CFArrayGetTypeID() { return kArrayType; }
CFTypeID CFStringGetTypeID() { return kStringType; }
CFTypeID CFGetTypeID(CFTypeRef object) {
  if ([Object(object) isKindOfClass:[NSArray class]]) return kArrayType;
  return [Object(object) isKindOfClass:[NSString class]] ? kStringType : kOtherType;
}

CFIndex CFArrayGetCount(CFArrayRef array) { return static_cast<CFIndex>([Object(array) count]); }
const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index) {
  return [Object(array) objectAtIndex:static_cast<NSUInteger>(index)];
}
const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key) {
  return [Object(dictionary) objectForKey:Object(key)];
}

OSStatus SecStaticCodeCreateWithPath(CFURLRef path, SecCSFlags flags, SecStaticCodeRef* code) {
  gnustep::Require(flags == kSecCSDefaultFlags,
                   "static code must be created with the default flags");
  UsePool();
  linux_platform::StaticCode made;
  const OSStatus status =
      linux_platform::CreateStaticCode([[Object(path) path] fileSystemRepresentation], made);
  if (status == errSecSuccess) handedOut.Give([KXHandle handleFor:made.handle], code);
  return status;
}

OSStatus SecStaticCodeCheckValidityWithErrors(SecStaticCodeRef code, SecCSFlags flags,
                                              SecRequirementRef requirement, CFErrorRef* errors) {
  gnustep::Require(flags == kSecCSCheckAllArchitectures, "all architectures must be checked");
  gnustep::Require(requirement == nullptr, "no requirement may be passed");
  UsePool();
  const OSStatus status = linux_platform::CheckValidity({Content(code)});
  if (status != errSecSuccess) handedOut.Give(OwnText("an error"), errors);
  return status;
}

OSStatus SecCodeCopySigningInformation(SecStaticCodeRef code, SecCSFlags flags,
                                       CFDictionaryRef* information) {
  gnustep::Require(flags == kAllInformation, "all signing information must be requested");
  UsePool();
  linux_platform::SigningInformation found;
  const OSStatus status = linux_platform::CopySigningInformation({Content(code)}, found);
  if (status != errSecSuccess) return status;
  NSMutableDictionary* const parts = [NSMutableDictionary dictionary];
  if (found.certificates) {
    NSMutableArray* const chain = [NSMutableArray array];
    for (const linux_platform::Certificate& certificate : *found.certificates) {
      [chain addObject:[KXHandle handleFor:certificate.handle]];
    }
    [parts setObject:chain forKey:@"certificates"];
  }
  if (found.teamIdentifier) [parts setObject:OwnText(*found.teamIdentifier) forKey:@"teamid"];
  handedOut.Give(parts, information);
  return status;
}

OSStatus SecCertificateCopyCommonName(SecCertificateRef certificate, CFStringRef* commonName) {
  UsePool();
  std::optional<std::string> name;
  const OSStatus status = linux_platform::CopyCommonName({Content(certificate)}, name);
  if (name) handedOut.Give(OwnText(*name), commonName);
  return status;
}

CFStringRef SecCopyErrorMessageString(OSStatus status, void* reserved) {
  gnustep::Require(status != errSecSuccess && reserved == nullptr,
                   "messages may be requested only for errors");
  UsePool();
  CFStringRef message = nullptr;
  handedOut.Give(OwnText("a message"), &message);
  return message;
}

}  // extern "C"
