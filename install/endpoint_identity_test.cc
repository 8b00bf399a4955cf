#include <cerrno>
#include <new>

#include "tests/support/allocation_failure.h"
#include "tests/support/product_fixture.h"

namespace install {
namespace {

using fake::Concat;
using fake::Configuration;
using fake::Lines;
using std::string_literals::operator""s;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr char kFile[] = "/settings/agcfng.jso";
constexpr char kSearchEndpoint[] = "Search for endpointId in the received response";
constexpr char kSearchCompany[] = "Search for companyID in the received response";
constexpr char kRequestNamespace[] = "kx.Product.Configuration";

/// Which identifiers a call asks for.
struct Wanted {
  bool company = true;
  bool group = true;
  bool endpoint = true;
};

/// What the three strings of a call hold. Those that are not asked for keep "before".
struct Values {
  std::string company;
  std::string group;
  std::string endpoint;
};

class SdkIdentityTest : public fake::ProductFixture {
 protected:
  SdkIdentityTest() { sdk.Install(); }

  void ScriptIdentity(const std::string& output) {
    sdk.answers = {fake::Answer(output, kRequestNamespace)};
  }

  /// Asks for both identifiers, with a log and without; the SDK answers with `output`.
  void Expect(const std::string& output, const std::string& endpointId,
              const std::string& companyId, const Lines& searchLines) {
    SCOPED_TRACE(output);
    ScriptIdentity(output);
    std::string endpoint = "before";
    std::string company = "before";
    EXPECT_EQ(Tool().GetSLIdentity(&endpoint, &company, Log()), 0);
    EXPECT_EQ(endpoint, endpointId);
    EXPECT_EQ(company, companyId);
    EXPECT_THAT(TakeLog(),
                ElementsAreArray(fake::SplitAtNewlines(IdentityLog(output, searchLines))));

    endpoint = company = "before";
    EXPECT_EQ(Tool().GetSLIdentity(&endpoint, &company, nullptr), 0);
    EXPECT_EQ(endpoint, endpointId);
    EXPECT_EQ(company, companyId);
  }
};

TEST_F(SdkIdentityTest, MissingIdentifiersAreEmpty) {
  for (const char* const output : {"{}", "null"}) {
    Expect(output, "", "", {kSearchEndpoint, kSearchCompany});
  }
  Expect(R"({"companyID":"c"})", "", "c", {kSearchEndpoint, kSearchCompany, "custId found: c"});
  Expect(R"({"endpointID":"e"})", "e", "", {kSearchEndpoint, "HwId found: e", kSearchCompany});
  Expect(R"({"companyId":"c","endpointId":"e","EndpointID":"f","x":{"companyID":"c"}})", "", "",
         {kSearchEndpoint, kSearchCompany});
}

TEST_F(SdkIdentityTest, OtherTypesAreMissing) {
  for (const char* const value : {"1", "1.5", "null", "true", "[\"x\"]", R"({"a":"x"})"}) {
    Expect(R"({"companyID":)"s + value + R"(,"endpointID":)" + value + "}", "", "",
           {kSearchEndpoint, kSearchCompany});
  }
  Expect(R"({"companyID":1,"companyID":"c","endpointID":"e","endpointID":2})", "e", "",
         {kSearchEndpoint, "HwId found: e", kSearchCompany});
}

TEST_F(SdkIdentityTest, AnyTextIsAccepted) {
  Expect(R"({"companyID":"","endpointID":""})", "", "",
         {kSearchEndpoint, "HwId found: ", kSearchCompany, "custId found: "});
  Expect(R"({"companyID":"a|b \"é\n","endpointID":"x\u0000y"})", "x\0y"s, "a|b \"é\n",
         {kSearchEndpoint, "HwId found: x\0y"s, kSearchCompany, "custId found: a|b \"é\n"});
}

TEST_F(SdkIdentityTest, OnlyWhatIsWantedIsSearched) {
  const std::string output = R"({"companyID":"c","endpointID":"e"})";
  ScriptIdentity(output);
  std::string text = "before";
  EXPECT_EQ(Tool().GetSLIdentity(&text, nullptr, Log()), 0);
  EXPECT_EQ(text, "e");
  EXPECT_THAT(TakeLog(), ElementsAreArray(IdentityLog(output, {kSearchEndpoint, "HwId found: e"})));

  EXPECT_EQ(Tool().GetSLIdentity(nullptr, &text, Log()), 0);
  EXPECT_EQ(text, "c");
  EXPECT_THAT(TakeLog(),
              ElementsAreArray(IdentityLog(output, {kSearchCompany, "custId found: c"})));

  EXPECT_EQ(Tool().GetSLIdentity(nullptr, nullptr, Log()), 0);
  EXPECT_THAT(TakeLog(), ElementsAreArray(IdentityLog(output, {})));
}

