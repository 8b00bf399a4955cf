#include "platform/code_signing.h"

#import <Foundation/Foundation.h>
#include <Security/Security.h>
#include <gtest/gtest.h>

#include "platform/macos/foundation_text.h"

// The framework is scripted here. Its objects are Foundation objects, as on macOS, where the two
// kinds can stand for each other; so reference counts are real.

namespace {

constexpr CFTypeID kArrayType = 1;
constexpr CFTypeID kStringType = 2;
constexpr CFTypeID kOtherType = 3;

/// What the framework was asked for, and what it answers.
struct Framework {
  std::string path;
  SecCSFlags createFlags = 77;
  SecCSFlags checkFlags = 77;
  SecCSFlags informationFlags = 77;
  bool hadRequirement = false;
  int messages = 0;
  OSStatus status = errSecSuccess;
  NSObject* object = nil;  ///< created or copied next
  NSObject* error = nil;   ///< of the validity check
};

Framework framework;

id Object(CFTypeRef reference) { return static_cast<id>(const_cast<void*>(reference)); }

/// Hands out a reference of its own to `object`.
template <typename Reference>
void Give(NSObject* object, Reference* reference) {
  if (object != nil) *reference = reinterpret_cast<Reference>([object retain]);
}

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
  framework.path = platform::FromNsString([Object(path) path]);
  framework.createFlags = flags;
  Give(framework.object, code);
  return framework.status;
}

OSStatus SecStaticCodeCheckValidityWithErrors(SecStaticCodeRef, SecCSFlags flags,
                                              SecRequirementRef requirement, CFErrorRef* errors) {
  framework.checkFlags = flags;
  framework.hadRequirement = requirement != nullptr;
  Give(framework.error, errors);
  return framework.status;
}

OSStatus SecCodeCopySigningInformation(SecStaticCodeRef, SecCSFlags flags,
                                       CFDictionaryRef* information) {
  framework.informationFlags = flags;
  Give(framework.object, information);
  return framework.status;
}

OSStatus SecCertificateCopyCommonName(SecCertificateRef, CFStringRef* commonName) {
  Give(framework.object, commonName);
  return framework.status;
}

CFStringRef SecCopyErrorMessageString(OSStatus, void*) {
  ++framework.messages;
  return reinterpret_cast<CFStringRef>([@"message" retain]);
}

}  // extern "C"

namespace platform {
namespace {

/// Each test has a pool of its own, and the framework's objects are counted against leaks.
class SecurityFrameworkTest : public testing::Test {
 protected:
  SecurityFrameworkTest() : pool_([[NSAutoreleasePool alloc] init]) { framework = Framework(); }
  ~SecurityFrameworkTest() override { [pool_ release]; }

  static NSObject* NewObject() { return [[[NSObject alloc] init] autorelease]; }

  static StaticCode Code() {
    framework.object = NewObject();
    StaticCode code;
    EXPECT_EQ(CreateStaticCode("/code", code), errSecSuccess);
    framework.object = nil;
    return code;
  }

