// Replaces what GNUstep's Foundation does differently from that of macOS. Stands in for AppKit.

#import <AppKit/AppKit.h>
#import <Foundation/Foundation.h>
#include <objc/runtime.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "platform/bundle.h"
#include "platform/files.h"
#include "tests/gnustep/require.h"

namespace {

bool isAppKitLoaded = false;

/// The errno of a child's failed exec. The child shares it with the tool.
int& ErrorOfChild() {
  static void* const shared =
      mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  return *static_cast<int*>(shared);
}

/// @return nil for no text.
NSString* Text(const std::optional<std::string>& text) {
  return text ? [NSString stringWithUTF8String:text->c_str()] : nil;
}

}  // namespace

/// Stands in for AppKit's bundle, which is not on the disk.
@interface KXAppKit : NSObject
- (BOOL)load;
@end

@implementation KXAppKit
- (BOOL)load {
  isAppKitLoaded = true;
  return YES;
}
@end

// GNUstep's bundles have the executable at the top, and a tool's property list is a file.
@implementation NSBundle (KXMacOS)
+ (NSBundle*)bundleWithPath:(NSString*)path {
  const id bundle = [path isEqualToString:@"/System/Library/Frameworks/AppKit.framework"]
                        ? [[KXAppKit alloc] init]
                        : [[NSBundle alloc] initWithPath:path];
  return [bundle autorelease];
}
- (id)objectForInfoDictionaryKey:(NSString*)key {
  gnustep::Require(self == [NSBundle mainBundle],
                   "only the main bundle's property list may be read");
  return Text(linux_platform::MainBundleText([key UTF8String]));
}
- (NSString*)executablePath {
  return Text(linux_platform::ApplicationExecutable([[self bundlePath] fileSystemRepresentation]));
}
@end

// GNUstep's method does not read the binary form, and it logs a message for a file that is not a
// property list. The serialization raises
// an exception for a truncated list.
@implementation NSDictionary (KXMacOS)
+ (id)dictionaryWithContentsOfFile:(NSString*)path {
  NSData* const data = [NSData dataWithContentsOfFile:path];
  if (data == nil) return nil;
  @try {
    const id list = [NSPropertyListSerialization propertyListWithData:data
                                                              options:0
                                                               format:NULL
                                                                error:NULL];
    return [list isKindOfClass:[NSDictionary class]] ? list : nil;
  } @catch (NSException*) {
    return nil;
  }
}
@end

// GNUstep copies neither modes nor times.
@implementation NSFileManager (KXMacOS)
- (BOOL)copyItemAtPath:(NSString*)source toPath:(NSString*)destination error:(NSError**)error {
  gnustep::Require(error == nullptr, "the error argument must be null");
  return linux_platform::CopyTree([source fileSystemRepresentation],
                                  [destination fileSystemRepresentation]);
}
@end

// GNUstep makes a separate directory for each user.
NSString* NSTemporaryDirectory() { return Text(linux_platform::TemporaryDirectory()); }

// On macOS, the exception names the errno when a program cannot be started. GNUstep does not notice
// a failed exec: its child calls exit(), in memory that it shares with the tool.
extern "C" __attribute__((visibility("default"))) pid_t vfork() {
  // Like fork(), but the parent waits until the child has called exec or has ended.
  const auto child = static_cast<pid_t>(syscall(SYS_clone, CLONE_VFORK | SIGCHLD, 0, 0, 0, 0));
  if (child < 0) ErrorOfChild() = errno;
  if (child <= 0 || ErrorOfChild() == 0) return child;
  waitpid(child, nullptr, 0);
  return -1;
}

extern "C" __attribute__((visibility("default"))) int execve(const char* path, char* const words[],
                                                             char* const environment[]) noexcept {
  syscall(SYS_execve, path, words, environment);
  ErrorOfChild() = errno;
  _exit(EXIT_FAILURE);
}

void (*gnustepsLaunch)(id, SEL) = nullptr;

void Launch(id task, SEL command) {
  ErrorOfChild() = 0;
  @try {
    gnustepsLaunch(task, command);
  } @catch (NSException* exception) {
    if (ErrorOfChild() == 0) @throw;
    [NSException raise:[exception name] format:@"Couldn't posix_spawn: error %d", ErrorOfChild()];
  }
}

@implementation NSTask (KXMacOS)
+ (void)load {
  const Method method =
      class_getInstanceMethod(objc_getClass("NSConcreteUnixTask"), @selector(launch));
  gnustepsLaunch = reinterpret_cast<void (*)(id, SEL)>(
      method_setImplementation(method, reinterpret_cast<IMP>(Launch)));
}
@end

@implementation NSWorkspace
+ (NSWorkspace*)sharedWorkspace {
  gnustep::Require(isAppKitLoaded, "AppKit must be loaded before it is used");
  return [[[NSWorkspace alloc] init] autorelease];
}
- (NSString*)fullPathForApplication:(NSString*)application {
  gnustep::Require([application isAbsolutePath],
                   "an application must be looked up by its full path");
  return linux_platform::DirectoryExists([application fileSystemRepresentation]) ? application
                                                                                 : nil;
}
@end
