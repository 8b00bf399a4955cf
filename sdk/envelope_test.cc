#include "sdk/envelope.h"

#include <random>

#include "sdk/json_document.h"
#include "tests/support/tool_fixture.h"

// After json_document.h, which prepares them.
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace sdk {
namespace {

using fake::Answer;
using fake::CompletionLog;
using fake::Concat;
using fake::Lines;
using testing::ElementsAre;
using testing::ElementsAreArray;

std::string TextOf(const rapidjson::Value& value) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  value.Accept(writer);
  return {buffer.GetString(), buffer.GetSize()};
}

/// The lines of unpacking, one more for each step.
const Lines kSteps = {"Parse AgentSDK response", "Parse \"response\" member",
                      "Parse \"data\" member", "Find method key", "Parse \"error\" member"};

Lines StepsTo(std::size_t count, const std::string& last) {
  Lines lines(kSteps.begin(), kSteps.begin() + static_cast<std::ptrdiff_t>(count));
  lines.push_back(last);
  return lines;
}

const Lines kUnpackedLog = Concat({kSteps, {"Response error code : 0", "Parse \"output\" member"}});

class EnvelopeTest : public fake::ToolFixture {
 protected:
  long long Unpack(const std::string& answer, const std::string& method = "Product.GetStatus") {
    Logger* const log = Log();
    return UnpackAnswer(answer, method, output, log);
  }

  /// Unpacks an `answer` that is of no use, into a document that must not change.
  void ExpectRefusal(const std::string& answer, const Lines& log) {
    SCOPED_TRACE(answer);
    output.SetString("before");
    EXPECT_EQ(Unpack(answer), 3);
    EXPECT_THAT(TakeLog(), ElementsAreArray(log));
    EXPECT_EQ(TextOf(output), "\"before\"");
  }

  rapidjson::Document output;
};

TEST_F(EnvelopeTest, GoodAnswer) {
  EXPECT_EQ(Unpack(R"({"response":{"data":{"Product":[{"error":0,"output":{"a":1}}]}}})"), 0);
  EXPECT_EQ(TextOf(output), R"({"a":1})");
  EXPECT_THAT(TakeLog(), ElementsAreArray(kUnpackedLog));
}

TEST_F(EnvelopeTest, NullLogger) {
  EXPECT_EQ(UnpackAnswer(Answer(R"({"a":1})"), "Product.GetStatus", output, nullptr), 0);
  EXPECT_EQ(UnpackAnswer("", "Product.GetStatus", output, nullptr), 3);
  EXPECT_EQ(TextOf(output), R"({"a":1})");
}

TEST_F(EnvelopeTest, EmptyAnswer) {
  ExpectRefusal("", {"Failed to receive AgentSDK response. JSON is empty"});
}

TEST_F(EnvelopeTest, NotAnObject) {
  const Lines log = StepsTo(1, "Invalid JSON. Response has parse errors or is not an object");
  for (const char* const answer : {" ",
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
                                   "{\"a\":[}]"}) {
    ExpectRefusal(answer, log);
  }
}

TEST_F(EnvelopeTest, NoResponse) {
  const Lines log = StepsTo(2, "Invalid JSON. Response does not have \"response\" member");
  for (const char* const answer :
       {"{}", R"({"Response":{}})", R"({"response":null})", R"({"response":[]})",
        R"({"response":"{}"})", R"({"response":1})", R"({"response\u0000":{}})",
        R"({"data":{"response":{}}})"}) {
    ExpectRefusal(answer, log);
  }
}

TEST_F(EnvelopeTest, NoData) {
  const Lines log = StepsTo(3, "Invalid JSON. Response does not have \"data\" member");
  for (const char* const answer : {R"({"response":{}})", R"({"response":{"data":null}})",
                                   R"({"response":{"data":[]}})", R"({"response":{"data":"x"}})",
                                   R"({"response":{"Data":{}}})", R"({"response":{},"data":{}})"}) {
    ExpectRefusal(answer, log);
  }
}

TEST_F(EnvelopeTest, NoResults) {
  const Lines log = StepsTo(4, "Invalid JSON. Response does not have \"Product.GetStatus\" key");
  for (const char* const answer :
       {R"({"response":{"data":{}}})", R"({"response":{"data":{"Product":null}}})",
        R"({"response":{"data":{"Product":{}}}})", R"({"response":{"data":{"Product":[]}}})",
        R"({"response":{"data":{"product":[{}]}}})",
        R"({"response":{"data":{"Product.GetStatus":[{}]}}})"}) {
    ExpectRefusal(answer, log);
  }
}

TEST_F(EnvelopeTest, NoError) {
  const Lines log = StepsTo(5, "Invalid JSON. Error is not found");
  for (const char* const answer :
       {R"({"response":{"data":{"Product":[{}]}}})", R"({"response":{"data":{"Product":[null]}}})",
        R"({"response":{"data":{"Product":[[{"error":0}]]}}})",
        R"({"response":{"data":{"Product":[7,{"error":0,"output":{}}]}}})",
        R"({"response":{"data":{"Product":[{"Error":0,"output":{}}]}}})"}) {
    ExpectRefusal(answer, log);
  }
}

TEST_F(EnvelopeTest, ErrorIsNoWholeNumberOf64Bits) {
  const Lines log = StepsTo(5, "Invalid JSON. Error value is invalid");
  for (const char* const error :
       {"\"0\"", "null", "true", "{}", "[0]", "0.0", "1.5", "0e0", "1E2", "-0.0",
        "9223372036854775808", "-9223372036854775809", "18446744073709551615",
        "18446744073709551616", "100000000000000000000000000", "1e-400", "1e308"}) {
    ExpectRefusal(R"({"response":{"data":{"Product":[{"error":)" + std::string(error) +
                      R"(,"output":{}}]}}})",
                  log);
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
    // Without a look at "output".
    EXPECT_EQ(Unpack(R"({"response":{"data":{"Product":[{"error":)" + text + "}]}}}"), number);
    EXPECT_THAT(TakeLog(), ElementsAreArray(StepsTo(5, "Response error code : " + text)));
    EXPECT_EQ(TextOf(output), "\"before\"");
  }
}

TEST_F(EnvelopeTest, NegativeZeroIsNoError) {
  EXPECT_EQ(Unpack(R"({"response":{"data":{"Product":[{"error":-0,"output":{}}]}}})"), 0);
  EXPECT_THAT(TakeLog(), ElementsAreArray(kUnpackedLog));
}

TEST_F(EnvelopeTest, NoOutput) {
  const Lines log =
      Concat({kUnpackedLog, {"Invalid JSON. Response does not have \"output\" member"}});
  ExpectRefusal(R"({"response":{"data":{"Product":[{"error":0}]}}})", log);
  ExpectRefusal(R"({"response":{"data":{"Product":[{"error":0,"Output":{}}]}}})", log);
}

TEST_F(EnvelopeTest, OutputOfAnotherType) {
  const Lines log = Concat({kUnpackedLog, {"Invalid JSON. \"output\" member is invalid"}});
  for (const char* const text : {"[]", "[{}]", "\"{}\"", "0", "1.5", "true", "false"}) {
    ExpectRefusal(Answer(text), log);
  }
}

TEST_F(EnvelopeTest, NullOutputIsAcceptedAndChangesNothing) {
  output.SetString("before");
  EXPECT_EQ(Unpack(Answer("null")), 0);
  EXPECT_THAT(TakeLog(), ElementsAreArray(kUnpackedLog));
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
  EXPECT_EQ(
      Unpack(R"({"response":{"data":{"Product":[{"error":0,"output":{"a":1}},{"error":9}]}}})"), 0);
  EXPECT_EQ(TextOf(output), R"({"a":1})");
}

TEST_F(EnvelopeTest, OfMembersWithOneNameTheFirstCounts) {
  EXPECT_EQ(Unpack(R"({"response":{"data":{"Product":[{"error":0,"error":4,"output":{"a":1},)"
                   R"("output":null}],"Product":[]}},"response":1})"),
            0);
  EXPECT_EQ(TextOf(output), R"({"a":1})");
}

TEST_F(EnvelopeTest, OtherMembersAreIgnored) {
  EXPECT_EQ(Unpack(R"( {"x":[1,{"y":null}],"response":{"id":7,"data":{"Update":1,"Product":)"
                   R"([{"@name":"GetStatus","error":0,"output":{},"z":"\u00e4"}]}}} )"),
            0);
  EXPECT_EQ(TextOf(output), "{}");
}

TEST_F(EnvelopeTest, TextsKeepTheirNulCharacters) {
  EXPECT_EQ(Unpack(Answer(R"({"a\u0000b":"c\u0000d"})")), 0);
  ASSERT_EQ(output.MemberCount(), 1U);
  const rapidjson::Value& text = output.MemberBegin()->value;
  EXPECT_EQ(std::string(text.GetString(), text.GetStringLength()), std::string("c\0d", 3));
  EXPECT_EQ(output.MemberBegin()->name.GetStringLength(), 3U);
}

TEST_F(EnvelopeTest, BytesThatAreNoUtf8ArePassedOn) {
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
    EXPECT_EQ(Unpack(R"({"response":{"data":{"Product":[{"error":)" + number + "}]}}}"), 3);
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

TEST_F(EnvelopeTest, EveryCutAnswerIsRefused) {
  const std::string answer =
      Answer(R"({"text":"a\u0041\n","list":[1,-2.5e3,true,false,null],"object":{"a":{}}})");
  for (std::size_t size = 1; size < answer.size(); ++size) {
    EXPECT_EQ(UnpackAnswer(answer.substr(0, size), "Product.GetStatus", output, nullptr), 3);
  }
  EXPECT_TRUE(output.IsNull());
}

/// Makes random JSON texts.
class Generator {
 public:
  std::string Object(int depth) {
    std::string text = "{";
    const unsigned members = Number(4);
    for (unsigned number = 0; number < members; ++number) {
      if (number > 0) text += ',';
      text += Text() + ':' + Value(depth - 1);
    }
    return text + '}';
  }

 private:
  unsigned Number(unsigned bound) { return static_cast<unsigned>(random_() % bound); }

  std::string Text() {
    static const std::vector<std::string> kParts = {
        "a", "Product", "\\u0000", "\\\"", "\\ud83d\\ude00", "\xC3\xA4", "longer than one value"};
    std::string text;
    const unsigned parts = Number(4);
    for (unsigned number = 0; number < parts; ++number) text += kParts[Number(7)];
    return '"' + text + '"';
  }

  std::string Value(int depth) {
    switch (Number(depth > 0 ? 7 : 5)) {
      case 0:
        return "null";
      case 1:
        return Number(2) == 0 ? "true" : "false";
      case 2:
        return std::to_string(static_cast<std::int64_t>(random_()));
      case 3:
        return std::to_string(Number(1000)) + "." + std::to_string(Number(1000));
      case 4:
        return Text();
      case 5:
        return Object(depth);
      default:
        return "[" + Value(depth - 1) + "," + Value(depth - 1) + "]";
    }
  }

  std::mt19937_64 random_{20240301};
};

// The output is moved out of the parsed answer; that must look like a copy that the caller's
// document made, alive when the answer is long gone.
TEST_F(EnvelopeTest, OutputIsWhatACopyWouldBe) {
  Generator generator;
  for (int round = 0; round < 2000; ++round) {
    const std::string text = generator.Object(5);
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

// The wrapper.

class WrapperTest : public fake::ToolFixture {
 protected:
  int Execute() {
    Logger* const log = Log();
    return Tool().ExecuteAgentSDKMethodWrapper("Product.GetStatus", output, log);
  }

  /// The four or so lines with which the wrapper ends.
  Lines LogEnd(std::size_t count) {
    const Lines log = TakeLog();
    return {log.end() - static_cast<std::ptrdiff_t>(count), log.end()};
  }

  rapidjson::Document output;
};

TEST_F(WrapperTest, Success) {
  sdk.Install();
  const std::string answer = Answer(R"({"a":1})");
  sdk.answers = {answer};
  EXPECT_EQ(Execute(), 0);
  EXPECT_EQ(TextOf(output), R"({"a":1})");
  EXPECT_THAT(TakeLog(),
              ElementsAreArray(Concat(
                  {{"Executing AgentSDK Wrapper method: Product.GetStatus"},
                   fake::StartedCallLog("Product.GetStatus"),
                   {"Set run async timeout"},
                   CompletionLog(answer),
                   kUnpackedLog,
                   {"Instance unregistered with exit code : 0",
                    "Finished executing AgentSDK method", "Return error: 0", "API error = 0",
                    "Agent SDK Error = 0", "AgentSDK Method returned with error code: 0"}})));
}

TEST_F(WrapperTest, ErrorOfTheMethodComesFirst) {
  sdk.Install();
  sdk.answers = {Answer(R"({"a":1})", "Product", 7)};
  sdk.unregisterStatuses = {5};
  EXPECT_EQ(Execute(), 7);
  EXPECT_TRUE(output.IsNull());
  EXPECT_THAT(LogEnd(4), ElementsAre("Return error: 0", "API error = 5", "Agent SDK Error = 7",
                                     "Agent SDK failed with error code: 7"));
}

TEST_F(WrapperTest, BigErrorsAreNarrowed) {
  sdk.Install();
  sdk.answers = {Answer("{}", "Product", 4294967298)};
  EXPECT_EQ(Execute(), 2);
  EXPECT_THAT(LogEnd(2), ElementsAre("Agent SDK Error = 4294967298",
                                     "Agent SDK failed with error code: 4294967298"));
}

TEST_F(WrapperTest, UnusableAnswer) {
  sdk.Install();
  sdk.answers = {"{}"};
  EXPECT_EQ(Execute(), 3);
  EXPECT_THAT(LogEnd(4), ElementsAre("Return error: 0", "API error = 0", "Agent SDK Error = 3",
                                     "Agent SDK failed with error code: 3"));
}

TEST_F(WrapperTest, NullOutput) {
  sdk.Install();
  sdk.answers = {Answer("null")};
  EXPECT_EQ(Execute(), 0);
  EXPECT_TRUE(output.IsNull());
}

TEST_F(WrapperTest, StatusOfTheSdkComesSecond) {
  sdk.Install();
  sdk.answers = {Answer("{}")};
  sdk.unregisterStatuses = {5};
  EXPECT_EQ(Execute(), 5);
  EXPECT_THAT(LogEnd(4), ElementsAre("Return error: 0", "API error = 5", "Agent SDK Error = 0",
                                     "API failed with error code: 5"));
}

TEST_F(WrapperTest, NoInstance) {
  sdk.Install();
  sdk.getInstanceStatuses = {31};
  EXPECT_EQ(Execute(), 31);
  EXPECT_THAT(LogEnd(4), ElementsAre("Return error: 13", "API error = 31", "Agent SDK Error = 0",
                                     "API failed with error code: 31"));
}

TEST_F(WrapperTest, NoRegistration) {
  sdk.Install();
  sdk.registerStatuses = {-6};
  EXPECT_EQ(Execute(), -6);
  EXPECT_THAT(LogEnd(4), ElementsAre("Return error: 45", "API error = -6", "Agent SDK Error = 0",
                                     "API failed with error code: -6"));
}

TEST_F(WrapperTest, CodesOfTheInvocation) {
  const std::string path = fake::Sdk::LibraryPath();
  const auto expectCode = [this](int code) {
    EXPECT_EQ(Execute(), code);
    const std::string number = std::to_string(code);
    EXPECT_THAT(LogEnd(4),
                ElementsAre("Return error: " + number, "API error = 0", "Agent SDK Error = 0",
                            "AgentSDK Method returned with error code: " + number));
  };
  expectCode(20);
  sdk.Install();
  expectCode(60);
  sdk.runStatuses = {3};
  expectCode(45);
  world.libraries[path].erase("AgentSDK_ReleaseInstance");
  expectCode(14);
  world.libraries.clear();
  expectCode(35);
  world.signatures[path].validity = -67062;
  expectCode(22);
  world.signatures.clear();
  expectCode(-67068);
}

TEST_F(WrapperTest, NullLogger) {
  EXPECT_EQ(Tool().ExecuteAgentSDKMethodWrapper("Product.GetStatus", output, nullptr), 20);
}

}  // namespace
}  // namespace sdk
