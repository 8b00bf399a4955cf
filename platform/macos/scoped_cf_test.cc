#include "platform/macos/scoped_cf.h"

#include <gtest/gtest.h>

#include <utility>

namespace platform {
namespace {

/// An object whose reference count the test's CFRelease() lowers.
struct Counted {
  int references = 1;
};

CFStringRef Reference(Counted& object) { return reinterpret_cast<CFStringRef>(&object); }

using Owner = ScopedCf<CFStringRef>;

}  // namespace
}  // namespace platform

extern "C" void CFRelease(CFTypeRef object) {
  --static_cast<platform::Counted*>(const_cast<void*>(object))->references;
}

namespace platform {
namespace {

TEST(ScopedCfTest, ReleasesOnceWhenItGoes) {
  Counted object;
  {
    const Owner owner(Reference(object));
    EXPECT_TRUE(owner);
    EXPECT_EQ(owner.Get(), Reference(object));
  }
  EXPECT_EQ(object.references, 0);
}

TEST(ScopedCfTest, AnEmptyOwnerReleasesNothing) {
  Owner owner;
  EXPECT_FALSE(owner);
  owner.Reset();
}

TEST(ScopedCfTest, MovesItsReference) {
  Counted first;
  Counted second;
  {
    Owner owner(Reference(first));
    Owner other(std::move(owner));
    EXPECT_FALSE(owner);
    owner = Owner(Reference(second));
    other = std::move(owner);
    EXPECT_EQ(first.references, 0);
    EXPECT_EQ(second.references, 1);
  }
  EXPECT_EQ(second.references, 0);
}

TEST(ScopedCfTest, ReceivesAndLetsGo) {
  Counted first;
  Counted second;
  Owner owner(Reference(first));
  *owner.Receive() = Reference(second);
  EXPECT_EQ(first.references, 0);
  EXPECT_EQ(owner.Release(), Reference(second));
  EXPECT_EQ(second.references, 1);
}

}  // namespace
}  // namespace platform