 private:
  NSAutoreleasePool* pool_;
};

TEST_F(SecurityFrameworkTest, CreatesCodeFromAPath) {
  NSObject* const object = NewObject();
  framework.object = object;
  {
    StaticCode code;
    EXPECT_EQ(CreateStaticCode("/Library/it's \xC3\xA4/lib.dylib", code), errSecSuccess);
    EXPECT_EQ(code.handle.get(), object);
    EXPECT_EQ([object retainCount], 2u);
    const StaticCode copy = code;
    EXPECT_EQ([object retainCount], 2u);
  }
  EXPECT_EQ([object retainCount], 1u);
  EXPECT_EQ(framework.path, "/Library/it's \xC3\xA4/lib.dylib");
  EXPECT_EQ(framework.createFlags, kSecCSDefaultFlags);
}

TEST_F(SecurityFrameworkTest, PassesTheStatusOnAndLeavesTheCodeEmpty) {
  NSObject* const object = NewObject();
  framework.object = object;
  framework.status = -67062;
  StaticCode code = {std::make_shared<int>(1)};
  EXPECT_EQ(CreateStaticCode("/code", code), -67062);
  EXPECT_EQ(code.handle, nullptr);
  EXPECT_EQ([object retainCount], 1u);
}

TEST_F(SecurityFrameworkTest, APathThatIsNoTextIsABadParameter) {
  StaticCode code;
  EXPECT_EQ(CreateStaticCode("\xFF\xFE", code), errSecParam);
  EXPECT_EQ(code.handle, nullptr);
}

TEST_F(SecurityFrameworkTest, ChecksEveryArchitectureAgainstNoRequirement) {
  const StaticCode code = Code();
  EXPECT_EQ(CheckValidity(code), errSecSuccess);
  EXPECT_EQ(framework.checkFlags, 1u);
  EXPECT_FALSE(framework.hadRequirement);
  EXPECT_EQ(framework.messages, 0);
}

TEST_F(SecurityFrameworkTest, AFailedCheckReleasesItsErrorAndFetchesTheMessage) {
  const StaticCode code = Code();
  NSObject* const error = NewObject();
  framework.error = error;
  framework.status = -67061;
  EXPECT_EQ(CheckValidity(code), -67061);
  EXPECT_EQ([error retainCount], 1u);
  EXPECT_EQ(framework.messages, 1);
}

TEST_F(SecurityFrameworkTest, CopiesChainAndTeam) {
  const StaticCode code = Code();
  NSObject* const leaf = NewObject();
  NSObject* const root = NewObject();
  const NSUInteger references = [leaf retainCount];
  {
    NSAutoreleasePool* const pool = [[NSAutoreleasePool alloc] init];
    framework.object =
        [NSDictionary dictionaryWithObjectsAndKeys:[NSArray arrayWithObjects:leaf, root, nil],
                                                   @"certificates", @"TEAM\u00E4", @"teamid", nil];
    SigningInformation information;
    EXPECT_EQ(CopySigningInformation(code, information), errSecSuccess);
    EXPECT_EQ(framework.informationFlags, 0x1Eu);
    framework.object = nil;
    [pool release];
    // The dictionary is gone, and the chain stays.
    ASSERT_TRUE(information.certificates);
    ASSERT_EQ(information.certificates->size(), 2u);
    EXPECT_EQ((*information.certificates)[0].handle.get(), leaf);
    EXPECT_EQ((*information.certificates)[1].handle.get(), root);
    EXPECT_EQ(information.teamIdentifier, "TEAM\xC3\xA4");
    EXPECT_EQ([leaf retainCount], references + 1);
  }
  EXPECT_EQ([leaf retainCount], references);
}

TEST_F(SecurityFrameworkTest, WhatTheSignatureLacksIsAbsent) {
  const StaticCode code = Code();
  framework.object = [NSDictionary dictionary];
  SigningInformation information;
  information.teamIdentifier = "old";
  EXPECT_EQ(CopySigningInformation(code, information), errSecSuccess);
  EXPECT_FALSE(information.certificates);
  EXPECT_FALSE(information.teamIdentifier);
}

TEST_F(SecurityFrameworkTest, WhatHasAnotherTypeIsAbsent) {
  const StaticCode code = Code();
  framework.object = [NSDictionary
      dictionaryWithObjectsAndKeys:@"text", @"certificates", [NSArray array], @"teamid", nil];
  SigningInformation information;
  EXPECT_EQ(CopySigningInformation(code, information), errSecSuccess);
  EXPECT_FALSE(information.certificates);
  EXPECT_FALSE(information.teamIdentifier);
}

TEST_F(SecurityFrameworkTest, AFailureLeavesTheInformation) {
  const StaticCode code = Code();
  framework.status = -67068;
  SigningInformation information;
  information.teamIdentifier = "old";
  EXPECT_EQ(CopySigningInformation(code, information), -67068);
  EXPECT_EQ(information.teamIdentifier, "old");
}

TEST_F(SecurityFrameworkTest, CopiesTheCommonName) {
  const Certificate certificate = {Code().handle};
  framework.object = @"Developer ID Application: \u00C4";
  std::optional<std::string> name = "old";
  EXPECT_EQ(CopyCommonName(certificate, name), errSecSuccess);
  EXPECT_EQ(name, "Developer ID Application: \xC3\x84");
}

TEST_F(SecurityFrameworkTest, ACertificateMayHaveNoCommonName) {
  const Certificate certificate = {Code().handle};
  framework.status = -25300;
  std::optional<std::string> name = "old";
  EXPECT_EQ(CopyCommonName(certificate, name), -25300);
  EXPECT_FALSE(name);
}

}  // namespace
}  // namespace platform
