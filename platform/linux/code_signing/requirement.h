#ifndef PLATFORM_LINUX_CODE_SIGNING_REQUIREMENT_H_
#define PLATFORM_LINUX_CODE_SIGNING_REQUIREMENT_H_

#include <optional>
#include <string_view>

#include "platform/linux/code_signing/requirement_subject.h"

namespace platform::code_signing {

/// Parses the text of a code requirement (requirements.grammar of Apple's open Security project).
///
/// Understood are `identifier`, `cdhash`, `anchor apple`, `anchor apple generic`, digests,
/// extensions (`field.OID`) and subject attributes of the chain's certificates, `and`, `or`, `!`,
/// parentheses and comments: what signing tools write for nested code. Conditions on Info.plist,
/// entitlements, trust settings and notarisation are not.
///
/// @return nothing when the text is malformed, not understood, or unreasonably long or deep.
std::optional<Requirement> ParseRequirement(std::string_view text);

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_REQUIREMENT_H_
