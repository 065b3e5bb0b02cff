#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

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
  EXPECT_LT(localizedStandardCompare("Build 9", "Build 10"), 0);
  EXPECT_GT(localizedStandardCompare("Build 10", "Build 9"), 0);
  EXPECT_LT(localizedStandardCompare("file2.txt", "file10.txt"), 0);
  EXPECT_LT(localizedStandardCompare("apple", "Banana"), 0);  // plain bytes would put "B" first
  EXPECT_LT(localizedStandardCompare("Zebra", "zoo"), 0);
  EXPECT_EQ(localizedStandardCompare("Same", "Same"), 0);
  // Texts that differ only in case are not the same, but get a fixed order either way round.
  int caseOnly = localizedStandardCompare("derived", "Derived");
  EXPECT_NE(caseOnly, 0);
  EXPECT_EQ(localizedStandardCompare("Derived", "derived"), -caseOnly);
  EXPECT_EQ(sortedStandard({"Xcode 15.10", "xcode 15.2", "Xcode 15.1", "Xcode 9"}),
            (std::vector<std::string>{"Xcode 9", "Xcode 15.1", "xcode 15.2", "Xcode 15.10"}));
  // Composed and decomposed accents compare equal at every level but the last resort.
  EXPECT_LT(localizedStandardCompare("\xC3\xA9t\xC3\xA9", "ete2"), 0);
  EXPECT_GT(localizedStandardCompare("\xC3\xA9t\xC3\xA9", "ete"), 0);
  // Broken UTF-8 (file names may hold any bytes) compares without failing.
  EXPECT_NE(localizedStandardCompare("a\xFF", "a\xFE"), 0);
}

TEST(Text, StandardCompareFollowsTheLocale) {
  // Swedish sorts "ö" after "z"; German sorts it with "o".
  {
    ScopedTextLocale swedish("sv_SE", "UTC");
    EXPECT_GT(localizedStandardCompare("\xC3\xB6l", "zebra"), 0);
  }
  {
    ScopedTextLocale german("de_DE", "UTC");
    EXPECT_LT(localizedStandardCompare("\xC3\xB6l", "zebra"), 0);
  }
}

TEST(Text, CapitalizesEveryWord) {
  ScopedTextLocale locale("en_US", "UTC");
  EXPECT_EQ(capitalizedWords("derived data"), "Derived Data");
  EXPECT_EQ(capitalizedWords("IDE CACHES"), "Ide Caches");
  EXPECT_EQ(capitalizedWords("simulator runtimes\tand  more"), "Simulator Runtimes\tAnd  More");
  EXPECT_EQ(capitalizedWords("\xC3\xA9t\xC3\xA9 \xC3\x89T\xC3\x89"), "\xC3\x89t\xC3\xA9 \xC3\x89t\xC3\xA9");
  EXPECT_EQ(capitalizedWords(""), "");
}

TEST(Text, CanonicalNormalizationComposesDecomposedText) {
  const std::string composed = "Caf\xC3\xA9";     // é as one code point
  const std::string decomposed = "Cafe\xCC\x81";  // e + combining acute accent
  ASSERT_NE(composed, decomposed);
  EXPECT_EQ(canonicalNormalized(decomposed), composed);
  EXPECT_EQ(canonicalNormalized(composed), composed);
  EXPECT_EQ(canonicalNormalized("plain ascii"), "plain ascii");
  // Compatibility characters stay: NFC is not NFKC.
  EXPECT_EQ(canonicalNormalized("\xEF\xAC\x81"), "\xEF\xAC\x81");  // the "fi" ligature
  // Ill-formed bytes do not make it fail.
  EXPECT_FALSE(canonicalNormalized("bad\xFF").empty());
}

TEST(Text, FormatsDatesInTheLocaleAndTimeZone) {
  {
    ScopedTextLocale locale("en_US", "UTC");
    EXPECT_EQ(formatMediumDate(kMarch4), "Mar 4, 2024");
    std::string shortText = formatShortDateTime(kMarch4);
    EXPECT_EQ(shortText.substr(0, 12), "3/4/24, 9:41") << shortText;
    EXPECT_NE(shortText.find("AM"), std::string::npos) << shortText;
  }
  {
    ScopedTextLocale locale("de_DE", "Europe/Berlin");
    EXPECT_EQ(formatMediumDate(kMarch4), "04.03.2024");
    EXPECT_EQ(formatShortDateTime(kMarch4), "04.03.24, 10:41");  // UTC+1 in winter
  }
  {
    // Late in the evening in Los Angeles is already the next day in UTC.
    ScopedTextLocale locale("en_US", "America/Los_Angeles");
    EXPECT_EQ(formatMediumDate(sys_days{year{2024} / March / 5} + hours{3}), "Mar 4, 2024");
  }
}

TEST(Text, TheDistantPastIsTheFirstDayOfYearOne) {
  ScopedTextLocale locale("en_US", "UTC");
  EXPECT_EQ(formatMediumDate(distantPast()), "Jan 1, 1");
}

TEST(Text, FormatsFromSeveralThreadsAtOnce) {
  ScopedTextLocale locale("en_US", "UTC");
  std::vector<std::thread> threads;
  std::vector<int> failures(4, 0);
  for (size_t t = 0; t < failures.size(); ++t) {
    threads.emplace_back([&failures, t] {
      for (int i = 0; i < 200; ++i) {
        if (formatMediumDate(kMarch4) != "Mar 4, 2024") ++failures[t];
        if (localizedStandardCompare("Build 9", "Build 10") >= 0) ++failures[t];
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(failures, std::vector<int>(4, 0));
}

}  // namespace
}  // namespace tw
