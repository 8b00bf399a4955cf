#include <limits>

#include "tests/support/query_fixture.h"

namespace queries {
namespace {

using fake::IsUpToDate;
using fake::LastUpdate;
using fake::Lines;
using fake::UpdateErrors;
using fake::UpdateLocations;
using fake::UpdateStatus;

/// The wall clock of the fake world, in whole seconds.
constexpr long long kNow = 1700000000;

/// Outputs in which "Locations" is absent or not an object.
const std::vector<std::string> kWithoutLocations = {
    R"({})",
    R"({"locations":{"a":{"update":{"error":1}}}})",
    R"({"Locations ":{}})",
    R"({"x":{"Locations":{"a":{}}}})",
    R"({"Locations":null})",
    R"({"Locations":[{"a":{"update":{"error":1}}}]})",
    R"({"Locations":"a"})",
    R"({"Locations":7})",
    R"({"Locations":true})",
    R"(null)",
    R"({"Locations":1,"Locations":{"a":{"update":{"error":1}}}})",
};

/// {"Locations":{"locA":{"update":UPDATE}}}
std::string WithUpdate(const std::string& update) {
  return R"({"Locations":{"locA":{"update":)" + update + "}}}";
}

class UpdateErrorsTest : public fake::QueryFixture {
 protected:
  /// `entries` are those of the result.
  void Expect(const std::string& output, const Lines& entries) {
    std::string result;
    Lines lines = {"Checking for \"Locations\" field"};
    for (const std::string& entry : entries) {
      result += (result.empty() ? "" : "|") + entry;
      lines.push_back("Found an error: " + entry);
    }
    ExpectExtraction(UpdateErrors(), output, 0, result, lines);
  }
};

TEST_F(UpdateErrorsTest, WithoutLocationsTheTextIsEmpty) {
  for (const std::string& output : kWithoutLocations) Expect(output, {});
  Expect(R"({"Locations":{}})", {});
}

TEST_F(UpdateErrorsTest, FailuresAreListedInDocumentOrder) {
  Expect(R"({"Locations":{
      "locB":{"update":{"error":2}},"locA":{"update":{"error":-1}},"fine":{"update":{"error":0}},
      "locC":{"update":{"time":1,"error":5}}}})",
         {"locB=2", "locA=-1", "locC=5"});
}

TEST_F(UpdateErrorsTest, NoLocationIsExcluded) {
  Expect(R"({"Locations":{"Product":{"update":{"error":1}},"ctc":{"update":{"error":-2003}}}})",
         {"Product=1", "ctc=-2003"});
}

TEST_F(UpdateErrorsTest, OtherValuesAddNothing) {
  for (const char* const location : {"null",
                                     "1",
                                     "\"update\"",
                                     "[{}]",
                                     "{}",
                                     R"({"Update":{"error":1}})",
                                     R"({"update":null})",
                                     R"({"update":[{"error":1}]})",
                                     R"({"update":"error"})",
                                     R"({"update":1})",
                                     R"({"update":{}})",
                                     R"({"update":{"Error":1}})",
                                     R"({"update":{"error":0}})",
                                     R"({"update":{"error":-0}})",
                                     R"({"update":{"error":null}})",
                                     R"({"update":{"error":"1"}})",
                                     R"({"update":{"error":true}})",
                                     R"({"update":{"error":[1]}})",
                                     R"({"update":{"error":{}}})",
                                     R"({"update":{"error":5.0}})",
                                     R"({"update":{"error":1e3}})",
                                     R"({"update":{"error":2147483648}})",
                                     R"({"update":{"error":-2147483649}})",
                                     R"({"update":{"error":4294967297}})",
                                     R"({"update":{"error":18446744073709551617}})",
                                     R"({"error":1})"}) {
    Expect(R"({"Locations":{"a":)" + std::string(location) + R"(,"b":{"update":{"error":9}}}})",
           {"b=9"});
  }
}

TEST_F(UpdateErrorsTest, Limits) {
  Expect(R"({"Locations":{"min":{"update":{"error":-2147483648}},
                          "max":{"update":{"error":2147483647}},
                          "one":{"update":{"error":1}}}})",
         {"min=-2147483648", "max=2147483647", "one=1"});
}

TEST_F(UpdateErrorsTest, FirstMemberOfANameCounts) {
  Expect(R"({"Locations":{"a":{"update":{"error":0,"error":1}},
                          "b":{"update":{"error":2,"error":0}},
                          "c":{"update":{"error":3},"update":{"error":4}},
                          "d":{"update":5,"update":{"error":6}},
                          "e":{"update":{"error":"x","error":7}}},
             "Locations":{"f":{"update":{"error":8}}}})",
         {"b=2", "c=3"});
}

