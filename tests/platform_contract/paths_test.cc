#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "platform/files.h"

namespace platform {
namespace {

struct PathRow {
  const char* path;
  const char* lastComponent;
  const char* extension;
  const char* parent;
};

void PrintTo(const PathRow& row, std::ostream* out) { *out << '"' << row.path << '"'; }

// The first dozen are the examples in the documentation of NSString.
constexpr PathRow kPathRows[] = {
    {"/tmp/scratch.tiff", "scratch.tiff", "tiff", "/tmp"},
    {"/tmp/scratch", "scratch", "", "/tmp"},
    {"/tmp/", "tmp", "", "/"},
    {"scratch///", "scratch", "", ""},
    {"/", "/", "", "/"},
    {".scratch.tiff", ".scratch.tiff", "tiff", ""},
    {"/tmp/scratch..tiff", "scratch..tiff", "tiff", "/tmp"},
    {"/tmp/lock/", "lock", "", "/tmp"},
    {"/tmp", "tmp", "", "/"},
    {"scratch.tiff", "scratch.tiff", "tiff", ""},
    {"", "", "", ""},
    {"//", "/", "", "/"},
    {"///", "/", "", "/"},
    {".pkg", ".pkg", "", ""},
    {"/x/.pkg", ".pkg", "", "/x"},
    {"a.", "a.", "", ""},
    {"Setup.pkg/", "Setup.pkg", "pkg", ""},
    {"/a/b.pkg/", "b.pkg", "pkg", "/a"},
    {"/a//b.pkg//", "b.pkg", "pkg", "/a"},
    {"a//b", "b", "", "a"},
    {"//a", "a", "", "/"},
    {"dir.app/file", "file", "", "dir.app"},
    {"./Setup.PKG", "Setup.PKG", "PKG", "."},
    {"../x", "x", "", ".."},
    {"/tmp/it's \"x\" \xC3\xA4.app", "it's \"x\" \xC3\xA4.app", "app", "/tmp"},
};

class PathContract : public testing::TestWithParam<PathRow> {};

TEST_P(PathContract, FollowsTheRulesOfNSString) {
  const PathRow& row = GetParam();
  EXPECT_EQ(LastPathComponent(row.path), row.lastComponent);
  EXPECT_EQ(PathExtension(row.path), row.extension);
  EXPECT_EQ(ParentPath(row.path), row.parent);
}

INSTANTIATE_TEST_SUITE_P(Table, PathContract, testing::ValuesIn(kPathRows));

struct JoinRow {
  const char* directory;
  const char* component;
  const char* joined;
};

void PrintTo(const JoinRow& row, std::ostream* out) {
  *out << '"' << row.directory << "\" \"" << row.component << '"';
}

constexpr JoinRow kJoinRows[] = {
    {"/tmp", "scratch.tiff", "/tmp/scratch.tiff"},
    {"/tmp/", "scratch.tiff", "/tmp/scratch.tiff"},
    {"/", "scratch.tiff", "/scratch.tiff"},
    {"", "scratch.tiff", "scratch.tiff"},
    {"/tmp//", "/x", "/tmp/x"},
    {"/tmp", "", "/tmp"},
    {"/", "/", "/"},
    {"a", "b/c", "a/b/c"},
};

class JoinPathContract : public testing::TestWithParam<JoinRow> {};

TEST_P(JoinPathContract, PutsOneSlashBetween) {
  const JoinRow& row = GetParam();
  EXPECT_EQ(JoinPath(row.directory, row.component), row.joined);
}

INSTANTIATE_TEST_SUITE_P(Table, JoinPathContract, testing::ValuesIn(kJoinRows));

}  // namespace
}  // namespace platform
