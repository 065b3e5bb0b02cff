#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "model/Version.h"

namespace tw {
namespace {

std::optional<std::string> printed(const std::optional<Version>& version) {
  return version ? std::optional<std::string>(version->toString()) : std::nullopt;
}

TEST(Version, ParsesTwoAndThreePartsAndPrintsThemBack) {
  const std::vector<std::pair<std::string, std::optional<std::string>>> cases = {
      {"15.2.0", "15.2.0"}, {".1..2.", "1.2"} /* empty pieces are dropped */, {"007.08", "7.8"},
      {"18446744073709551615.1", "18446744073709551615.1"}, {"18446744073709551616.1", std::nullopt},
      {"15", std::nullopt}, {"1.2.3.4", std::nullopt}, {"1.2.3..4", std::nullopt},
      {" 15.2", std::nullopt} /* nothing is trimmed */, {"-1.2", std::nullopt}, {"１.２", std::nullopt},
  };
  for (const auto& [text, expected] : cases) EXPECT_EQ(printed(Version::fromString(text)), expected) << text;
}

TEST(Version, OrdersByMajorMinorAndPatch) {
  const std::vector<std::string> ascending = {"2.0", "9.9.9", "10.0", "16.0", "16.0.1", "16.1", "16.10", "17.0"};
  for (size_t i = 0; i + 1 < ascending.size(); ++i) {
    const Version earlier = *Version::fromString(ascending[i]), later = *Version::fromString(ascending[i + 1]);
    EXPECT_TRUE(earlier < later && !(later < earlier)) << ascending[i];
  }
  // An absent patch equals a zero patch, though it prints differently.
  EXPECT_EQ(*Version::fromString("15.2"), *Version::fromString("15.2.0"));
  EXPECT_FALSE(*Version::fromString("15.2") < *Version::fromString("15.2.0"));
  EXPECT_FALSE(*Version::fromString("15.2.0") < *Version::fromString("15.2"));
}

TEST(Version, ReadsTheOperatingSystemVersionRecord) {
  const std::vector<std::pair<std::string, std::optional<std::string>>> cases = {
      {"NSOperatingSystemVersion(majorVersion: 17, minorVersion: 4, patchVersion: 0)", "17.4"},
      {"NSOperatingSystemVersion(majorVersion: 17, minorVersion: 4, patchVersion: 1)", "17.4.1"},
      {"NSOperatingSystemVersion{majorVersion/9,minorVersion/3,patchVersion/00}", "9.3.0"},
      {"NSOperatingSystemVersion(majorVersion: 17,\nminorVersion: 4, patchVersion: 1)", std::nullopt},
      {"NSOperatingSystemVersion(MajorVersion: 17, minorVersion: 4, patchVersion: 1)", std::nullopt},
      {"majorVersion: 17, minorVersion: 4, patchVersion: 1", std::nullopt},  // read as a dotted version
      {"17.4", "17.4"},
  };
  for (const auto& [text, expected] : cases) EXPECT_EQ(printed(Version::parse(text)), expected) << text;
  EXPECT_FALSE(Version::fromVersionRecordText("majorVersion: 99999999999999999999, minorVersion: 1, patchVersion: 1"));
}

}  // namespace
}  // namespace tw
