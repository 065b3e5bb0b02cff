// Model values and how they read: Apple builds, versions, the device table, Xcode entries, text, dates and sizes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

#include "model/AppleBuild.h"
#include "model/AppleDevices.h"
#include "model/Version.h"
#include "model/XcodeEntries.h"
#include "platform/ByteCountFormatter.h"
#include "platform/CsvReader.h"
#include "platform/FileDates.h"
#include "platform/Text.h"
#include "platform/TextLocale.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace tw {
namespace {

using namespace std::chrono;
using test::LogCapture;
using namespace ::testing;
using OSType = DeviceSupportFileEntry::OSType;
using Icon = CleanupEntry::Icon;

const EntryDate kMarch4 = sys_days{year{2024} / March / 4} + hours{9} + minutes{41};

Version version(std::string_view text) { return *Version::fromString(text); }

std::optional<std::string> printed(const std::optional<Version>& version) {
  return version ? std::optional<std::string>(version->toString()) : std::nullopt;
}

TEST(AppleBuildAndVersion, PartsOfBuildsAndDottedVersionsTheSystemRecordPrintingAndOrder) {
  // White space before the number, the letter and the daily part is skipped; e with a combining accent is one letter.
  std::string parts;  // number, letter and daily part of each, "-" for an absent one
  for (const char* text : {"21A5248p", "15", "   ", " 21 E219", " 21 A \n 5248p", "(21E219)", "-3A1",
                           "99999999999999999999Z", "20e\xCC\x81x"}) {
    AppleBuild build(text);
    EXPECT_EQ(build.toString(), text);
    parts += (build.major ? std::to_string(*build.major) : "-") + " " + build.minor.value_or("-") + " " +
             build.daily.value_or("-") + "|";
  }
  EXPECT_EQ(parts,
            "21 A 5248p|15 - |- - |21 E 219|21 A 5248p|- ( 21E219)|-3 A 1|9223372036854775807 Z |20 e\xCC\x81 x|");
  EXPECT_EQ(AppleBuild("21A5248p"), AppleBuild(" 21 A 5248p"));  // equality compares the parts
  EXPECT_NE(AppleBuild("A1"), AppleBuild("0A1"));                // an absent number differs from 0
  // Strictly ascending: no number counts as 0, no letter before a letter, upper before lower case.
  const std::vector<std::string> ascending = {"-2A", "",     "(20E247)", "(21E219)", "A1",   "1A",
                                              "9Z",  "21",   "21A5248p", "21A559",   "21B5", "21E999",
                                              "21F", "21a1", "22A1",     "22A100",   "22A99"};
  for (size_t i = 0; i + 1 < ascending.size(); ++i) {
    const AppleBuild earlier(ascending[i]), later(ascending[i + 1]);
    EXPECT_TRUE(earlier < later && !(later < earlier)) << ascending[i] << " < " << ascending[i + 1];
  }
  // Neither of two equal builds comes first; a number decides as soon as one side has it.
  for (const auto& [a, b] : {std::pair{"21A5248p", " 21 A 5248p"}, {"0B", "A"}})
    EXPECT_FALSE(AppleBuild(a) < AppleBuild(b) || AppleBuild(b) < AppleBuild(a)) << a;
  // Versions: nothing is trimmed, empty pieces are dropped.
  for (const char* text : {"18446744073709551616.1", "15", "1.2.3.4", "1.2.3..4", " 15.2", "-1.2", "１.２"})
    EXPECT_FALSE(Version::fromString(text)) << text;
  EXPECT_EQ(version("18446744073709551615.1").toString(), "18446744073709551615.1");
  for (const auto& [text, shown] : {std::pair{"15.2.0", "15.2.0"}, {".1..2.", "1.2"}, {"007.08", "7.8"}})
    EXPECT_EQ(version(text).toString(), shown) << text;
  const std::vector<std::string> versions = {"2.0", "9.9.9", "10.0", "16.0", "16.0.1", "16.1", "16.10", "17.0"};
  for (size_t i = 0; i + 1 < versions.size(); ++i) {
    const Version earlier = version(versions[i]), later = version(versions[i + 1]);
    EXPECT_TRUE(earlier < later && !(later < earlier)) << versions[i];
  }
  // An absent patch equals a zero patch, though it prints differently.
  EXPECT_EQ(version("15.2"), version("15.2.0"));
  EXPECT_FALSE(version("15.2") < version("15.2.0") || version("15.2.0") < version("15.2"));
  // The operating system's version record, or a dotted version.
  const std::vector<std::pair<std::string, std::optional<std::string>>> cases = {
      {"NSOperatingSystemVersion(majorVersion: 17, minorVersion: 4, patchVersion: 0)", "17.4"},
      {"NSOperatingSystemVersion(majorVersion: 17, minorVersion: 4, patchVersion: 1)", "17.4.1"},
      {"NSOperatingSystemVersion{majorVersion/9,minorVersion/3,patchVersion/00}", "9.3.0"},
      {"NSOperatingSystemVersion(majorVersion: 17,\nminorVersion: 4, patchVersion: 1)", std::nullopt},
      {"NSOperatingSystemVersion(MajorVersion: 17, minorVersion: 4, patchVersion: 1)", std::nullopt},
      {"majorVersion: 17, minorVersion: 4, patchVersion: 1", std::nullopt},  // read as a dotted version
      {"17.4", "17.4"}};
  for (const auto& [text, expected] : cases) EXPECT_EQ(printed(Version::parse(text)), expected) << text;
  EXPECT_FALSE(Version::fromVersionRecordText("majorVersion: 99999999999999999999, minorVersion: 1, patchVersion: 1"));
}

AppleDevices tableFrom(const test::TempDir& dir, std::string_view csv) {
  test::writeFile(dir / "device_identifiers.csv", csv);
  return AppleDevices::fromFile(dir / "device_identifiers.csv");
}

TEST(AppleDevices, LooksUpNamesWithTheTableRulesAndAMissingOrBrokenTableLogsOnce) {
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
  std::vector<std::string> names;
  for (const char* identifier : {"iPhone16,2", "iPhone15,2", "Odd,1", "Multi,1", "", "AppleTV14,1", "Watch7,1",
                                 "Watch7,2", "NULL", "Unknown9,9"})
    names.push_back(table.lookup(identifier));
  EXPECT_EQ(names, (std::vector<std::string>{"iPhone 15 Pro Max", "iPhone 14 Pro", "Say \"hi\", C:\\dir", "Two\nLines",
                                             "Unknown Device", "Apple TV 4K (3rd generation)", "Watch7,1", "Watch7,2",
                                             "NULL", "Unknown9,9"}));
  EXPECT_EQ(table.size(), 7u);
  // A column holding only numbers or booleans is read as such: its cells are no text.
  EXPECT_EQ(tableFrom(dir, "identifier,name\nA1,1\nA2,2.5\n").lookup("A1"), "A1");
  EXPECT_EQ(tableFrom(dir, "identifier,name\ntrue,Yes\nFALSE,No\n").size(), 0u);
  using enum CsvTable::ColumnType;  // a leading plus sign is allowed
  for (const auto& [csv, type] : {std::pair{"a\n1.5\nx\n", text}, {"a\n+5\n", integer}, {"a\n+1.5\n", decimal}})
    EXPECT_EQ(CsvTable::parse(csv).columnType(0), type) << csv;
  EXPECT_TRUE(CsvTable::parse("\xEF\xBB\xBFidentifier,name\na,b\n").columnIndex("identifier"));  // no byte-order mark
  std::filesystem::remove(dir / "device_identifiers.csv");
  for (const auto& [contents, reason] : std::vector<std::pair<std::optional<std::string>, std::string>>{
           {std::nullopt, "AppleDevices: device_identifiers.csv missing in bundle."},
           {"identifier,name\n\"iPhone16,2,iPhone\n", "unterminated quoted field"},
           {"identifier,name\niPh\"one,x\n", "misplaced quote"},
           {"identifier,name\n\"a\"b,x\n", "after a closing quote"},
           {"identifier,title\na,b\n", "\"name\" column"},
           {"identifier,name\na,\xFF\xFE\n", "not UTF-8"},
           {"identifier,name\nlonely\n", "line 2 has 1 field, the header has 2"},
           {"identifier,name\n\"a,1\",b\nWatch7,1,Apple Watch\n", "line 3 has 3 fields"}}) {
    LogCapture logged;
    auto devices = contents ? tableFrom(dir, *contents) : AppleDevices::fromFile(dir / "device_identifiers.csv");
    EXPECT_THAT(logged.lines(),
                ElementsAre(AllOf(HasSubstr(contents ? "AppleDevices: Unable to load device_identifiers.csv: " : ""),
                                  HasSubstr(reason))));
    EXPECT_EQ(devices.size(), 0u) << reason;
    EXPECT_EQ(devices.lookup("iPhone16,2"), "iPhone16,2");
  }
}

class XcodeEntries : public ::testing::Test {
 protected:
  ScopedTextLocale locale_{"en_US", "UTC"};
  test::TempDir dir_;
  ScopedAppleDevices devices_{tableFrom(dir_, "identifier,name\n\"iPhone15,2\",iPhone 14 Pro\n")};
};

TEST_F(XcodeEntries, DeviceSupportLabelsWithAndWithoutDevicesBuildsAndArchitectures) {
  using Opt = std::optional<std::string>;
  const std::vector<std::tuple<Opt, OSType, std::string, Opt, Opt, std::string, std::string>> cases = {
      {{}, OSType::iOS, "17.4", "(21E219)", {}, "iOS 17.4 (21E219)", "iOS 17.4 (21E219) Mar 4, 2024"},
      {"iPhone15,2", OSType::iOS, "17.4", "(21E219)", "arm64e", "iOS 17.4 (21E219) (iPhone 14 Pro)", ""},
      {"iPhone99,9", OSType::watchOS, "10.1.1", {}, {}, "watchOS 10.1.1  (iPhone99,9)", ""},
      {{}, OSType::tvOS, "17.0", {}, {}, "tvOS 17.0 ", "tvOS 17.0  Mar 4, 2024"},
      {{}, OSType::macOS, "14.4", {}, {}, "macOS 14.4 ", ""},
      {{}, OSType::other, "17.4", "21E219", {}, " 17.4 21E219", "17.4 21E219 Mar 4, 2024"}};
  for (const auto& [device, type, text, build, architecture, label, tooltip] : cases) {
    DeviceSupportFileEntry entry(device, type, version(text), build ? std::optional(AppleBuild(*build)) : std::nullopt,
                                 kMarch4, architecture, false);
    EXPECT_EQ(entry.label(), label);
    EXPECT_TRUE(tooltip.empty() || entry.tooltipText() == tooltip) << entry.tooltipText();
  }
}

TEST_F(XcodeEntries, OSTypesComeFromExactNamesIconsCoverTheVersionsAndEntriesAreTheSameByTheirFacts) {
  const std::vector<std::pair<std::string, OSType>> names = {
      {"iOS", OSType::iOS},           {"watchOS", OSType::watchOS}, {"tvOS", OSType::tvOS},  {"macOS", OSType::macOS},
      {"visionOS", OSType::visionOS}, {"ios", OSType::other},       {"xrOS", OSType::other}, {"iOS ", OSType::other}};
  for (const auto& [name, type] : names) EXPECT_EQ(DeviceSupportFileEntry::osTypeFromName(name), type) << name;
  const std::tuple<OSType, const char*, const char*> pictures[] = {
      {OSType::iOS, "1.0", "iOS/Generic"},      {OSType::iOS, "2.0", "iOS/2"},
      {OSType::iOS, "19.0", "iOS/Generic"},     {OSType::iOS, "26.0", "iOS/26"},
      {OSType::iOS, "27.0", "iOS/Generic"},     {OSType::watchOS, "12.0", "watchOS/Generic"},
      {OSType::tvOS, "8.0", "tvOS/Generic"},    {OSType::tvOS, "9.0", "tvOS/9"},
      {OSType::macOS, "11.7", "macOS/Generic"}, {OSType::macOS, "15.4", "macOS/15"},
      {OSType::macOS, "16.0", "macOS/Generic"}, {OSType::visionOS, "1.2", "visionOS/Generic"},
      {OSType::visionOS, "2.4", "visionOS/2"},  {OSType::other, "26.0", "iOS/Generic"},
  };
  for (const auto& [type, text, picture] : pictures) {
    DeviceSupportFileEntry entry(std::nullopt, type, version(text), std::nullopt, kMarch4, std::nullopt, false);
    EXPECT_EQ(entry.icon(), Icon::image(std::string("OS/") + picture)) << picture << " " << text;
  }
  const AppleBuild build("(21E219)");
  auto make = [](std::optional<std::string> device, std::string_view text, std::optional<AppleBuild> built,
                 std::optional<std::string> architecture = {}, EntryDate date = kMarch4) {
    return DeviceSupportFileEntry(device, OSType::iOS, version(text), built, date, architecture, false);
  };
  const auto base = make({}, "17.4", build);
  EXPECT_TRUE(base == make({}, "17.4.0", build) && base == make({}, "17.4", build, {}, distantPast()));
  EXPECT_FALSE(base == make({}, "17.4.1", build) || base == make({}, "17.4", {}) ||
               base == make({}, "17.4", build, "arm64e") || base == make("iPhone15,2", "17.4", build));
}

TEST(TextAndDates, FileCreationDatesComparesNumbersByValueCaseLastCapitalizesComposesAndFormatsInTheLocale) {
  test::TempDir dir;
  const auto before = system_clock::now() - seconds(5);
  test::writeFile(dir / "folder/file", "x");
  const auto created = fileCreationDate(dir / "folder").value_or(distantPast());
  EXPECT_TRUE(created >= before && created <= system_clock::now() + seconds(5));
  // A link is examined itself, not its target: a dangling one still has a date.
  std::filesystem::create_symlink(dir / "nowhere", dir / "dangling");
  EXPECT_TRUE(fileCreationDate(dir / "dangling").has_value());
  EXPECT_FALSE(fileCreationDate(dir / "missing").has_value());
  ScopedTextLocale locale("en_US", "UTC");
  std::vector<std::string> texts = {"Xcode 15.10", "xcode 15.2", "Zebra",  "Xcode 15.1",
                                    "apple",       "Xcode 9",    "file10", "file2"};
  std::ranges::sort(texts, [](const auto& a, const auto& b) { return localizedStandardCompare(a, b) < 0; });
  EXPECT_EQ(texts, (std::vector<std::string>{"apple", "file2", "file10", "Xcode 9", "Xcode 15.1", "xcode 15.2",
                                             "Xcode 15.10", "Zebra"}));
  // Texts that differ only in case are not the same, but get a fixed order either way round.
  const int caseOnly = localizedStandardCompare("derived", "Derived");
  EXPECT_TRUE(caseOnly != 0 && localizedStandardCompare("Derived", "derived") == -caseOnly) << caseOnly;
  EXPECT_EQ(localizedStandardCompare("Same", "Same"), 0);
  EXPECT_LT(localizedStandardCompare("\xC3\xA9t\xC3\xA9", "ete2"), 0);  // accents weigh less than digits
  EXPECT_NE(localizedStandardCompare("a\xFF", "a\xFE"), 0);             // broken UTF-8 compares without failing
  EXPECT_EQ(capitalizedWords("IDE CACHES\tand  more"), "Ide Caches\tAnd  More");
  EXPECT_EQ(capitalizedWords("\xC3\xA9t\xC3\xA9 \xC3\x89T\xC3\x89"), "\xC3\x89t\xC3\xA9 \xC3\x89t\xC3\xA9");
  EXPECT_EQ(canonicalNormalized("Cafe\xCC\x81"), "Caf\xC3\xA9");
  EXPECT_EQ(canonicalNormalized("\xEF\xAC\x81"), "\xEF\xAC\x81");  // the "fi" ligature stays: NFC, not NFKC
  EXPECT_FALSE(canonicalNormalized("bad\xFF").empty());
  // Swedish sorts "ö" after "z"; German sorts it with "o".
  for (const auto& [language, after] : {std::pair{"sv_SE", true}, {"de_DE", false}}) {
    ScopedTextLocale scoped(language, "UTC");
    EXPECT_EQ(localizedStandardCompare("\xC3\xB6l", "zebra") > 0, after) << language;
  }
  // Dates: Berlin is UTC+1 in winter; late evening in Los Angeles is already the next day in UTC.
  const std::vector<std::tuple<const char*, const char*, TimePoint, const char*, const char*>> cases = {
      {"en_US", "UTC", kMarch4, "Mar 4, 2024", "3/4/24, 9:41\u202FAM"},
      {"en_US", "UTC", distantPast(), "Jan 1, 1", nullptr},
      {"de_DE", "Europe/Berlin", kMarch4, "04.03.2024", "04.03.24, 10:41"},
      {"en_US", "America/Los_Angeles", sys_days{year{2024} / March / 5} + hours{3}, "Mar 4, 2024", nullptr}};
  for (const auto& [language, zone, time, medium, shortForm] : cases) {
    ScopedTextLocale scoped(language, zone);
    EXPECT_EQ(formatMediumDate(time), medium) << language << " " << zone;
    EXPECT_TRUE(!shortForm || formatShortDateTime(time) == shortForm) << formatShortDateTime(time);
  }
}

using Cases = std::vector<std::pair<int64_t, const char*>>;

// The C locale (en_US_POSIX) writes numbers as American English does; 999,500 B moves on to MB.
const Cases kEnglish = {
    {0, "Zero KB"},          {1, "1 byte"},          {999, "999 bytes"},      {1000, "1 KB"},
    {1499, "1 KB"},          {1500, "2 KB"},         {999499, "999 KB"},      {999500, "1 MB"},
    {1049999, "1 MB"},       {1050000, "1.1 MB"},    {999949999, "999.9 MB"}, {999950000, "1 GB"},
    {1205000000, "1.21 GB"}, {1200000000, "1.2 GB"}, {1000000000000, "1 TB"}, {5555000000000000, "5.56 PB"},
    {INT64_MAX, "9.22 EB"},  {-1, "-1 byte"},        {-999, "-999 bytes"},    {-1500000, "-1.5 MB"},
    {INT64_MIN, "-9.22 EB"}};
// Numbers follow the locale while the units stay.
const Cases kGerman = {{1300000, "1,3 MB"}, {1234567890, "1,23 GB"}, {-1500000, "-1,5 MB"}};

TEST(ByteCountFormatter, MatchesTheFileStyleTableWithNumbersInTheLocale) {
  for (const auto& [locale, zone, cases] : {std::tuple{"en_US", "UTC", &kEnglish},
                                            {"en_US_POSIX", "UTC", &kEnglish},
                                            {"de_DE", "Europe/Berlin", &kGerman}}) {
    ScopedTextLocale scoped(locale, zone);
    for (const auto& [bytes, text] : *cases) EXPECT_EQ(formatByteCount(bytes), text) << locale << " " << bytes;
  }
}

}  // namespace
}  // namespace tw
