#include <cerrno>
#include <rapidxml/rapidxml.hpp>

#include "tests/support/tool_fixture.h"

namespace queries {
namespace {

using fake::Concat;
using fake::Lines;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr char kDirectory[] = "/Library/Application Support/Halvard/Logs";
constexpr char kFullScan[] = "3b7e91a0-5c42-4d18-9f6e-2a0c7d45e8b1=";
constexpr char kQuickScan[] = "8f05c2d6-71e9-4a3b-b2c4-6d19e0f37a5c=";
constexpr char kStart[] = "Retrieve Quick and Full scan XMLs";
constexpr char kEnd[] = "Finished retrieving last system scan successfully";

std::string PathOf(const std::string& name) { return std::string(kDirectory) + "/" + name; }

/// The log line of a summary that was read.
std::string Found(const std::string& name, const std::string& seconds) {
  return "Last system scan found for" + PathOf(name) + ": " + seconds;
}

/// A summary of a scan that ended `seconds` after the epoch.
std::string Summary(long long seconds) {
  return "<Scan><ScanSummary startTime=\"" + std::to_string(seconds) + "\" duration=\"0\"/></Scan>";
}

// tests/end_to_end/last_system_scan_test.py tests the complete flows, scan_summary_test.cc the
// contents.
class LastSystemScanTest : public fake::ToolFixture {
 protected:
  LastSystemScanTest() { world.AddDirectory(kDirectory); }

  /// Adds a file to the directory.
  fake::Node& Add(const std::string& name, const std::string& contents, std::int64_t seconds = 100,
                  std::int64_t nanoseconds = 0) {
    world.AddFile(PathOf(name), contents);
    fake::Node& node = world.files[PathOf(name)];
    node.time = {seconds, nanoseconds};
    return node;
  }

