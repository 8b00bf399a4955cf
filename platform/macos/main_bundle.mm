#import <Foundation/Foundation.h>

#include "platform/bundle.h"
#include "platform/macos/foundation_text.h"

namespace platform {

std::optional<std::string> MainBundleText(const std::string& key) {
  @autoreleasepool {
    const id value = [[NSBundle mainBundle] objectForInfoDictionaryKey:ToNsString(key)];
    if (![value isKindOfClass:[NSString class]]) return std::nullopt;
    return FromNsString(value);
  }
}

}  // namespace platform
