#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "app/Logger.h"
#include "model/AppleDevices.h"
#include "platform/CsvReader.h"
#include "platform/Error.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace tw {
namespace {

using test::TempDir;
using test::writeFile;
using ::testing::HasSubstr;

using test::LogCapture;

AppleDevices tableFrom(const TempDir& dir, std::string_view csv) {
  writeFile(dir / "device_identifiers.csv", csv);
  return AppleDevices::fromFile(dir / "device_identifiers.csv");
}

TEST(AppleDevices, LooksUpNamesWithTheTableRules) {
  TempDir dir;
  LogCapture cleanLog;
  auto good = tableFrom(dir,
                        "model,identifier,name,year\r\n"
                        "x,\"iPhone16,2\",iPhone 15 Pro Max,2023\r\n"
                        "\r\n"                                              // empty lines are ignored
                        "x,\"iPhone15,2\",\"  iPhone 14 Pro \t\",2022\r\n"  // trimmed
                        "x,\"Watch7,1\",,2023\n"                            // empty name: the identifier
                        "x,\"Watch7,2\",N/A,2023\n"                         // a "no value" word
                        "x,NULL,Nobody,2023\n"                              // no identifier: skipped
                        "x,\"AppleTV14,1\",Apple TV,2022\n"
                        "x,\"AppleTV14,1\",Apple TV 4K (3rd generation),2022\n"  // last row wins
                        "x,\"Odd,1\",\"Say \"\"hi\"\", C:\\dir\",2020\n"         // doubled quotes, no escapes
                        "x,\"Multi,1\",\"Two\nLines\n\",2020\n");
  EXPECT_TRUE(cleanLog.lines().empty());
  EXPECT_EQ(good.lookup("iPhone16,2"), "iPhone 15 Pro Max");
  EXPECT_EQ(good.lookup("iPhone15,2"), "iPhone 14 Pro");
  EXPECT_EQ(good.lookup("Watch7,1"), "Watch7,1");
  EXPECT_EQ(good.lookup("Watch7,2"), "Watch7,2");
  EXPECT_EQ(good.lookup("NULL"), "NULL");
  EXPECT_EQ(good.lookup("AppleTV14,1"), "Apple TV 4K (3rd generation)");
  EXPECT_EQ(good.lookup("Odd,1"), "Say \"hi\", C:\\dir");
  EXPECT_EQ(good.lookup("Multi,1"), "Two\nLines");
  EXPECT_EQ(good.lookup("Unknown9,9"), "Unknown9,9");
  EXPECT_EQ(good.lookup(""), "Unknown Device");
  EXPECT_EQ(good.size(), 7u);
}

TEST(AppleDevices, AMissingOrUnreadableTableLogsOnceAndAnswersWithTheIdentifier) {
  TempDir dir;
  {
    LogCapture log;
    auto devices = AppleDevices::fromFile(dir / "device_identifiers.csv");
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_THAT(log.lines()[0], HasSubstr("AppleDevices: device_identifiers.csv missing in bundle."));
    EXPECT_EQ(devices.lookup("iPhone16,2"), "iPhone16,2");
    EXPECT_EQ(devices.lookup(""), "Unknown Device");
  }
  struct Case {
    std::string name;
    std::string contents;
    std::string reason;
  };
  const std::vector<Case> broken = {
      {"unterminated quote", "identifier,name\n\"iPhone16,2,iPhone\n", "unterminated quoted field"},
      {"quote inside a field", "identifier,name\niPh\"one,x\n", "misplaced quote"},
      {"text after a quote", "identifier,name\n\"a\"b,x\n", "after a closing quote"},
      {"no name column", "identifier,title\na,b\n", "\"name\" column"},
      {"not UTF-8", "identifier,name\na,\xFF\xFE\n", "not UTF-8"},
      {"short row", "identifier,name\nlonely\n", "line 2 has 1 field, the header has 2"},
      {"long row", "identifier,name\n\"a,1\",b\nWatch7,1,Apple Watch\n", "line 3 has 3 fields"},
  };
  for (const auto& c : broken) {
    LogCapture log;
    auto devices = tableFrom(dir, c.contents);
    ASSERT_EQ(log.lines().size(), 1u) << c.name;
    EXPECT_THAT(log.lines()[0], HasSubstr("AppleDevices: Unable to load device_identifiers.csv: ")) << c.name;
    EXPECT_THAT(log.lines()[0], HasSubstr(c.reason)) << c.name;
    EXPECT_EQ(devices.size(), 0u) << c.name;
  }
  if (geteuid() != 0) {  // root reads everything
    LogCapture log;
    writeFile(dir / "locked.csv", "identifier,name\na,b\n");
    chmod((dir / "locked.csv").c_str(), 0);
    auto devices = AppleDevices::fromFile(dir / "locked.csv");
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_THAT(log.lines()[0], HasSubstr("Permission denied"));
  }
  {
    LogCapture log;
    std::filesystem::create_directory(dir / "folder.csv");
    auto devices = AppleDevices::fromFile(dir / "folder.csv");
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_THAT(log.lines()[0], HasSubstr("Unable to load"));
  }
}

TEST(AppleDevices, CellsOfANonTextColumnAreNotNames) {
  TempDir dir;
  // A name column that holds only numbers is read as numbers: its cells are no names.
  auto numericNames = tableFrom(dir, "identifier,name\nA1,1\nA2,2.5\n");
  EXPECT_EQ(numericNames.lookup("A1"), "A1");
  auto booleanIdentifiers = tableFrom(dir, "identifier,name\ntrue,Yes\nFALSE,No\n");
  EXPECT_EQ(booleanIdentifiers.size(), 0u);
  EXPECT_EQ(CsvTable::parse("a,b\n1,true\n-2,FALSE\n").columnType(0), CsvTable::ColumnType::integer);
  EXPECT_EQ(CsvTable::parse("a,b\n1,true\n-2,FALSE\n").columnType(1), CsvTable::ColumnType::boolean);
  EXPECT_EQ(CsvTable::parse("a\n1.5\n2\n").columnType(0), CsvTable::ColumnType::decimal);
  EXPECT_EQ(CsvTable::parse("a\n1.5\nx\n").columnType(0), CsvTable::ColumnType::text);
  // A byte-order mark does not become part of the first header name.
  EXPECT_TRUE(CsvTable::parse("\xEF\xBB\xBFidentifier,name\na,b\n").columnIndex("identifier"));
  EXPECT_EQ(CsvTable::parse("").rowCount(), 0u);
}

TEST(AppleDevices, TheShippedTableKnowsCurrentDevices) {
  const auto shipped = std::filesystem::path(__FILE__).parent_path().parent_path().parent_path() / "resources" /
                       "device_identifiers.csv";
  LogCapture log;
  auto devices = AppleDevices::fromFile(shipped);
  EXPECT_TRUE(log.lines().empty());
  EXPECT_GE(devices.size(), 200u);
  EXPECT_EQ(devices.lookup("iPhone16,2"), "iPhone 15 Pro Max");
  EXPECT_EQ(devices.lookup("iPhone17,1"), "iPhone 16 Pro");
  EXPECT_EQ(devices.lookup("iPad13,1"), "iPad Air (4th generation)");
  EXPECT_EQ(devices.lookup("Watch7,1"), "Apple Watch Series 9 41mm (GPS)");
  EXPECT_EQ(devices.lookup("AppleTV14,1"), "Apple TV 4K (3rd generation)");
  EXPECT_EQ(devices.lookup("RealityDevice14,1"), "Apple Vision Pro");
  EXPECT_EQ(devices.lookup("AudioAccessory5,1"), "HomePod mini");
  EXPECT_EQ(devices.lookup("Mac14,2"), "MacBook Air (M2, 2022)");
  EXPECT_EQ(devices.lookup("iPod9,1"), "iPod touch (7th generation)");
}

TEST(AppleDevices, AnInstalledTableAnswersForTheWholeProcess) {
  TempDir dir;
  {
    ScopedAppleDevices installed(tableFrom(dir, "identifier,name\n\"iPhone16,2\",Test Phone\n"));
    EXPECT_EQ(AppleDevices::name("iPhone16,2"), "Test Phone");
    EXPECT_EQ(AppleDevices::name(""), "Unknown Device");
  }
  EXPECT_NE(AppleDevices::name("iPhone16,2"), "Test Phone");
}

}  // namespace
}  // namespace tw
