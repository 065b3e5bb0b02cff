#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "platform/ByteCountFormatter.h"
#include "platform/FileDates.h"
#include "platform/Text.h"
#include "platform/TextLocale.h"

namespace tw {
namespace {

using namespace std::chrono;

// 4 March 2024, 09:41:00 UTC.
const TimePoint kMarch4 = sys_days{year{2024} / March / 4} + hours{9} + minutes{41};

std::vector<std::string> sortedStandard(std::vector<std::string> texts) {
  std::sort(texts.begin(), texts.end(),
            [](const std::string& a, const std::string& b) { return localizedStandardCompare(a, b) < 0; });
  return texts;
}

TEST(Text, StandardCompareOrdersNumbersByValueAndIgnoresCaseFirst) {
  ScopedTextLocale locale("en_US", "UTC");
  EXPECT_EQ(sortedStandard({"Xcode 15.10", "xcode 15.2", "Zebra", "Xcode 15.1", "apple", "Xcode 9", "file10", "file2"}),
            (std::vector<std::string>{"apple", "file2", "file10", "Xcode 9", "Xcode 15.1", "xcode 15.2", "Xcode 15.10",
                                      "Zebra"}));
  // Texts that differ only in case are not the same, but get a fixed order either way round.
  int caseOnly = localizedStandardCompare("derived", "Derived");
  EXPECT_NE(caseOnly, 0);
  EXPECT_EQ(localizedStandardCompare("Derived", "derived"), -caseOnly);
  EXPECT_EQ(localizedStandardCompare("Same", "Same"), 0);
  EXPECT_LT(localizedStandardCompare("\xC3\xA9t\xC3\xA9", "ete2"), 0);  // accents weigh less than digits
  EXPECT_NE(localizedStandardCompare("a\xFF", "a\xFE"), 0);             // broken UTF-8 compares without failing
}

TEST(Text, StandardCompareFollowsTheLocale) {
  // Swedish sorts "ö" after "z"; German sorts it with "o".
  {
    ScopedTextLocale swedish("sv_SE", "UTC");
    EXPECT_GT(localizedStandardCompare("\xC3\xB6l", "zebra"), 0);
  }
  ScopedTextLocale german("de_DE", "UTC");
  EXPECT_LT(localizedStandardCompare("\xC3\xB6l", "zebra"), 0);
}

TEST(Text, CapitalizesWordsAndComposesDecomposedText) {
  ScopedTextLocale locale("en_US", "UTC");
  EXPECT_EQ(capitalizedWords("IDE CACHES\tand  more"), "Ide Caches\tAnd  More");
  EXPECT_EQ(capitalizedWords("\xC3\xA9t\xC3\xA9 \xC3\x89T\xC3\x89"), "\xC3\x89t\xC3\xA9 \xC3\x89t\xC3\xA9");
  EXPECT_EQ(canonicalNormalized("Cafe\xCC\x81"), "Caf\xC3\xA9");
  EXPECT_EQ(canonicalNormalized("\xEF\xAC\x81"), "\xEF\xAC\x81");  // the "fi" ligature stays: NFC, not NFKC
  EXPECT_FALSE(canonicalNormalized("bad\xFF").empty());
}

TEST(Text, FormatsDatesInTheLocaleAndTimeZone) {
  {
    ScopedTextLocale locale("en_US", "UTC");
    EXPECT_EQ(formatMediumDate(kMarch4), "Mar 4, 2024");
    EXPECT_EQ(formatMediumDate(distantPast()), "Jan 1, 1");
  }
  {
    ScopedTextLocale locale("de_DE", "Europe/Berlin");
    EXPECT_EQ(formatMediumDate(kMarch4), "04.03.2024");
    EXPECT_EQ(formatShortDateTime(kMarch4), "04.03.24, 10:41");  // UTC+1 in winter
  }
  // Late in the evening in Los Angeles is already the next day in UTC.
  ScopedTextLocale locale("en_US", "America/Los_Angeles");
  EXPECT_EQ(formatMediumDate(sys_days{year{2024} / March / 5} + hours{3}), "Mar 4, 2024");
}

using Cases = std::vector<std::pair<int64_t, const char*>>;

// The C locale (en_US_POSIX) writes numbers as American English does; 999,500 rounds to 1000 KB
// and so moves on to the next unit.
const Cases kEnglish = {{0, "Zero KB"},         {1, "1 byte"},           {2, "2 bytes"},
                        {999, "999 bytes"},     {1000, "1 KB"},          {1499, "1 KB"},
                        {1500, "2 KB"},         {999499, "999 KB"},      {999500, "1 MB"},
                        {1000000, "1 MB"},      {1049999, "1 MB"},       {1050000, "1.1 MB"},
                        {1500000, "1.5 MB"},    {1048576, "1 MB"},       {999949999, "999.9 MB"},
                        {999950000, "1 GB"},    {1234567890, "1.23 GB"}, {1205000000, "1.21 GB"},
                        {1200000000, "1.2 GB"}, {1000000000000, "1 TB"}, {5555000000000000, "5.56 PB"},
                        {INT64_MAX, "9.22 EB"}, {-1, "-1 byte"},         {-999, "-999 bytes"},
                        {-1500, "-2 KB"},       {-1500000, "-1.5 MB"},   {INT64_MIN, "-9.22 EB"}};
// Numbers follow the locale while the units stay.
const Cases kGerman = {
    {0, "Zero KB"},      {1, "1 byte"},           {999, "999 bytes"},    {1500, "2 KB"},
    {1300000, "1,3 MB"}, {1234567890, "1,23 GB"}, {-1500000, "-1,5 MB"}, {5555000000000000, "5,56 PB"}};

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
