#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "platform/ByteCountFormatter.h"
#include "platform/TextLocale.h"

namespace tw {
namespace {

struct Case {
  int64_t bytes;
  const char* text;
};

TEST(ByteCountFormatter, MatchesTheFileStyleTable) {
  // The C locale (en_US_POSIX) writes numbers as American English does.
  for (const char* locale : {"en_US", "en_US_POSIX"}) {
    ScopedTextLocale scoped(locale, "UTC");
    const Case cases[] = {
        {0, "Zero KB"},
        {1, "1 byte"},
        {2, "2 bytes"},
        {999, "999 bytes"},
        {1000, "1 KB"},
        {1499, "1 KB"},
        {1500, "2 KB"},
        {999'499, "999 KB"},
        {999'500, "1 MB"},  // rounding to 1000 KB moves on to the next unit
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
        {std::numeric_limits<int64_t>::max(), "9.22 EB"},
    };
    for (const auto& c : cases) EXPECT_EQ(formatByteCount(c.bytes), c.text) << locale << " " << c.bytes;
  }
}

TEST(ByteCountFormatter, NumbersFollowTheLocaleWhileUnitsStay) {
  ScopedTextLocale german("de_DE", "Europe/Berlin");
  const Case cases[] = {
      {0, "Zero KB"},          {1, "1 byte"},
      {999, "999 bytes"},      {1500, "2 KB"},
      {1'300'000, "1,3 MB"},   {1'234'567'890, "1,23 GB"},
      {-1'500'000, "-1,5 MB"}, {5'555'000'000'000'000, "5,56 PB"},
  };
  for (const auto& c : cases) EXPECT_EQ(formatByteCount(c.bytes), c.text) << c.bytes;
}

TEST(ByteCountFormatter, NegativeCountsKeepTheirSign) {
  ScopedTextLocale english("en_US", "UTC");
  EXPECT_EQ(formatByteCount(-1), "-1 byte");
  EXPECT_EQ(formatByteCount(-999), "-999 bytes");
  EXPECT_EQ(formatByteCount(-1500), "-2 KB");
  EXPECT_EQ(formatByteCount(-1'500'000), "-1.5 MB");
  EXPECT_EQ(formatByteCount(std::numeric_limits<int64_t>::min()), "-9.22 EB");
}

}  // namespace
}  // namespace tw
