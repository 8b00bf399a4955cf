#include "tests/support/query_fixture.h"

namespace queries {
namespace {

using fake::CriticalIssues;
using fake::FeatureStatus;
using fake::Lines;
using fake::ProductVersion;
using std::string_literals::operator""s;

class CriticalIssuesTest : public fake::QueryFixture {
 protected:
  void Expect(const std::string& output, const std::string& result, const Lines& names) {
    Lines lines;
    for (const std::string& name : names) lines.push_back("Critical issue found: " + name);
    ExpectExtraction(CriticalIssues(), output, 0, result, lines);
  }
};

TEST_F(CriticalIssuesTest, WithoutAlertsTheTextStays) {
  for (const char* const output :
       {"{}", "null", R"({"Alerts":null})", R"({"Alerts":[{"severity":"critical"}]})",
        R"({"Alerts":"critical"})", R"({"Alerts":1})", R"({"Alerts":false})",
        R"({"alerts":{"a":{"severity":"critical"}}})",
        R"({"x":{"Alerts":{"a":{"severity":"critical"}}}})",
        R"({"Alerts":1,"Alerts":{"a":{"severity":"critical"}}})"}) {
    Expect(output, kBefore, {});
  }
}

TEST_F(CriticalIssuesTest, AlertsWithoutACriticalOneGiveAnEmptyText) {
  Expect(R"({"Alerts":{}})", "", {});
  Expect(R"({"Alerts":{"a":{"severity":"warning"},"b":{"severity":""}}})", "", {});
}

TEST_F(CriticalIssuesTest, CriticalAlertsInDocumentOrder) {
  Expect(R"({"Alerts":{"alertB":{"severity":"critical"},"fine":{"severity":"info"},
                       "alertA":{"x":1,"severity":"critical"}}})",
         "alertB|alertA", {"alertB", "alertA"});
}

TEST_F(CriticalIssuesTest, SeverityIsComparedIgnoringCase) {
  for (const char* const severity : {"critical", "Critical", "CRITICAL", "cRiTiCaL"}) {
    Expect(R"({"Alerts":{"a":{"severity":")"s + severity + R"("}}})", "a", {"a"});
  }
}

TEST_F(CriticalIssuesTest, OtherSeverities) {
  for (const char* const severity :
       {"critical ", " critical", "critica", "criticall", "crit\\u0131cal", "critical\\u0000",
        "\\u0000critical", "crit ical", "CR\\u0130TICAL", "{riti{al", "#RITICAL"}) {
    Expect(R"({"Alerts":{"a":{"severity":")"s + severity + R"("}}})", "", {});
  }
}

TEST_F(CriticalIssuesTest, OtherAlertsAreSkipped) {
  for (const char* const alert :
       {"null", "1", "\"critical\"", "[]", R"([{"severity":"critical"}])", "true", "{}",
        R"({"Severity":"critical"})", R"({"severity":1})", R"({"severity":null})",
        R"({"severity":["critical"]})", R"({"severity":{"severity":"critical"}})",
        R"({"severity":true})", R"({"severity":"warning","severity":"critical"})"}) {
    Expect(R"({"Alerts":{"a":)"s + alert + R"(,"b":{"severity":"critical"}}})", "b", {"b"});
  }
}

TEST_F(CriticalIssuesTest, AllAlertsOfANameAreListed) {
  Expect(R"({"Alerts":{"a":{"severity":"critical","severity":"x"},"a":{"severity":"critical"}},
             "Alerts":{"b":{"severity":"critical"}}})",
         "a|a", {"a", "a"});
}

TEST_F(CriticalIssuesTest, UnusualNames) {
  Expect(R"({"Alerts":{"":{"severity":"critical"},"two words":{"severity":"critical"},
             "a|b":{"severity":"critical"},"c=\"d\"":{"severity":"critical"},
             "é漢😀":{"severity":"critical"},"x\u0000y":{"severity":"critical"}}})",
         "two words|a|b|c=\"d\"|é漢😀|x\0y"s, {"", "two words", "a|b", "c=\"d\"", "é漢😀", "x\0y"s});
}

class ProductVersionTest : public fake::QueryFixture {
 protected:
  void ExpectFound(const std::string& output, const std::string& version) {
    ExpectExtraction(ProductVersion(), output, 0, version, {"Found product version: " + version});
  }
  void ExpectNothing(const std::string& output) {
    ExpectExtraction(ProductVersion(), output, 0, kBefore, {});
  }
};

TEST_F(ProductVersionTest, Found) {
  ExpectFound(R"({"Locations":{"Product":{"Version":"7.21.300129.200129"}}})",
              "7.21.300129.200129");
  ExpectFound(R"({"Locations":{"x":{"Version":"1"},"Product":{"update":{},"Version":"2"}}})", "2");
  ExpectFound(R"({"Locations":{"Product":{"Version":"1","Version":"2"}}})", "1");
}

TEST_F(ProductVersionTest, AnyTextIsAccepted) {
  ExpectFound(R"({"Locations":{"Product":{"Version":""}}})", "");
  ExpectFound(R"({"Locations":{"Product":{"Version":" a|b=\"c\"é\n"}}})", " a|b=\"c\"é\n");
  ExpectFound(R"({"Locations":{"Product":{"Version":"1\u00002"}}})", "1\0002"s);
  const std::string longText(100000, 'v');
  ExpectFound(R"({"Locations":{"Product":{"Version":")" + longText + R"("}}})", longText);
}

