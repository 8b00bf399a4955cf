// The small parts that read bytes: numbers, BER values, texts of names, files.

#include <gtest/gtest.h>
#include <openssl/asn1.h>
#include <unistd.h>

#include <cerrno>
#include <limits>

#include "platform/linux/code_signing/ber_extent.h"
#include "platform/linux/code_signing/byte_reader.h"
#include "platform/linux/code_signing/random_access_file.h"
#include "platform/linux/code_signing/status.h"
#include "platform/linux/code_signing/subject_text.h"
#include "platform/linux/code_signing/super_blob.h"
#include "tests/code_signing/test_directory.h"

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

TEST(ByteReaderTest, TouchesNothingOutside) {
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

TEST(BerExtentTest, FindsTheEndOfAValue) {
  for (const std::string& whole :
       {"\x05\x00"s, "\x30\x03\x02\x01\x05"s, "\x30\x80\x00\x00"s,
        "\x30\x80\x24\x80\x04\x01\x00\x00\x00\x00\x00"s, "\x04\x81\x01x"s, "\x1F\x81\x01\x00"s,
        "\x30\x80\x30\x02\x00\x00\x00\x00"s}) {
    EXPECT_EQ(FindBerExtent(whole), BerExtent::kComplete) << testing::PrintToString(whole);
    EXPECT_EQ(FindBerExtent(whole + "more"), BerExtent::kComplete);
    for (std::size_t size = 0; size < whole.size(); ++size) {
      EXPECT_EQ(FindBerExtent(whole.substr(0, size)), BerExtent::kTruncated);
    }
  }
}

TEST(BerExtentTest, RefusesWhatIsNoBer) {
  EXPECT_EQ(FindBerExtent("\x04\x80\x00\x00"s), BerExtent::kMalformed);
  EXPECT_EQ(FindBerExtent("\x30\xFF\x00"s), BerExtent::kMalformed);
  std::string deep;
  for (int i = 0; i < 100000; ++i) deep += "\x30\x80";
  EXPECT_EQ(FindBerExtent(deep), BerExtent::kMalformed);
}

TEST(BerExtentTest, LargestLengthIsCutOff) {
  EXPECT_EQ(FindBerExtent("\x30\x87\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s), BerExtent::kTruncated);
}

std::string Text(int type, const std::string& bytes) {
  ASN1_STRING* const value = ASN1_STRING_type_new(type);
  ASN1_STRING_set(value, bytes.data(), static_cast<int>(bytes.size()));
  std::string text = SubjectText(*value);
  ASN1_STRING_free(value);
  return text;
}

TEST(SubjectTextTest, DecodesEachStringType) {
  EXPECT_EQ(Text(V_ASN1_PRINTABLESTRING, "Corvane"), "Corvane");
  EXPECT_EQ(Text(V_ASN1_IA5STRING, "a@b"), "a@b");
  EXPECT_EQ(Text(V_ASN1_UTF8STRING, "Caf\xC3\xA9"), "Caf\xC3\xA9");
  EXPECT_EQ(Text(V_ASN1_UNIVERSALSTRING, "Caf\xC3\xA9"), "Caf\xC3\xA9");
  EXPECT_EQ(Text(V_ASN1_T61STRING, "Caf\xE9"), "Caf\xC3\xA9");
  EXPECT_EQ(Text(V_ASN1_BMPSTRING, "\0C\0\xE9"s), "C\xC3\xA9");
}

TEST(SubjectTextTest, ShowsIllegalBytesInHexadecimal) {
  EXPECT_EQ(Text(V_ASN1_PRINTABLESTRING, "a\xE9"), "61 E9");
  EXPECT_EQ(Text(V_ASN1_UTF8STRING, "\xFF\x0A"), "FF 0A");
  EXPECT_EQ(Text(V_ASN1_BMPSTRING, "\0C\0"s), "00 43 00");
}

TEST(SubjectTextTest, DropsOneTrailingZero) {
  EXPECT_EQ(Text(V_ASN1_UTF8STRING, "name\0"s), "name");
  EXPECT_EQ(Text(V_ASN1_UTF8STRING, "name\0\0"s), "name\0"s);
  EXPECT_EQ(Text(V_ASN1_PRINTABLESTRING, ""), "");
}

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

class RandomAccessFileTest : public testing::Test {
 protected:
  void Open(const std::string& contents) {
    directory_.Write("file", contents);
    ASSERT_EQ(file_.Open(directory_.Path("file")), 0);
  }

  TestDirectory directory_;
  RandomAccessFile file_;
};

TEST_F(RandomAccessFileTest, ReadsPieces) {
  Open("0123456789");
  EXPECT_EQ(file_.ReadPiece(3, 4), "3456");
  EXPECT_EQ(file_.ReadPiece(10, 0), "");
  EXPECT_FALSE(file_.ReadPiece(3, 8));
  EXPECT_FALSE(file_.ReadPiece(11, 0));
  std::string all;
  EXPECT_EQ(file_.ReadAll(all), 0);
  EXPECT_EQ(all, "0123456789");
}

TEST_F(RandomAccessFileTest, NoFileReachesTheLargestOffsets) {
  Open("0123456789");
  constexpr std::uint64_t kHuge = std::numeric_limits<std::uint64_t>::max();
  char byte = 0;
  std::size_t count = 1;
  EXPECT_EQ(file_.ReadAt(kHuge, &byte, 1, count), 0);
  EXPECT_EQ(count, 0U);
  EXPECT_FALSE(file_.ReadPiece(kHuge, kHuge));
  EXPECT_FALSE(file_.ReadPiece(5, kHuge));
}

TEST_F(RandomAccessFileTest, WhatBecomesShorterGivesShortReads) {
  Open("0123456789");
  ASSERT_EQ(truncate(directory_.Path("file").c_str(), 4), 0);
  char buffer[8];
  std::size_t count = 0;
  EXPECT_EQ(file_.ReadAt(2, buffer, sizeof(buffer), count), 0);
  EXPECT_EQ(count, 2U);
  EXPECT_FALSE(file_.ReadPiece(0, 10));
}

TEST_F(RandomAccessFileTest, WhatIsTooLargeIsNotRead) {
  Open("");
  ASSERT_EQ(truncate(directory_.Path("file").c_str(), kLargestPiece + 1), 0);
  std::string all;
  EXPECT_EQ(file_.ReadAll(all), EFBIG);
  EXPECT_FALSE(file_.ReadPiece(0, kLargestPiece + 1));
}

TEST_F(RandomAccessFileTest, APipeDoesNotBlock) {
  const std::string path = directory_.Path("pipe");
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  EXPECT_EQ(file_.Open(path), 0);
}

TEST_F(RandomAccessFileTest, AHugeSignatureIsMoreThanTheMemoryThereIs) {
  const std::string header = "\xFA\xDE\x0C\xC0\x04\x00\x00\x01\x00\x00\x00\x00"s;
  Open(header);
  ASSERT_EQ(truncate(directory_.Path("file").c_str(), 0x05000000), 0);
  SuperBlob blob;
  EXPECT_EQ(SuperBlob::Read(file_, 0, 0, blob), kErrSecAllocate);
  EXPECT_EQ(SuperBlob::Read(file_, 0, 100, blob), kErrSecCSSignatureInvalid);
}

}  // namespace
}  // namespace platform::code_signing
