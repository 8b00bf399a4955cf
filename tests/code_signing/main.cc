#include <gtest/gtest.h>

#include "tests/code_signing/libcrypto_memory.h"

int main(int argc, char** argv) {
  if (!platform::code_signing::WatchLibcryptoMemory()) return 1;
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