TEST_F(UpdateErrorsTest, AllLocationsOfANameAreListed) {
  Expect(R"({"Locations":{"a":{"update":{"error":1}},"a":{"update":{"error":2}}}})",
         {"a=1", "a=2"});
}

TEST_F(UpdateErrorsTest, UnusualNames) {
  Expect(R"({"Locations":{"two words":{"update":{"error":1}},"a|b":{"update":{"error":2}},
             "c=d":{"update":{"error":3}},"\"q\"":{"update":{"error":4}},
             "é漢😀":{"update":{"error":5}},"\u00e9":{"update":{"error":6}},
             "":{"update":{"error":7}},"\t\\":{"update":{"error":8}}}})",
         {"two words=1", "a|b=2", "c=d=3", "\"q\"=4", "é漢😀=5", "é=6", "=7", "\t\\=8"});
}

TEST_F(UpdateErrorsTest, NamesKeepTheirNulCharacters) {
  using std::string_literals::operator""s;
  Expect(R"({"Locations":{"a\u0000b":{"update":{"error":1}},"\u0000":{"update":{"error":2}},
             "c":{"update\u0000":{"error":3},"update":{"error\u0000":4}}}})",
         {"a\0b=1"s, "\0=2"s});
}

class UpdateStatusTest : public fake::QueryFixture {
 protected:
  /// Asks for the location "locA".
  void Expect(const std::string& output, int code, const std::string& result,
              const Lines& lines = {}) {
    ExpectExtraction(UpdateStatus("locA"), output, code, result, lines);
  }
};

constexpr char kNoError[] = "Invalid JSON. Cannot find \"error\" field";
constexpr char kNoTime[] = "Invalid JSON. Cannot find \"time\" field";
constexpr char kNoLastSuccess[] = "Invalid JSON. Cannot find \"lastSucceededTime\" field";

TEST_F(UpdateStatusTest, WithoutLocationsTheTextIsEmpty) {
  for (const std::string& output : kWithoutLocations) Expect(output, 0, "");
}

TEST_F(UpdateStatusTest, FullAnswer) {
  Expect(WithUpdate(R"({"error":0,"time":1700000000,"lastSucceededTime":1699990000})"), 0,
         "0|1700000000|1699990000");
  Expect(WithUpdate(R"({"lastSucceededTime":3,"x":[{}],"time":2,"error":1})"), 0, "1|2|3");
  Expect(WithUpdate(R"({"error":-2003,"time":-1,"lastSucceededTime":0})"), 0, "-2003|-1|0");
}

TEST_F(UpdateStatusTest, UnknownLocation) {
  for (const char* const locations :
       {R"({})", R"({"LocA":{"update":{}}})", R"({"locA ":{}})", R"({"locA":null})",
        R"({"locA":[]})", R"({"locA":"update"})", R"({"locA":1})",
        R"({"locA":1,"locA":{"update":{"error":0}}})"}) {
    Expect(R"({"Locations":)" + std::string(locations) + "}", 22, "",
           {"Invalid JSON. Cannot find \" locA\" field"});
  }
}

TEST_F(UpdateStatusTest, LocationWithoutUpdate) {
  for (const char* const location : {R"({})", R"({"update":null})", R"({"update":[]})",
                                     R"({"update":7})", R"({"Update":{"error":0}})"}) {
    Expect(R"({"Locations":{"locA":)" + std::string(location) + "}}", 0, "");
  }
}

TEST_F(UpdateStatusTest, MissingFieldsDoNotEndTheWalk) {
  Expect(WithUpdate(R"({"time":1700000000,"lastSucceededTime":1699990000})"), 3,
         "|1700000000|1699990000", {kNoError});
  Expect(WithUpdate(R"({"error":1,"lastSucceededTime":3})"), 3, "1|3", {kNoTime});
  Expect(WithUpdate(R"({"error":1,"time":2})"), 3, "1|2", {kNoLastSuccess});
  Expect(WithUpdate(R"({"error":0})"), 3, "0", {kNoTime, kNoLastSuccess});
  Expect(WithUpdate(R"({"time":2})"), 3, "|2", {kNoError, kNoLastSuccess});
  Expect(WithUpdate(R"({"lastSucceededTime":3})"), 3, "|3", {kNoError, kNoTime});
  Expect(WithUpdate(R"({})"), 3, "", {kNoError, kNoTime, kNoLastSuccess});
}

