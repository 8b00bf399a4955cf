// In a file of its own: NSWorkspace belongs to AppKit.

#import <AppKit/AppKit.h>

#include "platform/bundle.h"
#include "platform/macos/foundation_text.h"

namespace platform {
namespace {

/// The application at `path` as the workspace knows it, or nil.
NSString* FullPathForApplication(NSString* path) {
// Deprecated in macOS 11. What replaces it looks applications up by identifier, not by path.
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"
  return [[NSWorkspace sharedWorkspace] fullPathForApplication:path];
#pragma clang diagnostic pop
}

}  // namespace

std::optional<std::string> ApplicationExecutable(const std::string& bundlePath) {
  @autoreleasepool {
    NSString* const path = ToNsString(bundlePath);
    if ([path length] == 0) return std::nullopt;
    NSString* const known = FullPathForApplication(path);
    // The workspace may not know an application that was copied a moment ago.
    NSBundle* const bundle = [NSBundle bundleWithPath:known == nil ? path : known];
    NSString* const executable = [bundle executablePath];
    if (executable == nil) return std::nullopt;
    return FromNsString(executable);
  }
}

}  // namespace platform
