#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "model/Version.h"

namespace tw {
namespace {

std::optional<std::string> printed(std::string_view text) {
  auto version = Version::fromString(text);
  if (!version) return std::nullopt;
  return version->toString();
}

TEST(Version, ParsesTwoAndThreePartsAndPrintsThemBack) {
  struct Case {
    std::string text;
    std::optional<std::string> expected;
  };
  const std::vector<Case> cases = {
      {"15.2", "15.2"},
      {"15.2.0", "15.2.0"},
      {"17.4.1", "17.4.1"},
      {"1..2", "1.2"},      // empty pieces are dropped
      {".1.2.", "1.2"},     // also at both ends
      {"1.2.3.", "1.2.3"},  // nothing left for a fourth piece
      {"0.0", "0.0"},
      {"007.08", "7.8"},
      {"18446744073709551615.1", "18446744073709551615.1"},
      {"15", std::nullopt},
      {"", std::nullopt},
      {"...", std::nullopt},
      {"1.2.3.4", std::nullopt},
      {"1.2.3..4", std::nullopt},  // the fourth piece keeps ".4"
      {" 15.2", std::nullopt},     // nothing is trimmed
      {"15.2 ", std::nullopt},
      {"15.x", std::nullopt},
      {"-1.2", std::nullopt},
      {"+1.2", std::nullopt},
      {"18446744073709551616.1", std::nullopt},  // does not fit 64 bits
      {"1.2 (beta)", std::nullopt},
      {"１.２", std::nullopt},  // full-width digits
  };
  for (const auto& c : cases) EXPECT_EQ(printed(c.text), c.expected) << "text: '" << c.text << "'";
}

TEST(Version, AbsentPatchEqualsZeroPatchButPrintsDifferently) {
  auto twoParts = *Version::fromString("15.2");
  auto zeroPatch = *Version::fromString("15.2.0");
  EXPECT_EQ(twoParts, zeroPatch);
  EXPECT_FALSE(twoParts < zeroPatch);
  EXPECT_FALSE(zeroPatch < twoParts);
  EXPECT_NE(twoParts.toString(), zeroPatch.toString());
  EXPECT_NE(twoParts, *Version::fromString("15.2.1"));
}

TEST(Version, OrdersByMajorMinorAndPatch) {
  std::vector<std::string> expected = {"2.0", "9.9.9", "10.0", "16.0", "16.0.1", "16.1", "16.10", "17.0"};
  std::vector<Version> versions;
  for (auto it = expected.rbegin(); it != expected.rend(); ++it) versions.push_back(*Version::fromString(*it));
  std::sort(versions.begin(), versions.end());
  std::vector<std::string> sorted;
  for (const auto& version : versions) sorted.push_back(version.toString());
  EXPECT_EQ(sorted, expected);
}

TEST(Version, ReadsTheOperatingSystemVersionRecord) {
  auto zeroPatch = Version::parse("NSOperatingSystemVersion(majorVersion: 17, minorVersion: 4, patchVersion: 0)");
  ASSERT_TRUE(zeroPatch);
  EXPECT_EQ(zeroPatch->toString(), "17.4");  // a patch of 0 gives two parts

  auto withPatch = Version::parse("NSOperatingSystemVersion(majorVersion: 17, minorVersion: 4, patchVersion: 1)");
  ASSERT_TRUE(withPatch);
  EXPECT_EQ(withPatch->toString(), "17.4.1");

  // The slash form and missing spaces are accepted; a patch "00" is not the single digit 0.
  EXPECT_EQ(Version::parse("NSOperatingSystemVersion{majorVersion/9,minorVersion/3,patchVersion/00}")->toString(),
            "9.3.0");
  // The three fields must stand on one line.
  EXPECT_FALSE(Version::parse("NSOperatingSystemVersion(majorVersion: 17,\nminorVersion: 4, patchVersion: 1)"));
  // Case-sensitive field names.
  EXPECT_FALSE(Version::parse("NSOperatingSystemVersion(MajorVersion: 17, minorVersion: 4, patchVersion: 1)"));
  EXPECT_FALSE(Version::parse("NSOperatingSystemVersion()"));
  // Without the record prefix the text is read as a dotted version.
  EXPECT_FALSE(Version::parse("majorVersion: 17, minorVersion: 4, patchVersion: 1"));
  EXPECT_EQ(Version::parse("17.4")->toString(), "17.4");
  EXPECT_EQ(Version::fromVersionRecordText("x majorVersion: 1 minorVersion: 2 patchVersion: 3 y")->toString(), "1.2.3");
  // A number too large for 64 bits matches the pattern but is no version.
  EXPECT_FALSE(Version::fromVersionRecordText("majorVersion: 99999999999999999999, minorVersion: 1, patchVersion: 1"));
}

}  // namespace
}  // namespace tw
