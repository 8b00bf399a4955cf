#include "diag/logger.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/fake_platform.h"

namespace {

using testing::ExitedWithCode;

/// The logger is a singleton, so each case runs in a new process of the test program.
class LoggerTest : public testing::Test {
 protected:
  LoggerTest() {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    fake::World::Reset();
    const char* const inherited = std::getenv("KX_TEST_LOG_DIRECTORY");
    if (inherited != nullptr) {
      directory_ = inherited;
      return;
    }
    std::string name = testing::TempDir() + "kxtool-logger-XXXXXX";
    EXPECT_NE(mkdtemp(name.data()), nullptr);
    directory_ = name + "/";
    setenv("KX_TEST_LOG_DIRECTORY", directory_.c_str(), 1);
    isOwner_ = true;
  }
  ~LoggerTest() override {
    if (!isOwner_) return;
    unsetenv("KX_TEST_LOG_DIRECTORY");
    unlink((directory_ + "log.txt").c_str());
    rmdir((directory_ + "log.txt").c_str());
    rmdir(directory_.c_str());
  }

  const std::string& Directory() const { return directory_; }

  std::string Contents() const {
    std::ifstream file(directory_ + "log.txt");
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
  }

 private:
  std::string directory_;
  bool isOwner_ = false;
};

TEST_F(LoggerTest, TimeStampIsUtc) {
  fake::World& world = fake::World::Current();
  world.wallMicroseconds = 1709301909LL * 1000000 + 999999;
  setenv("TZ", "XXX-5", 1);
  EXPECT_EQ(Utils::GetUtcTime(), "2024-03-01 14:05:09");
  setenv("TZ", "UTC", 1);
  world.secondsAhead = std::int64_t{1} << 60;
  EXPECT_EQ(Utils::GetUtcTime(), "Cannot retrieve time!");
}

TEST_F(LoggerTest, LinesAreStampedAppendedAndFlushed) {
  const auto run = [this](const char* message) {
    Logger* const log = Logger::GetLogger(Directory());
    log->Log(message);
    log->Log("");
    std::_Exit(0);  // does not flush
  };
  EXPECT_EXIT(run("first"), ExitedWithCode(0), "");
  EXPECT_EXIT(run("second\nline"), ExitedWithCode(0), "");
  EXPECT_EQ(Contents(),
            "2023-11-14 22:13:20 first\n2023-11-14 22:13:20 \n"
            "2023-11-14 22:13:20 second\nline\n2023-11-14 22:13:20 \n");
}

TEST_F(LoggerTest, IsASingleton) {
  const auto run = [this] {
    Logger* const first = Logger::GetLogger(Directory());
    const bool isSame = Logger::GetLogger("/elsewhere/") == first;
    first->Log("here");
    std::exit(isSame ? 0 : 1);
  };
  EXPECT_EXIT(run(), ExitedWithCode(0), "");
  EXPECT_EQ(Contents(), "2023-11-14 22:13:20 here\n");
}

TEST_F(LoggerTest, DirectoryAndNameAreJoinedAsTheyAre) {
  const auto run = [this] {
    Logger::GetLogger(Directory().substr(0, Directory().size() - 1) + "-")->Log("beside");
    std::exit(0);
  };
  EXPECT_EXIT(run(), ExitedWithCode(0), "");
  const std::string beside = Directory().substr(0, Directory().size() - 1) + "-log.txt";
  EXPECT_EQ(access(beside.c_str(), F_OK), 0);
  unlink(beside.c_str());
}

TEST_F(LoggerTest, FileThatCannotBeOpened) {
  const auto run = [this] {
    Logger* const log = Logger::GetLogger(Directory() + "absent/");
    if (log == nullptr) std::exit(1);
    log->Log("lost");
    std::exit(0);
  };
  EXPECT_EXIT(run(), ExitedWithCode(0), "");
  EXPECT_EQ(mkdir((Directory() + "log.txt").c_str(), 0755), 0);
  const auto runWithDirectory = [this] {
    Logger::GetLogger(Directory())->Log("lost");
    std::exit(0);
  };
  EXPECT_EXIT(runWithDirectory(), ExitedWithCode(0), "");
}

TEST_F(LoggerTest, FileThatMayNotBeAppendedToIsLeftAlone) {
  const auto run = [this] {
    fake::World& world = fake::World::Current();
    world.failingCall = world.fallibleCalls + 1;
    Logger::GetLogger(Directory())->Log("lost");
    const std::vector<std::string> expected = {Directory() + "log.txt"};
    std::exit(world.appendedFiles == expected ? 0 : 1);
  };
  EXPECT_EXIT(run(), ExitedWithCode(0), "");
  EXPECT_NE(access((Directory() + "log.txt").c_str(), F_OK), 0);
}

TEST_F(LoggerTest, LinesOfManyThreadsStayWhole) {
  const auto run = [this] {
    Logger* const log = Logger::GetLogger(Directory());
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number) {
      threads.emplace_back([log] {
        for (int line = 0; line < 500; ++line) log->Log(std::string(200, 'x'));
      });
    }
    for (std::thread& thread : threads) thread.join();
    std::exit(0);
  };
  EXPECT_EXIT(run(), ExitedWithCode(0), "");
  std::istringstream lines(Contents());
  const std::string expected = "2023-11-14 22:13:20 " + std::string(200, 'x');
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) ASSERT_EQ(line, expected);
  EXPECT_EQ(count, 2000);
}

// A thread of the SDK may log until the last moment.
TEST_F(LoggerTest, LoggingWhileTheProcessExits) {
  const auto run = [this] {
    Logger* const log = Logger::GetLogger(Directory());
    for (int number = 0; number < 3; ++number) {
      std::thread([log] {
        while (true) log->Log("line");
      }).detach();
    }
    std::exit(0);
  };
  for (int round = 0; round < 5; ++round) EXPECT_EXIT(run(), ExitedWithCode(0), "");
}

}  // namespace