  /// Runs the query with a log and without, and compares code, result and the whole log. The result
  /// starts as `before`.
  void Expect(int code, const std::string& result, const Lines& lines,
              const std::string& before = "") {
    std::string text = before;
    EXPECT_EQ(Tool().GetLastSystemScan(text, Log()), code);
    EXPECT_EQ(text, result);
    EXPECT_THAT(TakeLog(), ElementsAreArray(lines));

    text = before;
    EXPECT_EQ(Tool().GetLastSystemScan(text, nullptr), code) << "without a log";
    EXPECT_EQ(text, result) << "without a log";
  }
};

TEST_F(LastSystemScanTest, DirectoryCannotBeOpened) {
  world.directoryOpenError = EACCES;
  Expect(EACCES, "", {});
  world.directoryOpenError = EMFILE;
  Expect(EMFILE, "", {});
  world.directoryOpenError = 0;
  world.files.clear();
  world.AddFile(kDirectory);
  Expect(ENOTDIR, "before", {}, "before");
}

TEST_F(LastSystemScanTest, DirectoryCannotBeReadToItsEnd) {
  Add("1_Full Scan.xml", Summary(1), 100);
  Add("2_Full Scan.xml", Summary(2), 200);
  world.files[kDirectory].readError = EIO;
  for (std::size_t entry = 0; entry < 3; ++entry) {
    world.files[kDirectory].readErrorAt = entry;
    Expect(EIO, "before", {kStart}, "before");
  }
}

TEST_F(LastSystemScanTest, EmptyDirectory) {
  Expect(0, "", {kStart, kEnd});
  Expect(0, "before", {kStart, kEnd}, "before");
}

TEST_F(LastSystemScanTest, FullComesFirst) {
  world.directoryOrder[kDirectory] = {"1_Quick Scan.xml", "2_Full Scan.xml"};
  Add("1_Quick Scan.xml", Summary(1617099012), 900);
  Add("2_Full Scan.xml", Summary(1617185520), 100);
  Expect(0,
         "3b7e91a0-5c42-4d18-9f6e-2a0c7d45e8b1=1617185520|"
         "8f05c2d6-71e9-4a3b-b2c4-6d19e0f37a5c=1617099012",
         {kStart, Found("2_Full Scan.xml", "1617185520"), Found("1_Quick Scan.xml", "1617099012"),
          kEnd});
}

TEST_F(LastSystemScanTest, AppendsToTheCallersText) {
  Add("1_Full Scan.xml", Summary(1));
  Add("1_Quick Scan.xml", Summary(2));
  Expect(0, std::string("before|") + kFullScan + "1|" + kQuickScan + "2",
         {kStart, Found("1_Full Scan.xml", "1"), Found("1_Quick Scan.xml", "2"), kEnd}, "before");
}

TEST_F(LastSystemScanTest, NamesThatMatch) {
  for (const char* const name :
       {"1617181920_Full Scan.xml", "x__Full Scan.xml", "_x_Full Scan.xml", "__x___Full Scan.xml",
        "x_Full Scan.xml_", "x_Full Scan.xml_y", "x_Full Scan.xml__y_z", " _Full Scan.xml",
        "Quick Scan.xml_Full Scan.xml", "Full Scan.xml_Full Scan.xml", "é_Full Scan.xml"}) {
    SCOPED_TRACE(name);
    world.files.clear();
    world.AddDirectory(kDirectory);
    Add(name, Summary(7));
    Expect(0, std::string(kFullScan) + "7", {kStart, Found(name, "7"), kEnd});
  }
}

TEST_F(LastSystemScanTest, NamesThatDoNotMatch) {
  for (const char* const name : {"a_b_Full Scan.xml",
                                 "Full Scan.xml",
                                 "_Full Scan.xml",
                                 "__Full Scan.xml",
                                 "Full Scan.xml_",
                                 "x",
                                 "_",
                                 "___",
                                 "x_",
                                 "_x",
                                 "x_full Scan.xml",
                                 "x_Full scan.xml",
                                 "x_FULL SCAN.XML",
                                 "x_Full Scan.XML",
                                 "x_Full Scan.xml ",
                                 "x_ Full Scan.xml",
                                 "x_Full  Scan.xml",
                                 "x_Full Scan.xm",
                                 "x_Full Scan.xmll",
                                 "x-Full Scan.xml",
                                 "x_FullScan.xml",
                                 "x_Full_Scan.xml",
                                 "x_Quick Scan",
                                 "x_Custom Scan.xml",
                                 "x_Quick Scan.xml.bak",
                                 "."}) {
    Add(name, Summary(7));
  }
  Expect(0, "", {kStart, kEnd});
  EXPECT_THAT(world.timeReads, IsEmpty()) << "status of an entry that does not match";
}

TEST_F(LastSystemScanTest, LatestModificationCountsAndNotTheName) {
  Add("100_Full Scan.xml", Summary(1), 500);
  Add("200_Full Scan.xml", Summary(2), 600);
  Add("300_Full Scan.xml", Summary(3), 550);
  Add("900_Quick Scan.xml", Summary(4), 600);
  Add("901_Quick Scan.xml", Summary(5), 599, 999999999);
  Expect(0, std::string(kFullScan) + "2|" + kQuickScan + "4",
         {kStart, Found("200_Full Scan.xml", "2"), Found("900_Quick Scan.xml", "4"), kEnd});
}

TEST_F(LastSystemScanTest, NanosecondsDecideWithinASecond) {
  Add("1_Full Scan.xml", Summary(1), 500, 1);
  Add("2_Full Scan.xml", Summary(2), 500, 3);
  Add("3_Full Scan.xml", Summary(3), 500, 2);
  Add("4_Full Scan.xml", Summary(4), 499, 999999999);
  Expect(0, std::string(kFullScan) + "2", {kStart, Found("2_Full Scan.xml", "2"), kEnd});
}

TEST_F(LastSystemScanTest, FirstListedOfEqualTimesStays) {
  Add("a_Full Scan.xml", Summary(1), 500, 7);
  Add("b_Full Scan.xml", Summary(2), 500, 7);
  Add("c_Full Scan.xml", Summary(3), 500, 7);
  world.directoryOrder[kDirectory] = {"b_Full Scan.xml", "a_Full Scan.xml", "c_Full Scan.xml"};
  Expect(0, std::string(kFullScan) + "2", {kStart, Found("b_Full Scan.xml", "2"), kEnd});
  world.directoryOrder[kDirectory] = {"c_Full Scan.xml", "b_Full Scan.xml", "a_Full Scan.xml"};
  Expect(0, std::string(kFullScan) + "3", {kStart, Found("c_Full Scan.xml", "3"), kEnd});
}

TEST_F(LastSystemScanTest, FilesOfTheEpochAndBeforeAreNeverChosen) {
  Add("1_Full Scan.xml", Summary(1), 0, 0);
  Add("2_Full Scan.xml", Summary(2), -1, 999999999);
  Add("3_Full Scan.xml", Summary(3), -1000, 0);
  Add("4_Quick Scan.xml", Summary(4), 0, 1);
  Expect(0, std::string(kQuickScan) + "4", {kStart, Found("4_Quick Scan.xml", "4"), kEnd});
}

TEST_F(LastSystemScanTest, StatusOfAMatchingEntryFails) {
  Add("1_Full Scan.xml", Summary(1));
  Add("2_Quick Scan.xml", Summary(2)).statusError = EACCES;
  Expect(EACCES, "before", {kStart}, "before");
  EXPECT_EQ(world.openDirectories, 0);
}

TEST_F(LastSystemScanTest, OnlyTheNewestSummariesAreRead) {
  Add("1_Full Scan.xml", "not XML", 100);
  Add("2_Full Scan.xml", Summary(2), 200);
  Add("3_Full Scan.xml", "not XML", 150);
  Expect(0, std::string(kFullScan) + "2", {kStart, Found("2_Full Scan.xml", "2"), kEnd});
}

TEST_F(LastSystemScanTest, SummaryThatCannotBeOpenedReadsAsEmpty) {
  Add("1_Full Scan.xml", Summary(1)).openError = EACCES;
  Expect(2, "", {kStart, "Invalid XML file for" + PathOf("1_Full Scan.xml")});
}

TEST_F(LastSystemScanTest, SummaryThatCannotBeReadToItsEndReadsAsEmpty) {
  fake::Node& node = Add("1_Full Scan.xml", Summary(1) + std::string(100000, ' '));
  node.readError = EIO;
  for (const std::size_t position : {0U, 10U, 16384U, 60000U}) {
    node.readErrorAt = position;
    Expect(2, "", {kStart, "Invalid XML file for" + PathOf("1_Full Scan.xml")});
  }
}

TEST_F(LastSystemScanTest, UnusableFullScanSummaryEndsTheReport) {
  const std::vector<std::pair<std::string, std::string>> contentsAndLines = {
      {"<!-- -->", "Invalid XML file for" + PathOf("1_Full Scan.xml")},
      {"<Scan/>", "Invalid XML file. Could not find \"ScanSummary\" node"},
      {"<Scan><ScanSummary/></Scan>", "Invalid XML file. Could not find \"startTime\" node"},
      {"<Scan><ScanSummary startTime=\"1\"/></Scan>",
       "Invalid XML. Could not find \"duration\" node"}};
  Add("1_Quick Scan.xml", "not XML, and not read");
  for (const auto& [contents, line] : contentsAndLines) {
    SCOPED_TRACE(contents);
    Add("1_Full Scan.xml", contents);
    Expect(2, "before", {kStart, line}, "before");
  }
}

TEST_F(LastSystemScanTest, UnusableQuickScanSummaryLeavesTheFullScan) {
  Add("1_Full Scan.xml", Summary(5));
  Add("1_Quick Scan.xml", "<Scan><ScanSummary startTime=\"1\"/></Scan>");
  Expect(2, std::string(kFullScan) + "5",
         {kStart, Found("1_Full Scan.xml", "5"), "Invalid XML. Could not find \"duration\" node"});
}

TEST_F(LastSystemScanTest, ErrorOfTheParserEscapes) {
  Add("1_Full Scan.xml", Summary(5));
  Add("1_Quick Scan.xml", "not XML");
  std::string result;
  EXPECT_THROW(Tool().GetLastSystemScan(result, Log()), rapidxml::parse_error);
  EXPECT_EQ(result, std::string(kFullScan) + "5");
  EXPECT_THAT(TakeLog(), ElementsAre(kStart, Found("1_Full Scan.xml", "5")));
}

}  // namespace
}  // namespace queries