TEST_F(ProductVersionTest, StepsThatAreAbsentOrOfAnotherType) {
  for (const char* const output :
       {"{}", "null", R"({"Version":"1"})", R"({"Product":{"Version":"1"}})",
        R"({"locations":{"Product":{"Version":"1"}}})", R"({"Locations":null})",
        R"({"Locations":[{"Product":{"Version":"1"}}]})", R"({"Locations":"Product"})",
        R"({"Locations":{}})", R"({"Locations":{"product":{"Version":"1"}}})",
        R"({"Locations":{"Product":null}})", R"({"Locations":{"Product":"1"}})",
        R"({"Locations":{"Product":[{"Version":"1"}]}})", R"({"Locations":{"Product":{}}})",
        R"({"Locations":{"Product":{"version":"1"}}})",
        R"({"Locations":{"Product":{"update":{"Version":"1"}}}})",
        R"({"Locations":1,"Locations":{"Product":{"Version":"1"}}})",
        R"({"Locations":{"Product":1,"Product":{"Version":"1"}}})",
        R"({"Locations":{"Product":{"Version":1,"Version":"1"}}})"}) {
    ExpectNothing(output);
  }
  for (const char* const version : {"7", "7.21", "null", "true", "[\"7\"]", R"({"Version":"7"})"}) {
    ExpectNothing(R"({"Locations":{"Product":{"Version":)"s + version + "}}}");
  }
}

class FeatureStatusTest : public fake::QueryFixture {
 protected:
  /// `features` are the elements of the array.
  void Expect(const std::string& features, const std::string& result, const Lines& lines) {
    ExpectExtraction(FeatureStatus(), R"({"Features":[)" + features + "]}", 0, result, lines);
  }
};

TEST_F(FeatureStatusTest, WithoutFeaturesTheTextStays) {
  for (const char* const output :
       {"{}", "null", R"({"Features":null})", R"({"Features":{"id":"a","enabled":true}})",
        R"({"Features":{}})", R"({"Features":"a"})", R"({"Features":1})", R"({"Features":[]})",
        R"({"features":[{"id":"a"}]})", R"({"x":{"Features":[{"id":"a"}]}})",
        R"({"Features":[],"Features":[{"id":"a"}]})"}) {
    ExpectExtraction(FeatureStatus(), output, 0, kBefore, {});
  }
}

TEST_F(FeatureStatusTest, FeaturesWithoutIdentifiersGiveAnEmptyText) {
  Expect(R"({"enabled":true},{"isFunctioning":true},{"id":1},{})", "", {});
}

TEST_F(FeatureStatusTest, VerdictOfTheProductComesFirst) {
  Expect(R"({"id":"a","enabled":true,"isFunctioning":false},
            {"id":"b","enabled":false,"isFunctioning":true})",
         "a=0|b=1",
         {"Feature with id= a is functioning: 0", "Feature with id= b is functioning: 1"});
}

TEST_F(FeatureStatusTest, OnlyTrueIsTrue) {
  for (const char* const value :
       {"false", "null", "\"true\"", "1", "1.0", "[true]", R"({"a":true})", "\"\""}) {
    Expect(R"({"id":"a","enabled":true,"isFunctioning":)"s + value + "}", "a=0",
           {"Feature with id= a is functioning: 0"});
    Expect(R"({"id":"a","enabled":)"s + value + "}", "a=0", {"Feature a is not enabled"});
  }
}

TEST_F(FeatureStatusTest, WithoutAVerdictBeingEnabledDecides) {
  Expect(R"({"id":"on","enabled":true},{"id":"off","enabled":false},{"id":"silent"},
            {"id":"other","IsFunctioning":true,"Enabled":true})",
         "on=1|off=0|silent=0|other=0",
         {"Feature off is not enabled", "Feature silent is not enabled",
          "Feature other is not enabled"});
}

TEST_F(FeatureStatusTest, ElementsWithoutIdentifierAreLeftOut) {
  for (const char* const element :
       {R"({"isFunctioning":true})", R"({"id":null,"enabled":true})", R"({"id":7})",
        R"({"id":["a"]})", R"({"id":{}})", R"({"Id":"a"})", R"({"id":true})",
        R"({"id":1,"id":"a"})", "null", "1", "\"id\"", "[]", R"([{"id":"a"}])", "true", "{}"}) {
    Expect(element + R"(,{"id":"b","enabled":true},)"s + element +
               R"(,{"id":"c","enabled":true},)" + element,
           "b=1|c=1", {});
  }
}

TEST_F(FeatureStatusTest, FirstMemberOfANameCounts) {
  Expect(R"({"id":"a","id":"b","isFunctioning":true,"isFunctioning":false},
            {"id":"c","enabled":false,"enabled":true})",
         "a=1|c=0", {"Feature with id= a is functioning: 1", "Feature c is not enabled"});
}

TEST_F(FeatureStatusTest, UnusualIdentifiers) {
  Expect(
      R"({"id":"","enabled":true},{"id":"two words","enabled":true},{"id":"a|b=1","enabled":true},
            {"id":"\"é漢😀","isFunctioning":true},{"id":"x\u0000y"},{"id":"two words"})",
      "=1|two words=1|a|b=1=1|\"é漢😀=1|x\0y=0|two words=0"s,
      {"Feature with id= \"é漢😀 is functioning: 1", "Feature x\0y is not enabled"s,
       "Feature two words is not enabled"});
}

}  // namespace
}  // namespace queries
