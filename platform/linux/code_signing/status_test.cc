#include "platform/linux/code_signing/status.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace platform::code_signing {
namespace {

TEST(StatusTest, ErrorsHaveTheNumbersOfMacos) {
  EXPECT_EQ(StatusFromErrno(EACCES), 100013);
  EXPECT_EQ(StatusFromErrno(ENOTDIR), 100020);
  EXPECT_EQ(StatusFromErrno(EAGAIN), 100035);
  EXPECT_EQ(StatusFromErrno(ENOTSUP), 100045);
  EXPECT_EQ(StatusFromErrno(ELOOP), 100062);
  EXPECT_EQ(StatusFromErrno(ENAMETOOLONG), 100063);
  EXPECT_EQ(StatusFromErrno(ESTALE), 100070);
  EXPECT_EQ(StatusFromErrno(EOVERFLOW), 100084);
  EXPECT_EQ(StatusFromErrno(ENODATA), 100093);
  EXPECT_EQ(StatusFromErrno(ENOEXEC), kErrSecCSBadObjectFormat);
}

}  // namespace
}  // namespace platform::code_signing