TEST_F(UpdateStatusTest, FieldsOfOtherTypesAreMissing) {
  for (const char* const value : {"null", "\"1\"", "true", "[1]", "{}", "5.0", "0.0", "1e3", "-1E2",
                                  "9223372036854775808", "-9223372036854775809", "1e300"}) {
    const std::string text = value;
    Expect(WithUpdate(R"({"error":)" + text + R"(,"time":2,"lastSucceededTime":3})"), 3, "|2|3",
           {kNoError});
    Expect(WithUpdate(R"({"error":1,"time":)" + text + R"(,"lastSucceededTime":3})"), 3, "1|3",
           {kNoTime});
    Expect(WithUpdate(R"({"error":1,"time":2,"lastSucceededTime":)" + text + "}"), 3, "1|2",
           {kNoLastSuccess});
  }
}

TEST_F(UpdateStatusTest, Limits) {
  Expect(WithUpdate(R"({"error":2147483647,"time":9223372036854775807,
                        "lastSucceededTime":-9223372036854775808})"),
         0, "2147483647|9223372036854775807|-9223372036854775808");
  Expect(WithUpdate(R"({"error":-2147483648,"time":2147483648,"lastSucceededTime":-0})"), 0,
         "-2147483648|2147483648|0");
  Expect(WithUpdate(R"({"error":2147483648,"time":3000000000,"lastSucceededTime":1})"), 3,
         "|3000000000|1", {kNoError});
  Expect(WithUpdate(R"({"error":-2147483649,"time":1,"lastSucceededTime":1})"), 3, "|1|1",
         {kNoError});
}

TEST_F(UpdateStatusTest, FirstMemberOfANameCounts) {
  Expect(R"({"Locations":{"locA":{"update":{"error":1,"error":2,"time":3,"time":"x",
             "lastSucceededTime":5,"lastSucceededTime":6},"update":7},
             "locA":{"update":{"error":8}}}})",
         0, "1|3|5");
  Expect(WithUpdate(R"({"error":"x","error":2,"time":3,"lastSucceededTime":5})"), 3, "|3|5",
         {kNoError});
}

TEST_F(UpdateStatusTest, UnusualLocations) {
  const std::string update = R"({"update":{"error":1,"time":2,"lastSucceededTime":3}})";
  const std::vector<std::pair<std::string, std::string>> namesAndJson = {
      {"", ""},         {" ", " "},       {"two words", "two words"},
      {"a|b", "a|b"},   {"c=d", "c=d"},   {"\"q\"", "\\\"q\\\""},
      {"é漢😀", "é漢😀"}, {"é", "\\u00e9"}, {"back\\slash", "back\\\\slash"}};
  for (const auto& [name, json] : namesAndJson) {
    ExpectExtraction(UpdateStatus(name), R"({"Locations":{")" + json + "\":" + update + "}}", 0,
                     "1|2|3", {});
    ExpectExtraction(UpdateStatus(name), R"({"Locations":{")" + json + "x\":" + update + "}}", 22,
                     "", {"Invalid JSON. Cannot find \" " + name + "\" field"});
  }
}

TEST_F(UpdateStatusTest, NameWithNulCharacterIsAnotherName) {
  Expect(R"({"Locations":{"locA\u0000":{"update":{"error":1}}}})", 22, "",
         {"Invalid JSON. Cannot find \" locA\" field"});
}

class UpToDateTest : public fake::QueryFixture {
 protected:
  void ExpectCurrent(const std::string& output) {
    ExpectExtraction(IsUpToDate(), output, 0, "1", {});
  }
  void ExpectOutdated(const std::string& output) {
    ExpectExtraction(IsUpToDate(), output, 0, "0", {"Product is not up to date"});
  }
};

/// An update that failed with `error` and last succeeded `age` seconds ago.
std::string Update(const std::string& error, long long age) {
  return R"({"error":)" + error + R"(,"lastSucceededTime":)" + std::to_string(kNow - age) + "}";
}

TEST_F(UpToDateTest, WithoutLocations) {
  for (const std::string& output : kWithoutLocations) ExpectCurrent(output);
  ExpectCurrent(R"({"Locations":{}})");
}

TEST_F(UpToDateTest, GoodErrors) {
  ExpectCurrent(WithUpdate(Update("0", 0)));
  ExpectCurrent(WithUpdate(Update("-2003", 0)));
  ExpectCurrent(WithUpdate(Update("-0", 0)));
}

TEST_F(UpToDateTest, BadErrors) {
  for (const char* const error : {"1", "-1", "-2002", "-2004", "2003", "2147483647", "-2147483648"})
    ExpectOutdated(WithUpdate(Update(error, 0)));
}