TEST_F(SdkIdentityTest, FailedCallLeavesTheStrings) {
  world.files.clear();
  std::string endpoint = "before";
  std::string company = "before too";
  EXPECT_EQ(Tool().GetSLIdentity(&endpoint, &company, Log()), 20);
  EXPECT_EQ(endpoint, "before");
  EXPECT_EQ(company, "before too");
  EXPECT_EQ(TakeLog().back(), "Failed to retrieve SL Identity with wrapper method: 20");
}

TEST_F(SdkIdentityTest, ErrorOfTheMethodIsReturned) {
  sdk.answers = {fake::Answer("{}", kRequestNamespace, -17)};
  EXPECT_EQ(Tool().GetSLIdentity(nullptr, nullptr, Log()), -17);
  EXPECT_EQ(TakeLog().back(), "Failed to retrieve SL Identity with wrapper method: -17");
}

TEST_F(SdkIdentityTest, FailedAllocationInTheSearchIsCaught) {
  const std::string output =
      R"({"companyID":"a company with a long name","endpointID":"an endpoint with a long name"})";
  bool hasFailed = true;
  int caught = 0;
  for (std::size_t number = 1; hasFailed; ++number) {
    fake::AllocationFailure failure;
    world.whenWaiting.push_back([&] {
      sdk.Complete(sdk.Batch().c_str(), 0, fake::Answer(output, kRequestNamespace).c_str());
      failure.Arm(number);
    });
    std::string endpoint = "before";
    std::string company = "before";
    int code = -1;
    try {
      code = Tool().GetSLIdentity(&endpoint, &company, Log());
    } catch (const std::bad_alloc&) {
      // Not in the search.
    }
    hasFailed = failure.Disarm();
    const Lines log = TakeLog();
    if (code != 3) continue;
    ++caught;
    // What was copied before stays.
    EXPECT_TRUE(endpoint == "before" || endpoint == "" ||
                endpoint == "an endpoint with a long name");
    EXPECT_TRUE(company == "before" || company == "" || company == "a company with a long name");
    ASSERT_GE(log.size(), 2U);
    EXPECT_EQ(log[log.size() - 2], "Invalid JSON Received");
    EXPECT_EQ(log.back(), "Finished retrieving SL Identity with error code: 3");
    EXPECT_TRUE(company == "before" || endpoint == "an endpoint with a long name");
  }
  EXPECT_GT(caught, 2);
}

class EndpointIdentityTest : public SdkIdentityTest {
 protected:
  struct Call {
    Wanted wanted = {};
    bool useSdk = false;
    std::string path = kFile;
  };

  void AddFile(const std::string& contents) { world.AddFile(kFile, contents); }

  /// Makes the call with a log, and again without; compares code, strings and the whole log.
  void Expect(const Call& call, int code, const Values& values, const Lines& lines) {
    ExpectRun(call, code, values, Log());
    EXPECT_THAT(TakeLog(), ElementsAreArray(fake::SplitAtNewlines(lines)));
    ExpectRun(call, code, values, nullptr);
  }

  /// Reads `contents` as the configuration file; the SDK is not asked.
  void ExpectFile(const std::string& contents, const Values& values, const Lines& foundLines) {
    SCOPED_TRACE(contents.substr(0, 200));
    AddFile(contents);
    Expect({}, 0, values, Concat({{"Clearing non nullable values"}, foundLines, ClosedLog()}));
  }

  void ExpectInvalid(const std::string& contents) {
    SCOPED_TRACE(contents.substr(0, 200));
    AddFile(contents);
    Expect({}, 9, {}, {"Clearing non nullable values", "Invalid agcfJso file"});
  }

