#include "sdk/envelope.h"

#include "json/document.h"
#include "tests/support/tool_fixture.h"

// Must follow json/document.h, which makes RapidJSON's allocations throw.
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace sdk {
namespace {

using fake::Answer;
using fake::Concat;
using fake::Lines;
using testing::ElementsAreArray;

std::string TextOf(const rapidjson::Value& value) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  value.Accept(writer);
  return {buffer.GetString(), buffer.GetSize()};
}

/// An answer to "Product.GetStatus" with the text of its results.
std::string Results(const std::string& results) {
  return R"({"response":{"data":{"Product":[)" + results + "]}}}";
}

/// The log lines of a complete unpacking, one for each step.
const Lines kSteps = {"Parse AgentSDK response", "Parse \"response\" member",
                      "Parse \"data\" member",   "Find method key",
                      "Parse \"error\" member",  "Response error code : 0",
                      "Parse \"output\" member"};

Lines StepsTo(std::ptrdiff_t count, const std::string& last) {
  Lines lines(kSteps.begin(), kSteps.begin() + count);
  lines.push_back(last);
  return lines;
}

class EnvelopeTest : public fake::ToolFixture {
 protected:
  long long Unpack(const std::string& answer, const std::string& method = "Product.GetStatus") {
    return UnpackAnswer(answer, method, output, Log());
  }

  rapidjson::Document output;
};

TEST_F(EnvelopeTest, GoodAnswer) {
  EXPECT_EQ(Unpack(Results(R"({"error":0,"output":{"a":1}})")), 0);
  EXPECT_EQ(TextOf(output), R"({"a":1})");
  EXPECT_THAT(TakeLog(), ElementsAreArray(kSteps));
}

/// Answers that are rejected after this many steps, for this reason.
struct Rejection {
  std::ptrdiff_t steps;
  const char* reason;
  std::vector<std::string> answers;
};

const Rejection kRejections[] = {
    {1,
     "Response has parse errors or is not an object",
     {" ",
      "null",
      "[]",
      "1",
      "\"text\"",
      "true",
      "{",
      "{}}",
      "{} x",
      "{,}",
      "{'a':1}",
      "{\"a\":}",
      "{\"a\":01}",
      "{\"a\":+1}",
      "{\"a\":.5}",
      "{\"a\":1e}",
      "{\"a\":1e400}",
      "{\"a\":-}",
      "{\"a\":nan}",
      "{\"a\":\"\\ud800\"}",
      "{\"a\":\"\\x\"}",
      "{\"a\":\"\n",
      "{\"a\":1,}",
      "[{\"response\":1}]",
      "\xEF\xBB\xBF",
      "{\"a\":[}]"}},
    {2,
     "Response does not have \"response\" member",
     {"{}", R"({"Response":{}})", R"({"response":null})", R"({"response":[]})",
      R"({"response":"{}"})", R"({"response":1})", R"({"response\u0000":{}})",
      R"({"data":{"response":{}}})"}},
    {3,
     "Response does not have \"data\" member",
     {R"({"response":{}})", R"({"response":{"data":null}})", R"({"response":{"data":[]}})",
      R"({"response":{"data":"x"}})", R"({"response":{"Data":{}}})",
      R"({"response":{},"data":{}})"}},
    {4,
     "Response does not have \"Product.GetStatus\" key",
     {R"({"response":{"data":{}}})", R"({"response":{"data":{"Product":null}}})",
      R"({"response":{"data":{"Product":{}}}})", Results(""),
      R"({"response":{"data":{"product":[{}]}}})",
      R"({"response":{"data":{"Product.GetStatus":[{}]}}})"}},
    {5,
     "Error is not found",
     {Results("{}"), Results("null"), Results(R"([{"error":0}])"),
      Results(R"(7,{"error":0,"output":{}})"), Results(R"({"Error":0,"output":{}})")}},
    {7,
     "Response does not have \"output\" member",
     {Results(R"({"error":0})"), Results(R"({"error":0,"Output":{}})")}},
    {7,
     "\"output\" member is invalid",
     {Answer("[]"), Answer("[{}]"), Answer("\"{}\""), Answer("0"), Answer("1.5"), Answer("true"),
      Answer("false")}},
};

TEST_F(EnvelopeTest, UnusableAnswersChangeNothing) {
  output.SetString("before");
  for (const Rejection& row : kRejections) {
    for (const std::string& answer : row.answers) {
      SCOPED_TRACE(answer);
      EXPECT_EQ(Unpack(answer), 3);
      EXPECT_THAT(TakeLog(),
                  ElementsAreArray(StepsTo(row.steps, std::string("Invalid JSON. ") + row.reason)));
    }
  }
  EXPECT_EQ(Unpack(""), 3);
  EXPECT_EQ(TakeLog(), Lines{"Failed to receive AgentSDK response. JSON is empty"});
  EXPECT_EQ(TextOf(output), "\"before\"");
}

TEST_F(EnvelopeTest, ErrorThatIsNotAWholeNumberOf64Bits) {
  for (const std::string error :
       {"\"0\"", "null", "true", "{}", "[0]", "0.0", "1.5", "0e0", "1E2", "-0.0",
        "9223372036854775808", "-9223372036854775809", "18446744073709551615",
        "18446744073709551616", "100000000000000000000000000", "1e-400", "1e308"}) {
    SCOPED_TRACE(error);
    EXPECT_EQ(Unpack(Results("{\"error\":" + error + R"(,"output":{}})")), 3);
    EXPECT_THAT(TakeLog(), ElementsAreArray(StepsTo(5, "Invalid JSON. Error value is invalid")));
  }
}

TEST_F(EnvelopeTest, ErrorOfTheMethod) {
  const std::vector<std::pair<std::string, long long>> errors = {
      {"7", 7},
      {"-1", -1},
      {"2147483648", 2147483648},
      {"-2147483649", -2147483649},
      {"9223372036854775807", 9223372036854775807},
      {"-9223372036854775808", -9223372036854775807 - 1}};
  for (const auto& [text, number] : errors) {
    SCOPED_TRACE(text);
    output.SetString("before");
    // "output" is not looked at.
    EXPECT_EQ(Unpack(Results("{\"error\":" + text + "}")), number);
    EXPECT_THAT(TakeLog(), ElementsAreArray(StepsTo(5, "Response error code : " + text)));
    EXPECT_EQ(TextOf(output), "\"before\"");
  }
}

TEST_F(EnvelopeTest, NegativeZeroIsNotAnError) {
  EXPECT_EQ(Unpack(Results(R"({"error":-0,"output":{}})")), 0);
}

TEST_F(EnvelopeTest, NullOutputIsAcceptedAndChangesNothing) {
  output.SetString("before");
  EXPECT_EQ(Unpack(Answer("null")), 0);
  EXPECT_THAT(TakeLog(), ElementsAreArray(kSteps));
  EXPECT_EQ(TextOf(output), "\"before\"");
}

TEST_F(EnvelopeTest, ResultsAreFoundUnderTheNamespaceOfTheMethod) {
  const std::vector<std::pair<std::string, std::string>> namespaces = {
      {"Product.GetStatus", "Product"},
      {"FileScan.OnDemand.RunFullScan", "FileScan.OnDemand"},
      {"kx.Product.Configuration.GetSkyloftIdentity", "kx.Product.Configuration"},
      {"NoDot", "NoDot"},
      {".Leading", ".Leading"},
      {"Trailing.", "Trailing"},
      {"..", "."},
      {"", ""}};
  for (const auto& [method, member] : namespaces) {
    SCOPED_TRACE(method);
    EXPECT_EQ(Unpack(Answer("{}", member), method), 0);
    EXPECT_EQ(Unpack(Answer("{}", member + "x"), method), 3);
    EXPECT_EQ(TakeLog().back(), "Invalid JSON. Response does not have \"" + method + "\" key");
  }
  EXPECT_EQ(Unpack(Answer("{}", "FileScan"), "FileScan.OnDemand.RunFullScan"), 3);
}

TEST_F(EnvelopeTest, OnlyTheFirstResultCounts) {
  EXPECT_EQ(Unpack(Results(R"({"error":0,"output":{"a":1}},{"error":9})")), 0);
  EXPECT_EQ(TextOf(output), R"({"a":1})");
}

TEST_F(EnvelopeTest, OfMembersWithOneNameTheFirstCounts) {
  EXPECT_EQ(Unpack(R"({"response":{"data":{"Product":[{"error":0,"error":4,"output":{"a":1},)"
                   R"("output":null}],"Product":[]}},"response":1})"),
            0);
  EXPECT_EQ(TextOf(output), R"({"a":1})");
}

TEST_F(EnvelopeTest, TextsKeepTheirNulCharacters) {
  EXPECT_EQ(Unpack(Answer(R"({"a\u0000b":"c\u0000d"})")), 0);
  ASSERT_EQ(output.MemberCount(), 1U);
  const rapidjson::Value& text = output.MemberBegin()->value;
  EXPECT_EQ(std::string(text.GetString(), text.GetStringLength()), std::string("c\0d", 3));
  EXPECT_EQ(output.MemberBegin()->name.GetStringLength(), 3U);
}

TEST_F(EnvelopeTest, BytesThatAreNotUtf8ArePassedOn) {
  EXPECT_EQ(Unpack(Answer("{\"a\":\"\xFF\xC0\"}")), 0);
  EXPECT_STREQ(output["a"].GetString(), "\xFF\xC0");
}

TEST_F(EnvelopeTest, NumbersOfEveryKindReachTheOutput) {
  EXPECT_EQ(Unpack(Answer(R"({"int":-5,"uint":4294967295,"int64":-9223372036854775808,)"
                          R"("uint64":18446744073709551615,"double":-1.25e2,"tiny":1e-999,)"
                          R"("big":1e308,"long":123456789012345678901234567890})")),
            0);
  EXPECT_TRUE(output["int"].IsInt());
  EXPECT_EQ(output["int"].GetInt(), -5);
  EXPECT_FALSE(output["uint"].IsInt());
  EXPECT_EQ(output["uint"].GetUint(), 4294967295U);
  EXPECT_TRUE(output["uint"].IsInt64());
  EXPECT_EQ(output["int64"].GetInt64(), std::numeric_limits<std::int64_t>::min());
  EXPECT_FALSE(output["uint64"].IsInt64());
  EXPECT_EQ(output["uint64"].GetUint64(), std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(output["double"].GetDouble(), -125.0);
  EXPECT_TRUE(output["double"].IsDouble());
  EXPECT_EQ(output["tiny"].GetDouble(), 0.0);
  EXPECT_EQ(output["big"].GetDouble(), 1e308);
  EXPECT_EQ(output["long"].GetDouble(), 123456789012345678901234567890.0);
}

// These exponents overflow an int inside RapidJSON's own conversion of numbers.
TEST_F(EnvelopeTest, HugeNegativeExponentsAfterLongFractions) {
  for (const std::string number :
       {"0.00000000001e-2147483639", "1.2345678901234567e-2147483647",
        "-0.000000000000000000001E-99999999999999999999", "1e-2147483648"}) {
    SCOPED_TRACE(number);
    EXPECT_EQ(Unpack(Answer("{\"a\":" + number + "}")), 0);
    EXPECT_EQ(output["a"].GetDouble(), 0.0);
    EXPECT_EQ(Unpack(Results("{\"error\":" + number + "}")), 3);
  }
}

TEST_F(EnvelopeTest, LongNumbers) {
  const std::string digits(100000, '1');
  EXPECT_EQ(Unpack(Answer("{\"a\":0." + digits + "}")), 0);
  EXPECT_EQ(output["a"].GetDouble(), 1.0 / 9);
  EXPECT_EQ(Unpack(Answer("{\"a\":" + digits + "}")), 3);
  EXPECT_EQ(Unpack(Answer("{\"a\":1e" + digits + "}")), 3);
  EXPECT_EQ(Unpack(Answer("{\"a\":1e-" + digits + "}")), 0);
  EXPECT_EQ(output["a"].GetDouble(), 0.0);
}

TEST_F(EnvelopeTest, DeepNesting) {
  constexpr std::size_t kDepth = 100000;
  const std::string opening(kDepth, '[');
  const std::string closing(kDepth, ']');
  EXPECT_EQ(Unpack(Answer("{\"a\":" + opening + closing + "}")), 0);
  EXPECT_TRUE(output["a"].IsArray());
  EXPECT_EQ(Unpack(opening), 3);
  EXPECT_EQ(Unpack(opening + closing), 3);
  std::string objects;
  for (std::size_t depth = 0; depth < kDepth; ++depth) objects += "{\"a\":";
  EXPECT_EQ(Unpack(objects), 3);
  EXPECT_EQ(Unpack(Answer(objects + "1" + std::string(kDepth, '}'))), 0);
  EXPECT_TRUE(output["a"].IsObject());
}

TEST_F(EnvelopeTest, EveryTruncatedAnswerIsRejected) {
  const std::string answer =
      Answer(R"({"text":"a\u0041\n","list":[1,-2.5e3,true,false,null],"object":{"a":{}}})");
  for (std::size_t size = 1; size < answer.size(); ++size) {
    EXPECT_EQ(UnpackAnswer(answer.substr(0, size), "Product.GetStatus", output, nullptr), 3);
  }
  EXPECT_TRUE(output.IsNull());
}

// The output is moved out of the parsed answer. It must look like a copy that the caller's document
// made, and outlive the answer.
TEST_F(EnvelopeTest, OutputIsEqualToACopy) {
  for (const std::string text :
       {R"({})", R"({"a":{"b":[1,[2.5,"\u0000\ud83d\ude00"],{"longer than one value":null}]}})",
        R"({"":true,"":false,"\u00e4":-9223372036854775808})"}) {
    SCOPED_TRACE(text);
    rapidjson::Document result;
    {
      const std::string answer = Answer(text);
      ASSERT_EQ(UnpackAnswer(answer, "Product.GetStatus", result, nullptr), 0);
    }
    rapidjson::Document parsed;
    parsed.Parse(text.c_str());
    EXPECT_EQ(TextOf(result), TextOf(parsed));
    result.AddMember("new", rapidjson::Value("value", result.GetAllocator()),
                     result.GetAllocator());
    rapidjson::Document copy;
    copy.CopyFrom(result, copy.GetAllocator());
    EXPECT_EQ(TextOf(copy), TextOf(result));
  }
}

TEST_F(EnvelopeTest, DocumentCanBeUsedAgain) {
  EXPECT_EQ(Unpack(Answer(R"({"a":"the first answer's text"})")), 0);
  EXPECT_EQ(Unpack(Answer(R"({"b":2})")), 0);
  EXPECT_EQ(TextOf(output), R"({"b":2})");
}

TEST_F(EnvelopeTest, WrapperPutsTheErrorOfTheMethodBeforeTheStatusOfTheSdk) {
  sdk.Install();
  sdk.answers = {Answer(R"({"a":1})", "Product", 7)};
  sdk.unregisterStatuses = {5};
  EXPECT_EQ(Tool().ExecuteAgentSDKMethodWrapper("Product.GetStatus", output, Log()), 7);
  EXPECT_TRUE(output.IsNull());
  const Lines log = TakeLog();
  EXPECT_THAT(Lines(log.end() - 4, log.end()),
              testing::ElementsAre("Return error: 0", "API error = 5", "Agent SDK Error = 7",
                                   "Agent SDK failed with error code: 7"));
}

TEST_F(EnvelopeTest, WrapperReturnsTheStatusOfTheSdk) {
  sdk.Install();
  sdk.answers = {Answer(R"({"a":1})")};
  sdk.unregisterStatuses = {5};
  EXPECT_EQ(Tool().ExecuteAgentSDKMethodWrapper("Product.GetStatus", output, Log()), 5);
  EXPECT_EQ(TakeLog().back(), "API failed with error code: 5");
}

}  // namespace
}  // namespace sdk
