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

/// What becomes the child's standard output: an open file or a new pipe. Nil without the file.
id StandardOutput(const std::string& path) {
  if (path.empty()) return [NSPipe pipe];
  return [NSFileHandle fileHandleForWritingAtPath:ToNsString(path)];
}

/// Sets `process` up and starts it. @return 0, or the errno of the failure.
int Launch(NSTask* process, NSString* launchPath, NSArray* arguments, id output) {
  @try {
    [process setLaunchPath:launchPath];
    [process setArguments:arguments];
    [process setStandardInput:[NSPipe pipe]];
    [process setStandardOutput:output];
    [process setStandardError:[NSPipe pipe]];
    // Raises where a program cannot be started; the method that gives an error is of macOS 10.13.
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
    const id output = StandardOutput(task.standardOutputPath);
    if (output == nil) return OutputError(task.standardOutputPath);
    NSTask* const process = [[[NSTask alloc] init] autorelease];
    if (const int error = Launch(process, launchPath, arguments, output); error != 0) return error;
    [process waitUntilExit];
    // The signal's number for a process that a signal ended.
    return [process terminationStatus];
  }
}

}  // namespace platform
