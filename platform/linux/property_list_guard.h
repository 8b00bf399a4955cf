#ifndef PLATFORM_LINUX_PROPERTY_LIST_GUARD_H_
#define PLATFORM_LINUX_PROPERTY_LIST_GUARD_H_

#include <string_view>

namespace platform {

/// Looks at a property list before libplist sees it, because libplist frees its tree by recursion,
/// expands an object of a binary list anew for every reference to it, takes quadratic time for the
/// entities of a text and for keys of equal hash, aborts at UTF-16 keys with a zero in them, and
/// does not miss the end of a text that is cut off behind its last value. The markup is read as
/// libplist reads it.
///
/// @return false when the list is nested too deeply, has too many values, grows too large when
///     expanded, takes too long, has UTF-16 text with a zero in it, or lacks its last tag. True
///     says nothing about whether it can be parsed.
bool IsWithinPropertyListLimits(std::string_view bytes);

}  // namespace platform

#endif  // PLATFORM_LINUX_PROPERTY_LIST_GUARD_H_
