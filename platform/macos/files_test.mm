#import <Foundation/Foundation.h>
#include <gtest/gtest.h>
#include <objc/runtime.h>

#include <string>

#include "platform/files.h"
#include "tests/platform_contract/support.h"

namespace platform {
namespace {

std::string destination;

/// Creates the destination, as another process might, and then fails to copy.
BOOL FailLate(id, SEL, NSString*, NSString*, NSError**) {
  EXPECT_EQ(CreateFileExclusively(destination), 0);
  return NO;
}

TEST(CopyTreeTest, FailedCopyLeavesAnotherProcessesFile) {
  const contract::TemporaryTree tree;
  const std::string source = tree.MakeFile("source");
  destination = tree.Path("destination");
  const Method method =
      class_getInstanceMethod([NSFileManager class], @selector(copyItemAtPath:toPath:error:));
  const IMP whole = method_setImplementation(method, reinterpret_cast<IMP>(FailLate));
  EXPECT_FALSE(CopyTree(source, destination));
  method_setImplementation(method, whole);
  EXPECT_TRUE(FileExists(destination));
}

}  // namespace
}  // namespace platform
