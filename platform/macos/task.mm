#import <Foundation/Foundation.h>

#include "platform/task.h"

#include <cerrno>

#include "platform/files.h"
#include "platform/macos/foundation_text.h"
#include "platform/macos/launch.h"

namespace platform {
namespace {

/// @return nil when an argument is not UTF-8.
NSArray* ToNsArguments(const std::vector<std::string>& arguments) {
  NSMutableArray* const argumentsNs = [NSMutableArray arrayWithCapacity:arguments.size()];
  for (const std::string& argument : arguments) {
    NSString* const argumentNs = ToNsString(argument);
    if (argumentNs == nil) return nil;
    [argumentsNs addObject:argumentNs];
  }
  return argumentsNs;
}

/// Sets up `process` and starts it. @return 0, or the errno of the failure.
int Launch(NSTask* process, NSString* launchPath, NSArray* arguments, const std::string& output) {
  @try {
    NSPipe* const inputPipe = [NSPipe pipe];
    NSPipe* const errorPipe = [NSPipe pipe];
    const id outputEnd = output.empty()
                             ? [NSPipe pipe]
                             : [NSFileHandle fileHandleForWritingAtPath:ToNsString(output)];
    // Pipes are nil when the process has run out of descriptors. The child must not get the tool's
    // streams.
    if (inputPipe == nil || errorPipe == nil) return EMFILE;
    if (outputEnd == nil) return output.empty() ? EMFILE : OutputError(output);
    [process setLaunchPath:launchPath];
    [process setArguments:arguments];
    [process setStandardInput:inputPipe];
    [process setStandardOutput:outputEnd];
    [process setStandardError:errorPipe];
    // Raises when a program cannot be started. The method that returns an error needs macOS 10.13.
    [process launch];
    return 0;
  } @catch (NSException* exception) {
    return LaunchError(FromNsString([exception reason]));
  }
}

}  // namespace

int RunTask(const Task& task) {
  if (const int error = CheckLaunchPath(task.launchPath); error != 0) return error;
  @autoreleasepool {
    NSString* const launchPath = ToNsString(task.launchPath);
    NSArray* const arguments = ToNsArguments(task.arguments);
    if (launchPath == nil || arguments == nil) return EILSEQ;
    NSTask* const process = [[[NSTask alloc] init] autorelease];
    if (const int error = Launch(process, launchPath, arguments, task.standardOutputPath);
        error != 0) {
      return error;
    }
    [process waitUntilExit];
    // The signal's number for a process that a signal ended.
    return [process terminationStatus];
  }
}

}  // namespace platform
