#include <gtest/gtest.h>

#include <limits>

#include "platform/ByteCountFormatter.h"
#include "platform/TextLocale.h"

namespace tw {
namespace {

using Cases = std::vector<std::pair<int64_t, const char*>>;

// The C locale (en_US_POSIX) writes numbers as American English does; 999,500 rounds to 1000 KB
// and so moves on to the next unit.
const Cases kEnglish = {
    {0, "Zero KB"},
    {1, "1 byte"},
    {2, "2 bytes"},
    {999, "999 bytes"},
    {1000, "1 KB"},
    {1499, "1 KB"},
    {1500, "2 KB"},
    {999'499, "999 KB"},
    {999'500, "1 MB"},
    {1'000'000, "1 MB"},
    {1'049'999, "1 MB"},
    {1'050'000, "1.1 MB"},
    {1'500'000, "1.5 MB"},
    {1'048'576, "1 MB"},
    {999'949'999, "999.9 MB"},
    {999'950'000, "1 GB"},
    {1'234'567'890, "1.23 GB"},
    {1'205'000'000, "1.21 GB"},
    {1'200'000'000, "1.2 GB"},
    {1'000'000'000'000, "1 TB"},
    {5'555'000'000'000'000, "5.56 PB"},
    {INT64_MAX, "9.22 EB"},
    {-1, "-1 byte"},
    {-999, "-999 bytes"},
    {-1500, "-2 KB"},
    {-1'500'000, "-1.5 MB"},
    {INT64_MIN, "-9.22 EB"},
};
// Numbers follow the locale while the units stay.
const Cases kGerman = {
    {0, "Zero KB"},          {1, "1 byte"},
    {999, "999 bytes"},      {1500, "2 KB"},
    {1'300'000, "1,3 MB"},   {1'234'567'890, "1,23 GB"},
    {-1'500'000, "-1,5 MB"}, {5'555'000'000'000'000, "5,56 PB"},
};

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