TEST_F(UpToDateTest, Age) {
  ExpectCurrent(WithUpdate(Update("0", 172800)));
  ExpectOutdated(WithUpdate(Update("0", 172801)));
  ExpectCurrent(WithUpdate(Update("-2003", 172800)));
  ExpectOutdated(WithUpdate(Update("-2003", 172801)));
}

TEST_F(UpToDateTest, FractionsOfASecondAreIgnored) {
  world.wallMicroseconds = kNow * 1000000 + 999999;
  ExpectCurrent(WithUpdate(Update("0", 172800)));
  world.wallMicroseconds = kNow * 1000000;
}

TEST_F(UpToDateTest, FutureTimesPass) {
  ExpectCurrent(WithUpdate(Update("0", -1)));
  ExpectCurrent(WithUpdate(R"({"error":0,"lastSucceededTime":9223372036854775807})"));
}

TEST_F(UpToDateTest, DistantPast) {
  ExpectOutdated(WithUpdate(R"({"error":0,"lastSucceededTime":0})"));
  ExpectOutdated(WithUpdate(R"({"error":0,"lastSucceededTime":-1})"));
  ExpectOutdated(WithUpdate(R"({"error":0,"lastSucceededTime":-9223372036854775808})"));
}

TEST_F(UpToDateTest, OtherErrorsAreIgnoredButTheAgeCounts) {
  for (const char* const error : {"5.0", "1e1", "\"1\"", "null", "true", "{}", "[1]", "2147483648",
                                  "-2147483649", "3000000000", "0.5"}) {
    ExpectCurrent(WithUpdate(Update(error, 0)));
    ExpectOutdated(WithUpdate(Update(error, 172801)));
  }
}

TEST_F(UpToDateTest, OtherTimesAreIgnoredButTheErrorCounts) {
  for (const char* const time :
       {"0.0", "1e3", "\"0\"", "null", "false", "{}", "[0]", "9223372036854775808", "-1e300"}) {
    const std::string rest = std::string(R"(,"lastSucceededTime":)") + time + "}";
    ExpectCurrent(WithUpdate(R"({"error":0)" + rest));
    ExpectCurrent(WithUpdate(R"({"error":-2003)" + rest));
    ExpectOutdated(WithUpdate(R"({"error":1)" + rest));
  }
}

TEST_F(UpToDateTest, UpdateThatLacksAFieldIsSkipped) {
  ExpectCurrent(WithUpdate(R"({"error":1})"));
  ExpectCurrent(WithUpdate(R"({"lastSucceededTime":0})"));
  ExpectCurrent(WithUpdate(R"({"error":1,"LastSucceededTime":0})"));
  ExpectCurrent(WithUpdate("{}"));
}

TEST_F(UpToDateTest, LocationWithoutUpdateIsSkipped) {
  const std::string bad = Update("1", 999999);
  for (const std::string& location :
       {std::string("null"), std::string("1"), std::string("\"update\""), "[" + bad + "]",
        std::string("{}"), std::string(R"({"update":null})"), R"({"update":[)" + bad + "]}",
        std::string(R"({"update":"x"})"), R"({"Update":)" + bad + "}", bad}) {
    ExpectCurrent(R"({"Locations":{"locA":)" + location + "}}");
  }
}

TEST_F(UpToDateTest, ProductAndCtcAreIgnored) {
  const std::string bad = R"({"update":)" + Update("1", 999999) + "}";
  ExpectCurrent(R"({"Locations":{"Product":)" + bad + R"(,"ctc":)" + bad + "}}");
  for (const char* const name : {"product", "PRODUCT", "Ctc", "CTC", "Product ", " ctc", "",
                                 "Product\\u0000", "ctc\\u0000x", "Produc"}) {
    ExpectOutdated(R"({"Locations":{")" + std::string(name) + "\":" + bad + "}}");
  }
}

TEST_F(UpToDateTest, FirstFailureDecides) {
  const std::string good = R"({"update":)" + Update("0", 0) + "}";
  const std::string bad = R"({"update":)" + Update("1", 0) + "}";
  const std::string stale = R"({"update":)" + Update("0", 172801) + "}";
  ExpectOutdated(R"({"Locations":{"a":)" + good + R"(,"b":)" + bad + R"(,"c":)" + stale +
                 R"(,"d":)" + bad + "}}");
  ExpectOutdated(R"({"Locations":{"a":)" + stale + R"(,"b":)" + bad + "}}");
  ExpectOutdated(R"({"Locations":{"a":{},"b":)" + good + R"(,"c":)" + stale + "}}");
  ExpectCurrent(R"({"Locations":{"a":)" + good + R"(,"b":)" + good + "}}");
}

