#ifndef PLATFORM_LINUX_CODE_SIGNING_REQUIREMENT_SUBJECT_H_
#define PLATFORM_LINUX_CODE_SIGNING_REQUIREMENT_SUBJECT_H_

#include <openssl/x509.h>

#include <functional>
#include <string>
#include <vector>

namespace platform::code_signing {

/// What a code requirement is evaluated against: one validated slice of a piece of code.
struct RequirementSubject {
  std::string identifier;
  std::string cdHash;                     ///< the first 20 bytes of the best CodeDirectory's hash
  std::vector<const X509*> certificates;  ///< leaf first; empty for ad-hoc signed code
};

/// A requirement, ready to be evaluated. @return whether the subject satisfies it.
using Requirement = std::function<bool(const RequirementSubject& subject)>;

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_REQUIREMENT_SUBJECT_H_
