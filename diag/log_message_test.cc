#include "diag/log_message.h"

#include <cstdlib>

#include "tests/support/tool_fixture.h"

namespace {

class LogMessageTest : public fake::ToolFixture {};

TEST_F(LogMessageTest, IsMadeOfItsParts) {
  Logger* const log = Log();
  const std::string text = "text";
  Utils::LogMessage(log, text, ":", std::string_view("view").substr(1), -5, 18446744073709551615U,
                    -9223372036854775807LL - 1, true, false);
  Utils::LogMessage(log, "");
  Utils::LogMessage(log, "made ", [] { return std::string("late"); });
  EXPECT_THAT(TakeLog(),
              testing::ElementsAre("text:iew-518446744073709551615-922337203685477580810", "",
                                   "made late"));
}

TEST_F(LogMessageTest, NullLoggerBuildsNoText) {
  struct Costly {
    operator std::string_view() const {
      ADD_FAILURE() << "a text was built";
      return "";
    }
  };
  Utils::LogMessage(nullptr, Costly());
  Utils::LogMessage(nullptr, []() -> std::string_view { return Costly(); });
}

TEST_F(LogMessageTest, TimeStampIsUtc) {
  world.wallMicroseconds = 1709301909LL * 1000000 + 999999;
  setenv("TZ", "XXX-5", 1);
  EXPECT_EQ(Utils::GetUtcTime(), "2024-03-01 14:05:09");
  setenv("TZ", "UTC", 1);
  world.secondsAhead = std::int64_t{1} << 60;
  EXPECT_EQ(Utils::GetUtcTime(), "Cannot retrieve time!");
}

}  // namespace