TEST_F(UpToDateTest, FirstMemberOfANameCounts) {
  ExpectCurrent(WithUpdate(R"({"error":0,"error":1,"lastSucceededTime":1700000000,
                               "lastSucceededTime":0})"));
  ExpectOutdated(WithUpdate(R"({"error":1,"error":0,"lastSucceededTime":1700000000})"));
  const std::string good = R"({"update":)" + Update("0", 0) + "}";
  const std::string bad = R"({"update":)" + Update("1", 0) + "}";
  ExpectOutdated(R"({"Locations":{"a":)" + good + R"(,"a":)" + bad + "}}");
}

class UpdateLocationsTest : public fake::QueryFixture {
 protected:
  void Expect(const std::string& output, const std::string& result, const Lines& names) {
    Lines lines;
    for (const std::string& name : names) lines.push_back("Location found: " + name);
    ExpectExtraction(UpdateLocations(), output, 0, result, lines);
  }
};

TEST_F(UpdateLocationsTest, TextStaysOnlyWithoutLocations) {
  for (const std::string& output : kWithoutLocations) Expect(output, kBefore, {});
  Expect(R"({"Locations":{}})", "", {});
}

TEST_F(UpdateLocationsTest, NamesInDocumentOrderWhateverTheirValues) {
  Expect(R"({"Locations":{"Product":{},"locB":null,"ctc":1,"a":[],"b":"x","c":{"update":{}}}})",
         "Product|locB|ctc|a|b|c", {"Product", "locB", "ctc", "a", "b", "c"});
  Expect(R"({"Locations":{"one":1}})", "one", {"one"});
  Expect(R"({"Locations":{"a":1,"a":2}})", "a|a", {"a", "a"});
}

TEST_F(UpdateLocationsTest, UnusualNames) {
  using std::string_literals::operator""s;
  Expect(R"({"Locations":{"two words":1,"a|b":1,"c=d":1,"\"":1,"é漢😀":1,"\u0000":1,"x\u0000y":1}})",
         "two words|a|b|c=d|\"|é漢😀|\0|x\0y"s,
         {"two words", "a|b", "c=d", "\"", "é漢😀", "\0"s, "x\0y"s});
}

TEST_F(UpdateLocationsTest, EmptyListTakesNoSeparator) {
  Expect(R"({"Locations":{"":1,"a":1}})", "a", {"", "a"});
  Expect(R"({"Locations":{"a":1,"":1,"b":1}})", "a||b", {"a", "", "b"});
  Expect(R"({"Locations":{"":1}})", "", {""});
}

TEST_F(UpdateLocationsTest, NameOfSeveralLines) {
  Expect(R"({"Locations":{"a\nb":1,"c":1}})", "a\nb|c", {"a\nb", "c"});
}

class LastUpdateTest : public fake::QueryFixture {
 protected:
  void ExpectFound(const std::string& output, const std::string& value) {
    ExpectExtraction(LastUpdate(), output, 0, value,
                     {"Last update time found with value: " + value});
  }
  void ExpectNothing(const std::string& output) {
    ExpectExtraction(LastUpdate(), output, 0, kBefore, {});
  }
};

TEST_F(LastUpdateTest, Found) {
  for (const char* const value :
       {"1700000000", "0", "-1", "3000000000", "9223372036854775807", "-9223372036854775808"}) {
    ExpectFound(R"({"x":1,"LastUpdateTime":)" + std::string(value) + "}", value);
  }
  ExpectFound(R"({"LastUpdateTime":-0})", "0");
  ExpectFound(R"({"LastUpdateTime":1,"LastUpdateTime":2})", "1");
}

TEST_F(LastUpdateTest, AbsentOrOfAnotherType) {
  ExpectNothing("{}");
  ExpectNothing("null");
  ExpectNothing(R"({"Locations":{"LastUpdateTime":1}})");
  ExpectNothing(R"({"lastUpdateTime":1})");
  ExpectNothing(R"({"LastUpdateTime":"x","LastUpdateTime":2})");
  for (const char* const value : {"null", "\"1\"", "true", "[1]", "{}", "1.0", "1e3", "1E-1",
                                  "9223372036854775808", "-9223372036854775809"}) {
    ExpectNothing(R"({"LastUpdateTime":)" + std::string(value) + "}");
  }
}

}  // namespace
}  // namespace queries