  /// Asks the SDK first, which answers with `output`.
  /// @param searchLines what the query logs while it searches the answer
  /// @param lines what follows the query
  void ExpectWithSdk(const Wanted& wanted, const std::string& output, int code,
                     const Values& values, const Lines& searchLines, const Lines& lines) {
    SCOPED_TRACE(output);
    ScriptIdentity(output);
    ExpectRun({wanted, true}, code, values, Log());
    EXPECT_THAT(TakeLog(),
                ElementsAreArray(Concat({{"Clearing non nullable values", "Get SL Identity"},
                                         IdentityLog(output, searchLines),
                                         lines})));
    ExpectRun({wanted, true}, code, values, nullptr);
  }

  static Lines ClosedLog() {
    return {"Configuration file closed", "Finished reading from Agcf configuration file"};
  }

  void ExpectRun(const Call& call, int code, const Values& values, Logger* log) {
    Values actual = {"before", "before", "before"};
    EXPECT_EQ(Tool().GetEndpointInformation(call.wanted.company ? &actual.company : nullptr,
                                            call.wanted.group ? &actual.group : nullptr,
                                            call.wanted.endpoint ? &actual.endpoint : nullptr,
                                            call.path.c_str(), call.useSdk, log),
              code);
    EXPECT_EQ(actual.company, call.wanted.company ? values.company : "before");
    EXPECT_EQ(actual.group, call.wanted.group ? values.group : "before");
    EXPECT_EQ(actual.endpoint, call.wanted.endpoint ? values.endpoint : "before");
    EXPECT_EQ(world.openFiles, 0);
  }
};

TEST_F(EndpointIdentityTest, NothingWanted) {
  AddFile(Configuration("h", "c", "g"));
  Expect({{false, false, false}, true}, 22, {}, {"Empty values are entered"});
  EXPECT_THAT(world.Calls(), IsEmpty());
}

TEST_F(EndpointIdentityTest, OrderOfTheMembersDoesNotMatter) {
  ExpectFile(R"( { "x":[1,{"id":{}}], "id" : {"custid":"c", "y":null,
                  "customdata":{"z":1,"ComputersFolder":"g"},"hwid":"h"}, "hwid":"other" } )",
             {"c", "g", "h"}, {"Group id is: g", "Hardware id is: h", "Company id is: c"});
}

TEST_F(EndpointIdentityTest, OnlyWhatIsWantedIsTaken) {
  AddFile(Configuration("h", "c", "g"));
  const auto lines = [](const std::string& found) {
    return Lines{"Clearing non nullable values", found, "Configuration file closed",
                 "Finished reading from Agcf configuration file"};
  };
  Expect({{true, false, false}}, 0, {"c", "", ""}, lines("Company id is: c"));
  Expect({{false, true, false}}, 0, {"", "g", ""}, lines("Group id is: g"));
  Expect({{false, false, true}}, 0, {"", "", "h"}, lines("Hardware id is: h"));
}

TEST_F(EndpointIdentityTest, RootWithoutUsableId) {
  for (const char* const contents :
       {"{}", "[]", "1", "\"id\"", "null", "true", R"([{"id":{"hwid":"h"}}])", R"({"id":"text"})",
        R"({"id":null})", R"({"id":[{"hwid":"h"}]})", R"({"id":7})", R"({"Id":{"hwid":"h"}})",
        R"({"id":{}})", R"({"x":{"id":{"hwid":"h"}}})", R"({"id":1,"id":{"hwid":"h"}})",
        R"({"id\u0000":{"hwid":"h"}})"}) {
    ExpectFile(contents, {}, {});
  }
}

TEST_F(EndpointIdentityTest, OtherTypesAreIgnored) {
  for (const char* const value : {"7", "7.5", "null", "true", "[\"x\"]", R"({"a":"x"})"}) {
    const std::string text = value;
    ExpectFile(
        R"({"id":{"hwid":)" + text + R"(,"custid":"c","customdata":{"ComputersFolder":"g"}}})",
        {"c", "g", ""}, {"Group id is: g", "Company id is: c"});
    ExpectFile(
        R"({"id":{"hwid":"h","custid":)" + text + R"(,"customdata":{"ComputersFolder":"g"}}})",
        {"", "g", "h"}, {"Group id is: g", "Hardware id is: h"});
    ExpectFile(R"({"id":{"hwid":"h","custid":"c","customdata":{"ComputersFolder":)" + text + "}}}",
               {"c", "", "h"}, {"Hardware id is: h", "Company id is: c"});
  }
  for (const char* const value : {"7", "null", "\"ComputersFolder\"", "[]", "{}",
                                  R"([{"ComputersFolder":"g"}])", R"({"computersFolder":"g"})"}) {
    ExpectFile(
        R"({"id":{"hwid":"h","custid":"c","ComputersFolder":"x","customdata":)"s + value + "}}",
        {"c", "", "h"}, {"Hardware id is: h", "Company id is: c"});
  }
}

