#include "platform/linux/code_signing/byte_reader.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace platform::code_signing {
namespace {

using namespace std::string_literals;

TEST(ByteReaderTest, ReadsBothByteOrders) {
  const std::string bytes = "\x01\x02\x03\x04\x05\x06\x07\x08"s;
  const ByteReader big(bytes, ByteOrder::kBig);
  const ByteReader little(bytes, ByteOrder::kLittle);
  EXPECT_EQ(big.U8(1), 0x02);
  EXPECT_EQ(big.U32(1), 0x02030405U);
  EXPECT_EQ(little.U32(1), 0x05040302U);
  EXPECT_EQ(big.U64(0), 0x0102030405060708U);
  EXPECT_EQ(little.U64(0), 0x0807060504030201U);
}

TEST(ByteReaderTest, ReadsNothingOutside) {
  const ByteReader reader("\xFF\xFF\xFF\xFF", ByteOrder::kBig);
  constexpr std::uint64_t kHuge = std::numeric_limits<std::uint64_t>::max();
  EXPECT_EQ(reader.U32(1), 0U);
  EXPECT_EQ(reader.U32(kHuge), 0U);
  EXPECT_EQ(reader.U32(kHuge - 2), 0U);
  EXPECT_TRUE(reader.Contains(4, 0));
  EXPECT_FALSE(reader.Contains(5, 0));
  EXPECT_FALSE(reader.Contains(1, kHuge));
  EXPECT_FALSE(reader.Piece(2, 3));
  EXPECT_EQ(reader.Piece(2, 2), "\xFF\xFF");
}

TEST(ByteReaderTest, TextsEndWithinTheBytes) {
  const std::string bytes = "ab\0cd"s;
  const ByteReader reader(bytes, ByteOrder::kBig);
  EXPECT_EQ(reader.TextAt(0), "ab");
  EXPECT_EQ(reader.TextAt(2), "");
  EXPECT_FALSE(reader.TextAt(3));
  EXPECT_FALSE(reader.TextAt(5));
}

}  // namespace
}  // namespace platform::code_signing
