#ifndef PLATFORM_LINUX_CODE_SIGNING_REQUIREMENT_H_
#define PLATFORM_LINUX_CODE_SIGNING_REQUIREMENT_H_

#include <openssl/x509.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
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

/// Parses the text of a code requirement (requirements.grammar of Apple's open Security project).
///
/// Accepts what signing tools write for nested code: `identifier`, `cdhash`, `anchor apple`,
/// `anchor apple generic`, digests, extensions (`field.OID`) and subject attributes of the chain's
/// certificates, `and`, `or`, `!`, parentheses and comments. Rejects conditions on Info.plist,
/// entitlements, trust settings and notarisation.
///
/// @return nothing when the text is rejected, malformed, too long or too deeply nested.
std::optional<Requirement> ParseRequirement(std::string_view text);

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_REQUIREMENT_H_