TEST_F(EndpointIdentityTest, FirstMemberOfANameCounts) {
  ExpectFile(R"({"id":{"hwid":"h","hwid":"i","custid":1,"custid":"c","customdata":{},
                       "customdata":{"ComputersFolder":"g"}},"id":{"custid":"d"}})",
             {"", "", "h"}, {"Hardware id is: h"});
}

TEST_F(EndpointIdentityTest, AnyTextIsAccepted) {
  ExpectFile(
      R"({"id":{"hwid":"","custid":"a|b \"é\n","customdata":{"ComputersFolder":"x\u0000y"}}})",
      {"a|b \"é\n", "x\0y"s, ""},
      {"Group id is: x\0y"s, "Hardware id is: ", "Company id is: a|b \"é\n"});
}

TEST_F(EndpointIdentityTest, FileIsNotReadable) {
  AddFile(Configuration("h", "c", "g"));
  for (const int error : {EACCES, ENOTDIR, ELOOP}) {
    world.files[kFile].accessError = error;
    Expect({}, error, {}, {"Clearing non nullable values", "Cannot access agcfJso file path"});
  }
}

TEST_F(EndpointIdentityTest, FileCannotBeOpened) {
  AddFile(Configuration("h", "c", "g"));
  world.files[kFile].openError = EMFILE;
  Expect({}, 0, {},
         {"Clearing non nullable values", "Finished reading from Agcf configuration file"});
}

TEST_F(EndpointIdentityTest, InvalidFiles) {
  for (const char* const contents : {"",
                                     "\n",
                                     "{",
                                     "}",
                                     "{\"id\"",
                                     "{\"id\":{}",
                                     "{\"id\":{},}",
                                     "nul",
                                     "{'id':1}",
                                     "{} {}",
                                     "[1,]",
                                     "\"",
                                     "\"\n\"",
                                     "01",
                                     "1e",
                                     "+1",
                                     "1e999",
                                     "\"\\x\"",
                                     "\"\\u12\"",
                                     "\"\\ud800\"",
                                     "// comment\n{}",
                                     "\xEF\xBB\xBF{}",
                                     R"({"id":{"hwid":"h","custid":"c"}} trailing)"}) {
    ExpectInvalid(contents);
  }
}

TEST_F(EndpointIdentityTest, TextAfterANulIsIgnored) {
  ExpectFile(R"({"id":{"hwid":"h"}})"s + "\0 garbage"s, {"", "", "h"}, {"Hardware id is: h"});
  ExpectInvalid("{\"id\0\":{}}"s);
}

TEST_F(EndpointIdentityTest, ReadFault) {
  AddFile(R"({"id":{"hwid":"h"},"x":")" + std::string(100000, 'x') + "\"}");
  world.files[kFile].readError = EIO;
  const std::size_t size = world.files[kFile].contents.size();
  for (const std::size_t position : {std::size_t{0}, std::size_t{100}, std::size_t{16384}, size}) {
    world.files[kFile].readErrorAt = position;
    Expect({}, 9, {},
           {"Clearing non nullable values",
            "Exception happened while configuration file was opened. Read fault"});
  }
}

TEST_F(EndpointIdentityTest, ReadFaultAfterAnErrorIsNotReached) {
  AddFile("x" + std::string(100000, ' '));
  world.files[kFile].readError = EIO;
  world.files[kFile].readErrorAt = 50000;
  Expect({}, 9, {}, {"Clearing non nullable values", "Invalid agcfJso file"});
}

TEST_F(EndpointIdentityTest, ValuesFoundBeforeAFailureStay) {
  const std::string output = R"({"companyID":"C","endpointID":"E"})";
  const Values values = {"C", "", "E"};
  const Lines found = {kSearchEndpoint, "HwId found: E", kSearchCompany, "custId found: C"};
  AddFile("");
  ExpectWithSdk({}, output, 9, values, found, {"Invalid agcfJso file"});
  world.files[kFile].readError = EIO;
  ExpectWithSdk({}, output, 9, values, found,
                {"Exception happened while configuration file was opened. Read fault"});
  world.files[kFile].accessError = EACCES;
  ExpectWithSdk({}, output, EACCES, values, found, {"Cannot access agcfJso file path"});
}

