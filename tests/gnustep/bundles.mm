// Bundles as macOS has them, and AppKit's workspace.

#import <AppKit/AppKit.h>
#import <Foundation/Foundation.h>

#include "platform/bundle.h"
#include "platform/files.h"
#include "tests/gnustep/require.h"

namespace {

bool isAppKitLoaded = false;

/// @return nil for no text.
NSString* Text(const std::optional<std::string>& text) {
  return text ? [NSString stringWithUTF8String:text->c_str()] : nil;
}

}  // namespace

// GNUstep's bundles have the executable at the top, and a tool's property list is a file.
@implementation NSBundle (KXMacOS)
- (id)objectForInfoDictionaryKey:(NSString*)key {
  gnustep::Require(self == [NSBundle mainBundle], "the property list is the tool's own");
  return Text(linux_platform::MainBundleText([key UTF8String]));
}
- (NSString*)executablePath {
  return Text(linux_platform::ApplicationExecutable([[self bundlePath] fileSystemRepresentation]));
}
- (BOOL)load {
  isAppKitLoaded =
      [[self bundlePath] isEqualToString:@"/System/Library/Frameworks/AppKit.framework"];
  gnustep::Require(isAppKitLoaded, "no framework but AppKit is loaded");
  return YES;
}
@end

@implementation NSWorkspace
+ (NSWorkspace*)sharedWorkspace {
  gnustep::Require(isAppKitLoaded, "AppKit is loaded before it is used");
  return [[[NSWorkspace alloc] init] autorelease];
}
- (NSString*)fullPathForApplication:(NSString*)application {
  gnustep::Require([application isAbsolutePath], "an application is not asked for by its name");
  return linux_platform::DirectoryExists([application fileSystemRepresentation]) ? application : nil;
}
@end
