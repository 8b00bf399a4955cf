#include "platform/linux/random_access_file.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <limits>
#include <string>

#include "platform/linux/code_signing/super_blob.h"
#include "tests/code_signing/directory_fixture.h"

namespace platform::code_signing {
namespace {

using namespace std::string_literals;

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

TEST_F(RandomAccessFileTest, RejectsTheLargestOffsets) {
  Open("0123456789");
  constexpr std::uint64_t kHuge = std::numeric_limits<std::uint64_t>::max();
  char byte = 0;
  std::size_t count = 1;
  EXPECT_EQ(file_.ReadAt(kHuge, &byte, 1, count), 0);
  EXPECT_EQ(count, 0U);
  EXPECT_FALSE(file_.ReadPiece(kHuge, kHuge));
  EXPECT_FALSE(file_.ReadPiece(5, kHuge));
}

TEST_F(RandomAccessFileTest, ShrinkingFilesGiveShortReads) {
  Open("0123456789");
  ASSERT_EQ(truncate(directory_.Path("file").c_str(), 4), 0);
  char buffer[8];
  std::size_t count = 0;
  EXPECT_EQ(file_.ReadAt(2, buffer, sizeof(buffer), count), 0);
  EXPECT_EQ(count, 2U);
  EXPECT_FALSE(file_.ReadPiece(0, 10));
}

TEST_F(RandomAccessFileTest, DoesNotReadHugeFiles) {
  Open("");
  ASSERT_EQ(truncate(directory_.Path("file").c_str(), kMaxPieceSize + 1), 0);
  std::string all;
  EXPECT_EQ(file_.ReadAll(all), EFBIG);
  EXPECT_FALSE(file_.ReadPiece(0, kMaxPieceSize + 1));
}

TEST_F(RandomAccessFileTest, APipeDoesNotBlock) {
  const std::string path = directory_.Path("pipe");
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  EXPECT_EQ(file_.Open(path), 0);
}

TEST_F(RandomAccessFileTest, AHugeSignatureCountsAsALackOfMemory) {
  const std::string header = "\xFA\xDE\x0C\xC0\x04\x00\x00\x01\x00\x00\x00\x00"s;
  Open(header);
  ASSERT_EQ(truncate(directory_.Path("file").c_str(), 0x05000000), 0);
  SuperBlob blob;
  EXPECT_EQ(SuperBlob::Read(file_, 0, 0, blob), kErrSecAllocate);
  EXPECT_EQ(SuperBlob::Read(file_, 0, 100, blob), kErrSecCSSignatureInvalid);
}

}  // namespace
}  // namespace platform::code_signing
