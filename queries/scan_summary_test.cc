#include "queries/scan_summary.h"

#include <gtest/gtest.h>

#include <rapidxml/rapidxml.hpp>
#include <string>

namespace queries {
namespace {

using std::string_literals::operator""s;

/// Reads `text` and expects the scan to have ended at `endTime`.
void ExpectRead(std::string text, std::int64_t endTime) {
  SCOPED_TRACE(text);
  std::int64_t time = -1;
  EXPECT_EQ(ReadScanSummary(text, time), SummaryResult::kRead);
  EXPECT_EQ(time, endTime);
}

/// Reads `text`, which is XML but not a usable summary, and expects the time to be left alone.
void ExpectUnusable(std::string text, SummaryResult problem) {
  SCOPED_TRACE(text);
  std::int64_t time = 4711;
  EXPECT_EQ(ReadScanSummary(text, time), problem);
  EXPECT_EQ(time, 4711);
}

void ExpectRefused(std::string text) {
  SCOPED_TRACE(text);
  std::int64_t time = 4711;
  EXPECT_THROW(ReadScanSummary(text, time), rapidxml::parse_error);
  EXPECT_EQ(time, 4711);
}

std::string Summary(const std::string& startTime, const std::string& duration) {
  return "<Scan><ScanSummary startTime=\"" + startTime + "\" duration=\"" + duration +
         "\"/></Scan>";
}

struct Times {
  const char* startTime;
  const char* duration;
  std::int64_t end;
};

void ExpectEnds(std::initializer_list<Times> rows) {
  for (const Times& row : rows) ExpectRead(Summary(row.startTime, row.duration), row.end);
}

TEST(ScanSummaryTest, EndIsStartPlusDuration) {
  ExpectEnds({{"1617185400", "120500", 1617185520},
              {"1617185400", "999", 1617185400},
              {"1617185400", "1000", 1617185401},
              {"0", "0", 0}});
}

TEST(ScanSummaryTest, DivisionTruncatesTowardZero) {
  ExpectEnds({{"-1", "0", -1},
              {"-1", "1", 0},
              {"-1", "999", 0},
              {"-2", "500", -1},
              {"0", "-999", 0},
              {"0", "-1999", -1},
              {"10", "-1", 9}});
}

TEST(ScanSummaryTest, NumbersAreReadAsAtolDoes) {
  ExpectEnds({{"\t\n\v\f\r 12", "0", 12},
              {"+12", "0", 12},
              {"12 34", "0", 12},
              {"12.9", "0", 12},
              {"12e3", "0", 12},
              {"0x10", "0", 0},
              {"010", "0", 10},
              {" ", "5000", 5},
              {"-", "5000", 5},
              {"- 1", "5000", 5},
              {"+-1", "5000", 5},
              {"7", "x", 7},
              {"7", "1500ms", 8},
              {"\xC2\xA0 7", "0", 0}});
}

TEST(ScanSummaryTest, CharacterReferencesAreExpanded) {
  ExpectRead(Summary("&#49;&#x32;", "0"), 12);
  ExpectRead(Summary("1&amp;2", "0"), 1);
  ExpectRead(Summary("&#0;1", "0"), 0);
}

TEST(ScanSummaryTest, NumbersSaturateAndTheSumWraps) {
  constexpr std::int64_t kMax = 9223372036854775807;
  // (2^63 - 1) * 1000 is -1000 in two's complement; -2^63 * 1000 is 0.
  ExpectEnds({{"9223372036854775807", "0", -1},
              {"9223372036854775808", "0", -1},
              {"-9223372036854775808", "0", 0},
              {"-99999999999999999999999999999999", "7000", 7},
              {"0", "99999999999999999999999999999999", kMax / 1000},
              {"0", "-99999999999999999999999999999999", -(kMax / 1000)},
              {"1", "9223372036854775807", -9223372036854774},
              {"9223372036854775", "807", 9223372036854775},
              {"9223372036854775", "808", -9223372036854775}});
}

TEST(ScanSummaryTest, NoRoot) {
  for (const char* const text :
       {"", " ", "\n\t\r ", "<?xml version=\"1.0\"?>", "<!-- nothing -->", "<!DOCTYPE x>",
        "\xEF\xBB\xBF", "\xEF\xBB\xBF<?xml version='1.0'?>\n<!-- a --><?pi b?>"}) {
    ExpectUnusable(text, SummaryResult::kNoRoot);
  }
  ExpectUnusable("\0<a/>"s, SummaryResult::kNoRoot);
}

TEST(ScanSummaryTest, NoScanSummary) {
  for (const char* const text :
       {"<a/>", "<a></a>", "<a>text</a>", "<ScanSummary startTime=\"1\" duration=\"1\"/>",
        "<a><scanSummary startTime=\"1\" duration=\"1\"/></a>",
        "<a><ScanSummaryX startTime=\"1\" duration=\"1\"/></a>",
        "<a><x:ScanSummary startTime=\"1\" duration=\"1\"/></a>",
        "<a><b><ScanSummary startTime=\"1\" duration=\"1\"/></b></a>",
        "<a><!-- <ScanSummary startTime=\"1\" duration=\"1\"/> --></a>",
        "<a><![CDATA[<ScanSummary startTime=\"1\" duration=\"1\"/>]]></a>",
        "<a/><a><ScanSummary startTime=\"1\" duration=\"1\"/></a>",
        "<![CDATA[x]]><a><ScanSummary startTime=\"1\" duration=\"1\"/></a>"}) {
    ExpectUnusable(text, SummaryResult::kNoScanSummary);
  }
}

TEST(ScanSummaryTest, NoStartTime) {
  for (const char* const attributes :
       {"", "duration=\"1\"", "startTime=\"\" duration=\"1\"", "starttime=\"1\" duration=\"1\"",
        "StartTime=\"1\"", "startTime=\"\"", "startTime='' startTime='1' duration='1'",
        "x:startTime=\"1\" duration=\"1\""}) {
    ExpectUnusable("<a><ScanSummary "s + attributes + "/></a>", SummaryResult::kNoStartTime);
  }
  ExpectUnusable("<a><ScanSummary><startTime>1</startTime></ScanSummary></a>",
                 SummaryResult::kNoStartTime);
}

TEST(ScanSummaryTest, NoDuration) {
  for (const char* const attributes :
       {"startTime=\"1\"", "startTime=\"1\" duration=\"\"", "startTime=\"1\" Duration=\"1\"",
        "startTime='x' duration=''", "startTime='1' duration='' duration='1'"}) {
    ExpectUnusable("<a><ScanSummary "s + attributes + "/></a>", SummaryResult::kNoDuration);
  }
}

TEST(ScanSummaryTest, FirstOfSeveralCounts) {
  ExpectRead("<a><ScanSummary startTime='1' startTime='2' duration='0' duration='5000'/></a>", 1);
  ExpectUnusable("<a><ScanSummary/><ScanSummary startTime='1' duration='0'/></a>",
                 SummaryResult::kNoStartTime);
}

TEST(ScanSummaryTest, TextAfterANulIsIgnored) { ExpectRead(Summary("5", "0") + "\0<<<"s, 5); }

TEST(ScanSummaryTest, EverythingElseIsIgnored) {
  ExpectRead(R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?>
<!-- a comment -->
<?pi what?>
<!DOCTYPE Scan [<!ELEMENT a (b)>]>
<Anything attribute="x">
  text <Other startTime="1" duration="2"><ScanSummary startTime="3" duration="4"/></Other>
  <ScanSummary type='0' duration = '120500'   startTime	=
      "1617185400">ignored <b/> content</ScanSummary>
  <ScanSummary startTime="5" duration="6"/>
</Anything>
<More/>)",
             1617185520);
}

TEST(ScanSummaryTest, TextThatIsNotXmlIsRefused) {
  for (const char* const text : {"x",
                                 "{}",
                                 "<",
                                 "<a",
                                 "<a>",
                                 "<a><b></a",
                                 "<a>text",
                                 "</a>",
                                 "<a b></a>",
                                 "<a b=></a>",
                                 "<a b=\"></a>",
                                 "<a/",
                                 "<a><ScanSummary startTime=\"1",
                                 "<!",
                                 "<!-",
                                 "<!--",
                                 "<!-- -",
                                 "<!-- --",
                                 "<![CDATA[",
                                 "<![CDATA[]",
                                 "<a><![CDATA[]]",
                                 "<?",
                                 "<?x",
                                 "<?xml",
                                 "<?xml ?",
                                 "<!DOCTYPE",
                                 "<!DOCTYPE [",
                                 "<!DOCTYPE [[]",
                                 "<!DOCT",
                                 "<a b=c/>",
                                 "<a>&#xZ;</a>",
                                 "<a b='&#99999999;'/>",
                                 "<a></a>x",
                                 "\xEF\xBB<a/>",
                                 "< a/>",
                                 "<a/b>",
                                 "<>",
                                 "<a><"}) {
    ExpectRefused(text);
  }
}

TEST(ScanSummaryTest, LargeTexts) {
  std::string others;
  for (int number = 0; number < 20000; ++number) others += "<Other startTime='1'>text</Other>";
  ExpectRead("<a>" + others + "<ScanSummary startTime='7' duration='0'/>" + others + "</a>", 7);
  ExpectRead(Summary(std::string(1000000, ' ') + "7", "0"), 7);
  ExpectRead(Summary(std::string(1000000, '0') + "7", "0"), 7);
}

TEST(ScanSummaryTest, ReasonableNesting) {
  constexpr std::size_t kDepth = 1000;
  std::string open;
  std::string close;
  for (std::size_t level = 0; level < kDepth; ++level) {
    open += "<a>";
    close += "</a>";
  }
  ExpectUnusable(open + close, SummaryResult::kNoScanSummary);
  ExpectRead("<r>" + open + close + "<ScanSummary startTime='7' duration='0'/></r>", 7);
}

}  // namespace
}  // namespace queries
