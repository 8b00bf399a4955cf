#include "platform/bundle.h"

#import <AppKit/AppKit.h>

#include "platform/macos/foundation_text.h"

namespace platform {
namespace {

/// AppKit's workspace, or nil. The tool is not linked against AppKit, which is loaded only when it
/// is needed.
NSWorkspace* SharedWorkspace() {
  [[NSBundle bundleWithPath:@"/System/Library/Frameworks/AppKit.framework"] load];
  return [NSClassFromString(@"NSWorkspace") sharedWorkspace];
}

/// The application at `path` as the workspace knows it, or nil.
NSString* FullPathForApplication(NSString* path) {
// Deprecated in macOS 11. Its replacement looks up applications by identifier, not by path.
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"
  return [SharedWorkspace() fullPathForApplication:path];
#pragma clang diagnostic pop
}

}  // namespace

std::optional<std::string> MainBundleText(const std::string& key) {
  @autoreleasepool {
    const id value = [[NSBundle mainBundle] objectForInfoDictionaryKey:ToNsString(key)];
    if (![value isKindOfClass:[NSString class]]) return std::nullopt;
    return FromNsString(value);
  }
}

std::optional<std::string> ApplicationExecutable(const std::string& bundlePath) {
  @autoreleasepool {
    NSString* const given = ToNsString(bundlePath);
    if ([given length] == 0) return std::nullopt;
    // The workspace takes a relative path for a name and may find another application.
    NSString* const path = [[NSURL fileURLWithPath:given] path];
    if (path == nil) return std::nullopt;
    NSString* const known = FullPathForApplication(path);
    // The workspace may not know an application that was copied a moment ago.
    NSBundle* const bundle = [NSBundle bundleWithPath:known == nil ? path : known];
    NSString* const executable = [bundle executablePath];
    if (executable == nil) return std::nullopt;
    return FromNsString(executable);
  }
}

}  // namespace platform
