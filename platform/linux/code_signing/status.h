#ifndef PLATFORM_LINUX_CODE_SIGNING_STATUS_H_
#define PLATFORM_LINUX_CODE_SIGNING_STATUS_H_

#include "platform/code_signing.h"

namespace platform::code_signing {

/// The verifier's statuses, under the names of Apple's headers (CSCommon.h, SecBase.h,
/// cssmapple.h).
enum : OsStatus {
  kErrSecSuccess = 0,
  kErrSecAllocate = -108,
  kErrSecCoreFoundationUnknown = -4960,
  kErrSecUnknownFormat = -25257,
  kErrSecDecode = -26275,
  kErrSecInternal = -26276,

  kErrSecCSInvalidTeamIdentifier = -66998,
  kErrSecCSBadTeamIdentifier = -66997,
  kErrSecCSUnsupportedDigestAlgorithm = -67000,
  kErrSecCSAmbiguousBundleFormat = -67011,
  kErrSecCSDSStoreSymlink = -67012,
  kErrSecCSBadNestedCode = -67021,
  kErrSecCSResourceDirectoryFailed = -67023,
  kErrSecCSBadBundleFormat = -67028,
  kErrSecCSInfoPlistFailed = -67030,
  kErrSecCSSignatureInvalid = -67045,
  kErrSecCSInternalError = -67048,
  kErrSecCSBadObjectFormat = -67049,
  kErrSecCSReqFailed = -67050,
  kErrSecCSResourceRulesInvalid = -67053,
  kErrSecCSBadResource = -67054,
  kErrSecCSResourcesInvalid = -67055,
  kErrSecCSResourcesNotFound = -67056,
  kErrSecCSBadDictionaryFormat = -67058,
  kErrSecCSSignatureUnsupported = -67059,
  kErrSecCSSignatureFailed = -67061,
  kErrSecCSUnsigned = -67062,
  kErrSecCSStaticCodeNotFound = -67068,
  kErrSecInternalError = -67671,

  kTpNotTrusted = -2147409622,
  kTpCertExpired = -2147409654,
  kTpInvalidCertificate = -2147409643,
  kTpInvalidExtendedKeyUsage = -2147408889,
  kTpInvalidKeyUsage = -2147408890,
  kTpPathLengthExceeded = -2147408887,
  kTpInvalidAuthorityId = -2147408892,
  kTpInvalidCa = -2147408893,
  kTpNoBasicConstraints = -2147408894,
  kTpUnknownCriticalExtension = -2147408895,
  kTpInvalidEmptySubject = -2147408841,
  kTpUnknownCertificateExtension = -2147408880,
  kInvalidDigestAlgorithm = -2147415723,
};

/// Returns the status for an `errno` of this host: 100000 plus macOS's number for the same error.
/// ENOEXEC is kErrSecCSBadObjectFormat.
OsStatus StatusFromErrno(int error);

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_STATUS_H_
