#ifndef PLATFORM_LINUX_CODE_SIGNING_REQUIREMENT_LEXER_H_
#define PLATFORM_LINUX_CODE_SIGNING_REQUIREMENT_LEXER_H_

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform::code_signing {

/// A piece of a requirement's text.
struct RequirementToken {
  enum class Kind {
    kWord,    ///< letters and digits separated by dots: a keyword, key or plain value
    kString,  ///< the text between quotes
    kNumber,  ///< decimal digits
    kHash,    ///< the bytes of H"..."
    kSymbol,  ///< one of ( ) [ ] = ! - ;
    kEnd,
  };

  Kind kind = Kind::kEnd;
  std::string text;
};

/// Splits the text of a requirement and drops comments and white space.
/// @return the tokens, ending with kEnd; nothing when a character cannot begin a token.
std::optional<std::vector<RequirementToken>> SplitRequirement(std::string_view text);

}  // namespace platform::code_signing

#endif  // PLATFORM_LINUX_CODE_SIGNING_REQUIREMENT_LEXER_H_
