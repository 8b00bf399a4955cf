#include "platform/standard_streams.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "tests/platform_contract/support.h"

namespace platform {
namespace {

constexpr std::size_t kMoreThanAPipeHolds = 1 << 20;

class EnsureStandardDescriptorsContract : public testing::TestWithParam<int> {};

// Each combination of closed descriptors, as a bit mask.
TEST_P(EnsureStandardDescriptorsContract, OpensWhatIsClosed) {
  const contract::TemporaryTree tree;
  const int status = contract::RunRole("ensure-descriptors", {tree.Path("file")}, [] {
    for (int number = 0; number <= 2; ++number) {
      if ((GetParam() >> number & 1) != 0) close(number);
    }
  });
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

INSTANTIATE_TEST_SUITE_P(All, EnsureStandardDescriptorsContract, testing::Range(0, 8));

/// Runs a writer of `size` bytes on the descriptor that `prepare` sets up. @return exit status.
int WriteWith(std::size_t size, const std::function<void()>& prepare) {
  const int status = contract::RunRole("write-output", {std::to_string(size)}, prepare);
  EXPECT_TRUE(WIFEXITED(status)) << "wait status " << status;
  return WEXITSTATUS(status);
}

TEST(WriteStandardOutputContract, WritesAllOfItIntoAFile) {
  const contract::TemporaryTree tree;
  const std::string path = tree.MakeFile("output");
  EXPECT_EQ(
      WriteWith(kMoreThanAPipeHolds, [&] { dup2(open(path.c_str(), O_WRONLY), STDOUT_FILENO); }),
      5);
  EXPECT_EQ(contract::ReadAll(path), std::string(kMoreThanAPipeHolds, 'x'));
}

/// A child that writes more than a pipe holds into a non-blocking pipe.
class PipeWriter {
 public:
  PipeWriter() {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    fcntl(ends[1], F_SETFL, O_NONBLOCK);
    child_ = contract::StartRole(contract::OwnProgram(), "write-output",
                                 {std::to_string(kMoreThanAPipeHolds)}, [&] {
                                   dup2(ends[1], STDOUT_FILENO);
                                   close(ends[0]);
                                   close(ends[1]);
                                 });
    close(ends[1]);
    reader_ = ends[0];
  }

  ssize_t Read(char* buffer, std::size_t size) const { return read(reader_, buffer, size); }

  /// Closes the pipe and waits for the child. @return its exit status.
  int End() const {
    close(reader_);
    const int status = contract::Await(child_);
    EXPECT_TRUE(WIFEXITED(status));
    return WEXITSTATUS(status);
  }

 private:
  pid_t child_;
  int reader_;
};

TEST(WriteStandardOutputContract, WritesAllOfItIntoANonBlockingPipe) {
  const PipeWriter writer;
  std::size_t total = 0;
  char chunk[5000];
  for (ssize_t count; (count = writer.Read(chunk, sizeof(chunk))) > 0;) {
    total += static_cast<std::size_t>(count);
  }
  EXPECT_EQ(total, kMoreThanAPipeHolds);
  EXPECT_EQ(writer.End(), 5);
}

TEST(WriteStandardOutputContract, SurvivesAReaderThatGoesAwayInTheMiddle) {
  const PipeWriter writer;
  char byte;
  EXPECT_EQ(writer.Read(&byte, 1), 1);
  EXPECT_EQ(writer.End(), 5);
}

TEST(WriteStandardOutputContract, SurvivesAPipeWithoutAReader) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  close(ends[0]);
  EXPECT_EQ(WriteWith(10, [&] { dup2(ends[1], STDOUT_FILENO); }), 5);
  close(ends[1]);
}

TEST(WriteStandardOutputContract, SurvivesAClosedDescriptor) {
  EXPECT_EQ(WriteWith(10, [] { close(STDOUT_FILENO); }), 5);
}

#ifdef __linux__
TEST(WriteStandardOutputContract, SurvivesAFullDevice) {
  EXPECT_EQ(WriteWith(10, [] { dup2(open("/dev/full", O_WRONLY), STDOUT_FILENO); }), 5);
}
#endif

}  // namespace
}  // namespace platform
