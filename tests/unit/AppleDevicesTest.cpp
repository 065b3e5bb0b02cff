#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "model/AppleDevices.h"
#include "platform/CsvReader.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace tw {
namespace {

using test::LogCapture;
using ::testing::HasSubstr;

AppleDevices tableFrom(const test::TempDir& dir, std::string_view csv) {
  test::writeFile(dir / "device_identifiers.csv", csv);
  return AppleDevices::fromFile(dir / "device_identifiers.csv");
}

TEST(AppleDevices, LooksUpNamesWithTheTableRules) {
  test::TempDir dir;
  LogCapture log;
  auto table = tableFrom(dir,
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
  EXPECT_TRUE(log.lines().empty());
  for (const auto& [identifier, name] : std::vector<std::pair<std::string, std::string>>{
           {"iPhone16,2", "iPhone 15 Pro Max"}, {"iPhone15,2", "iPhone 14 Pro"}, {"Watch7,1", "Watch7,1"},
           {"Watch7,2", "Watch7,2"}, {"NULL", "NULL"}, {"AppleTV14,1", "Apple TV 4K (3rd generation)"},
           {"Odd,1", "Say \"hi\", C:\\dir"}, {"Multi,1", "Two\nLines"}, {"Unknown9,9", "Unknown9,9"},
           {"", "Unknown Device"}}) {
    EXPECT_EQ(table.lookup(identifier), name);
  }
  EXPECT_EQ(table.size(), 7u);
  // A column holding only numbers or booleans is read as such: its cells are no text.
  EXPECT_EQ(tableFrom(dir, "identifier,name\nA1,1\nA2,2.5\n").lookup("A1"), "A1");
  EXPECT_EQ(tableFrom(dir, "identifier,name\ntrue,Yes\nFALSE,No\n").size(), 0u);
  EXPECT_EQ(CsvTable::parse("a\n1.5\nx\n").columnType(0), CsvTable::ColumnType::text);
  EXPECT_TRUE(CsvTable::parse("\xEF\xBB\xBFidentifier,name\na,b\n").columnIndex("identifier"));  // no byte-order mark
}

TEST(AppleDevices, AMissingOrBrokenTableLogsOnceAndAnswersWithTheIdentifier) {
  test::TempDir dir;
  {
    LogCapture log;
    auto devices = AppleDevices::fromFile(dir / "device_identifiers.csv");
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_THAT(log.lines()[0], HasSubstr("AppleDevices: device_identifiers.csv missing in bundle."));
    EXPECT_EQ(devices.lookup("iPhone16,2"), "iPhone16,2");
  }
  for (const auto& [contents, reason] : std::vector<std::pair<std::string, std::string>>{
           {"identifier,name\n\"iPhone16,2,iPhone\n", "unterminated quoted field"},
           {"identifier,name\niPh\"one,x\n", "misplaced quote"},
           {"identifier,name\n\"a\"b,x\n", "after a closing quote"},
           {"identifier,title\na,b\n", "\"name\" column"},
           {"identifier,name\na,\xFF\xFE\n", "not UTF-8"},
           {"identifier,name\nlonely\n", "line 2 has 1 field, the header has 2"},
           {"identifier,name\n\"a,1\",b\nWatch7,1,Apple Watch\n", "line 3 has 3 fields"}}) {
    LogCapture log;
    auto devices = tableFrom(dir, contents);
    ASSERT_EQ(log.lines().size(), 1u) << reason;
    EXPECT_THAT(log.lines()[0], HasSubstr("AppleDevices: Unable to load device_identifiers.csv: "));
    EXPECT_THAT(log.lines()[0], HasSubstr(reason));
    EXPECT_EQ(devices.size(), 0u) << reason;
  }
}

}  // namespace
}  // namespace tw
