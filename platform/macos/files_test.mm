#import <Foundation/Foundation.h>
#include <gtest/gtest.h>
#include <objc/runtime.h>

#include <string>

#include "platform/files.h"
#include "tests/contract/support.h"

namespace platform {
namespace {

std::string destination;

/// While the file manager fails to copy, somebody else makes the destination.
BOOL FailLate(id, SEL, NSString*, NSString*, NSError**) {
  EXPECT_EQ(CreateFileExclusively(destination), 0);
  return NO;
}

TEST(CopyTreeTest, AFailedCopyLeavesWhatSomebodyElseHasMade) {
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
