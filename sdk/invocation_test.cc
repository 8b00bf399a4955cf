#include <rapidjson/document.h>

#include "sdk/run_state.h"
#include "tests/support/tool_test.h"

namespace sdk {
namespace {

using fake::Answer;
using testing::ElementsAre;
using testing::ElementsAreArray;

class InvocationTest : public fake::ToolTest {
 protected:
  /// Runs `method`; the outcomes are in the members.
  int Execute(const std::string& method = "Product.GetStatus") {
    return Tool().ExecuteAgentSDKMethod(method, output, apiError, sdkError, Log());
  }

  rapidjson::Document output;
  int apiError = -1;
  long long sdkError = -1;
};

TEST_F(InvocationTest, AnsweredCall) {
  sdk.Install();
  const std::string answer = Answer(R"({"a":1})");
  sdk.answers = {answer};
  EXPECT_EQ(Execute(), 0);
  EXPECT_EQ(apiError, 0);
  EXPECT_EQ(sdkError, 0);
  EXPECT_EQ(output["a"].GetInt(), 1);
  EXPECT_THAT(TakeLog(),
              ElementsAreArray(fake::Concat(
                  {fake::StartedCallLog("Product.GetStatus"),
                   {"Set run async timeout"},
                   fake::CompletionLog(answer),
                   {"Parse AgentSDK response", "Parse \"response\" member", "Parse \"data\" member",
                    "Find method key", "Parse \"error\" member", "Response error code : 0",
                    "Parse \"output\" member", "Instance unregistered with exit code : 0",
                    "Finished executing AgentSDK method"}})));
  EXPECT_THAT(world.Calls(), ElementsAre("load /Library/Corvane/XQP/product/lib/agentsdk.dylib now",
                                         "get instance", "register", "run", "unregister",
                                         "release instance", "unload"));
}

}  // namespace
}  // namespace sdk
