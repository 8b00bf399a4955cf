#ifndef PLATFORM_MACOS_FOUNDATION_TEXT_H_
#define PLATFORM_MACOS_FOUNDATION_TEXT_H_

#import <Foundation/Foundation.h>

#include <string>

namespace platform {

/// @return an autoreleased string, or nil when `text` is not UTF-8.
NSString* ToNsString(const std::string& text);

/// @return the text of `string` in UTF-8; empty for nil.
std::string FromNsString(NSString* string);

}  // namespace platform

#endif  // PLATFORM_MACOS_FOUNDATION_TEXT_H_
