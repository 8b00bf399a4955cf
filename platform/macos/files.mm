#include "platform/files.h"

#import <Foundation/Foundation.h>
#include <sys/stat.h>

#include <cerrno>

#include "platform/macos/foundation_text.h"
#include "platform/posix/paths.h"
#include "platform/uuid.h"

namespace platform {
namespace {

/// The path as the file manager takes it, without trailing slashes, which would make it follow a
/// link; nil when it is not UTF-8.
NSString* ToNsItem(const std::string& path) { return ToNsString(WithoutTrailingSlashes(path)); }

bool AnythingAt(NSString* path) {
  return [[NSFileManager defaultManager] attributesOfItemAtPath:path error:NULL] != nil;
}

}  // namespace

int ModificationTime(const std::string& path, FileTime& time) {
  struct stat status;
  if (stat(path.c_str(), &status) != 0) return errno;
  time = {status.st_mtimespec.tv_sec, status.st_mtimespec.tv_nsec};
  return 0;
}

bool CopyTree(const std::string& source, const std::string& destination) {
  @autoreleasepool {
    NSFileManager* const manager = [NSFileManager defaultManager];
    NSString* const sourceNs = ToNsItem(source);
    NSString* const destinationNs = ToNsItem(destination);
    if ([sourceNs length] == 0 || [destinationNs length] == 0 || AnythingAt(destinationNs)) {
      return false;
    }
    // The copy is made under a unique name. If it fails, only its own files are removed.
    char name[kUuidTextSize];
    RandomUuidText(name);
    NSString* const copy = [[destinationNs stringByDeletingLastPathComponent]
        stringByAppendingPathComponent:[@"." stringByAppendingString:ToNsString(name)]];
    if ([manager copyItemAtPath:sourceNs toPath:copy error:NULL] &&
        [manager moveItemAtPath:copy toPath:destinationNs error:NULL]) {
      return true;
    }
    [manager removeItemAtPath:copy error:NULL];
    return false;
  }
}

bool RemoveTree(const std::string& path) {
  @autoreleasepool {
    NSString* const pathNs = ToNsItem(path);
    return [pathNs length] > 0 && [[NSFileManager defaultManager] removeItemAtPath:pathNs
                                                                             error:NULL];
  }
}

bool IsDeletable(const std::string& path) {
  @autoreleasepool {
    NSString* const pathNs = ToNsItem(path);
    return [pathNs length] > 0 && AnythingAt(pathNs) &&
           [[NSFileManager defaultManager] isDeletableFileAtPath:pathNs];
  }
}

void WalkTree(const std::string& root,
              const std::function<bool(const std::string& relativePath)>& visit) {
  @autoreleasepool {
    NSString* const rootNs = ToNsString(root);
    if (rootNs == nil) return;
    NSDirectoryEnumerator* const entries = [[NSFileManager defaultManager] enumeratorAtPath:rootNs];
    for (bool continues = true; continues;) {
      @autoreleasepool {
        NSString* const entry = [entries nextObject];
        continues = entry != nil && visit(FromNsString(entry));
      }
    }
  }
}

std::optional<std::string> TemporaryDirectory() {
  @autoreleasepool {
    NSString* const directory = NSTemporaryDirectory();
    if ([directory length] == 0) return std::nullopt;
    return WithTrailingSlash(FromNsString(directory));
  }
}

}  // namespace platform
