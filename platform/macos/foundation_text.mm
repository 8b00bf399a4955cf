#include "platform/macos/foundation_text.h"

namespace platform {

NSString* ToNsString(const std::string& text) {
  return [[[NSString alloc] initWithBytes:text.data()
                                   length:text.size()
                                 encoding:NSUTF8StringEncoding] autorelease];
}

std::string FromNsString(NSString* string) {
  if (string == nil) return "";
  NSData* const bytes = [string dataUsingEncoding:NSUTF8StringEncoding];
  return std::string(static_cast<const char*>([bytes bytes]), [bytes length]);
}

}  // namespace platform
