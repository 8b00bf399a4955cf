#ifndef DIAG_TEXT_H_
#define DIAG_TEXT_H_

#include <string_view>

namespace Utils {

/// Whether the texts are equal, ASCII letters without regard to case. Independent of the locale.
bool EqualsIgnoringCase(std::string_view left, std::string_view right);

}  // namespace Utils

#endif  // DIAG_TEXT_H_
