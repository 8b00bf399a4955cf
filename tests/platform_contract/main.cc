#include <gtest/gtest.h>

#include "tests/platform_contract/support.h"

int main(int argc, char** argv) {
  if (const int status = contract::PlayRole(argc, argv); status >= 0) return status;
  contract::SetOwnProgram(argv[0]);
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
