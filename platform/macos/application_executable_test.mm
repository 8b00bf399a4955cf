#import <AppKit/AppKit.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "platform/bundle.h"
#include "platform/macos/foundation_text.h"
#include "tests/contract/support.h"

namespace {

/// What the workspace was asked for, and what it answers; empty for nil.
std::string asked;
std::string answer;

}  // namespace

// In the place of AppKit's.
@implementation NSWorkspace
+ (NSWorkspace*)sharedWorkspace {
  return [[[NSWorkspace alloc] init] autorelease];
}
- (NSString*)fullPathForApplication:(NSString*)application {
  asked = platform::FromNsString(application);
  return answer.empty() ? nil : platform::ToNsString(answer);
}
@end

namespace platform {
namespace {

/// Makes a bundle in GNUstep's layout, which has the executable at the top. @return its path.
std::string MakeApplication(const contract::TemporaryTree& tree, const std::string& name) {
  const std::string path = tree.MakeDirectory(name + ".app");
  tree.MakeDirectory(name + ".app/Resources");
  tree.MakeFile(name + ".app/Resources/Info-gnustep.plist", "{ NSExecutable = tool; }");
  contract::SetMode(tree.MakeFile(name + ".app/tool", "#!/bin/sh\n"), S_IRWXU);
  return path;
}

TEST(ApplicationExecutableTest, TakesThePathThatTheWorkspaceGives) {
  const contract::TemporaryTree tree;
  const std::string known = MakeApplication(tree, "Known");
  answer = known;
  EXPECT_EQ(ApplicationExecutable("/somewhere/Known.app"), known + "/tool");
  EXPECT_EQ(asked, "/somewhere/Known.app");
}

TEST(ApplicationExecutableTest, TakesThePathItselfWhenTheWorkspaceKnowsNone) {
  const contract::TemporaryTree tree;
  const std::string fresh = MakeApplication(tree, "Fresh");
  answer.clear();
  EXPECT_EQ(ApplicationExecutable(fresh), fresh + "/tool");
}

TEST(ApplicationExecutableTest, AnswersNothingForWhatIsNoBundle) {
  answer.clear();
  EXPECT_EQ(ApplicationExecutable("/nothing/at/all.app"), std::nullopt);
  EXPECT_EQ(ApplicationExecutable(""), std::nullopt);
  EXPECT_EQ(ApplicationExecutable("\xFF"), std::nullopt);
}

}  // namespace
}  // namespace platform