TEST_F(EndpointIdentityTest, FailedAllocationWhileReadingIsAReadFault) {
  AddFile(Configuration("a hardware with a long name", "a company with a long name",
                        "a group with a long name"));
  Logger* const log = Log();
  bool hasFailed = true;
  int faults = 0;
  for (std::size_t number = 1; hasFailed; ++number) {
    Values values;
    int code = -1;
    fake::AllocationFailure failure;
    failure.Arm(number);
    try {
      code = Tool().GetEndpointInformation(&values.company, &values.group, &values.endpoint, kFile,
                                           false, log);
    } catch (const std::bad_alloc&) {
      // Not while reading.
    }
    hasFailed = failure.Disarm();
    const Lines lines = TakeLog();
    EXPECT_EQ(world.openFiles, 0);
    if (code != 9) continue;
    ++faults;
    EXPECT_EQ(lines.back(), "Exception happened while configuration file was opened. Read fault");
    // They are taken in this order, and what was taken stays.
    EXPECT_TRUE(values.endpoint.empty() || !values.group.empty());
    EXPECT_TRUE(values.company.empty() || !values.endpoint.empty());
  }
  EXPECT_GT(faults, 3);
}

TEST_F(EndpointIdentityTest, DeepNesting) {
  constexpr std::size_t kDepth = 100000;
  std::string objects;
  for (std::size_t level = 0; level < kDepth; ++level) objects += R"({"id":)";
  ExpectFile(R"({"x":)" + std::string(kDepth, '[') + std::string(kDepth, ']') +
                 R"(,"id":{"hwid":"h","custid":)" + objects + "1" + std::string(kDepth, '}') + "}}",
             {"", "", "h"}, {"Hardware id is: h"});
  ExpectInvalid(std::string(kDepth, '['));
  ExpectInvalid(objects);
}

TEST_F(EndpointIdentityTest, ChunksEndAnywhere) {
  // Leading spaces move the boundary of the first chunk through the whole document.
  const std::string document = Configuration("the \\u00e9 \\\"h\\\"", "c-1.5e3", "g");
  for (std::size_t offset = 0; offset <= document.size() + 2; ++offset) {
    std::string contents(16384 - document.size() - 1 + offset, ' ');
    AddFile(contents + document);
    std::string company;
    std::string group;
    std::string endpoint;
    ASSERT_EQ(Tool().GetEndpointInformation(&company, &group, &endpoint, kFile, false, nullptr), 0);
    ASSERT_EQ(company, "c-1.5e3");
    ASSERT_EQ(group, "g");
    ASSERT_EQ(endpoint, "the é \"h\"");
    AddFile(contents + document.substr(0, document.size() - 1));
    ASSERT_EQ(Tool().GetEndpointInformation(&company, &group, &endpoint, kFile, false, nullptr), 9);
    AddFile(contents + document + "}");
    ASSERT_EQ(Tool().GetEndpointInformation(&company, &group, &endpoint, kFile, false, nullptr), 9);
  }
}

TEST_F(EndpointIdentityTest, FileFillsWhatTheSdkLeftEmpty) {
  AddFile(Configuration("h", "c", "g"));
  ExpectWithSdk({}, R"({"companyID":"","endpointID":"E"})", 0, {"c", "g", "E"},
                {kSearchEndpoint, "HwId found: E", kSearchCompany, "custId found: "},
                Concat({{"Group id is: g", "Company id is: c"}, ClosedLog()}));
}

TEST_F(EndpointIdentityTest, FailedSdkCallIsIgnored) {
  world.files.clear();
  AddFile(Configuration("h", "c", "g"));
  ExpectRun({{}, true}, 0, {"c", "g", "h"}, nullptr);
}

TEST_F(EndpointIdentityTest, SdkIsAskedEvenWhenOnlyTheGroupIsWanted) {
  AddFile(Configuration("h", "c", "g"));
  ExpectWithSdk({false, true, false}, R"({"companyID":"C","endpointID":"E"})", 0, {"", "g", ""}, {},
                Concat({{"Group id is: g"}, ClosedLog()}));
  EXPECT_EQ(sdk.Requests().size(), 2U);
}

}  // namespace
}  // namespace install
