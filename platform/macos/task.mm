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

/// What a child gets as its descriptors 0 to 2: pipes, and an open file where one is wanted.
struct Streams {
  NSPipe* input = [NSPipe pipe];
  id output = nil;
  NSPipe* error = [NSPipe pipe];
};

/// @param path of the file that receives standard output; empty for a pipe.
/// @return 0, or the errno of the failure.
int Open(Streams& streams, const std::string& path) {
  streams.output = path.empty()
                       ? [NSPipe pipe]
                       : [NSFileHandle fileHandleForWritingAtPath:ToNsString(path)];
  if (streams.output == nil && !path.empty()) return OutputError(path);
  // There is no pipe when the descriptors have run out. The child would get the tool's own stream.
  return streams.input == nil || streams.output == nil || streams.error == nil ? EMFILE : 0;
}

/// Sets `process` up and starts it. @return 0, or the errno of the failure.
int Launch(NSTask* process, NSString* launchPath, NSArray* arguments, const Streams& streams) {
  @try {
    [process setLaunchPath:launchPath];
    [process setArguments:arguments];
    [process setStandardInput:streams.input];
    [process setStandardOutput:streams.output];
    [process setStandardError:streams.error];
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
    Streams streams;
    if (const int error = Open(streams, task.standardOutputPath); error != 0) return error;
    NSTask* const process = [[[NSTask alloc] init] autorelease];
    if (const int error = Launch(process, launchPath, arguments, streams); error != 0) return error;
    [process waitUntilExit];
    // The signal's number for a process that a signal ended.
    return [process terminationStatus];
  }
}

}  // namespace platform
