#ifndef DIAG_TEXT_H_
#define DIAG_TEXT_H_

#include <string_view>

namespace Utils {

/// Returns whether the texts are equal, ignoring the case of ASCII letters. Does not depend on the
/// locale.
bool EqualsIgnoringCase(std::string_view left, std::string_view right);

}  // namespace Utils

#endif  // DIAG_TEXT_H_
