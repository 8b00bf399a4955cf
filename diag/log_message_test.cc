#include "diag/log_message.h"

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

}  // namespace
