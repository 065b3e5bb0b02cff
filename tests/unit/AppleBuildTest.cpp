#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <string>
#include <vector>

#include "model/AppleBuild.h"

namespace tw {
namespace {

TEST(AppleBuild, SplitsNumberLetterAndDailyPart) {
  struct Case {
    std::string text;
    std::optional<int64_t> major;
    std::optional<std::string> letter;
    std::string daily;
  };
  const std::vector<Case> cases = {
      {"21A5248p", 21, "A", "5248p"},
      {"22E", 22, "E", ""},
      {"15", 15, std::nullopt, ""},
      {"", std::nullopt, std::nullopt, ""},
      {"  21E219", 21, "E", "219"},  // white space before the number is skipped
      {"21 E219", 21, "E", "219"},   // and before the letter
      {"(21E219)", std::nullopt, "(", "21E219)"},
      {"-3A1", -3, "A", "1"},
      {"99999999999999999999Z", std::numeric_limits<int64_t>::max(), "Z", ""},
      {"20Äb", 20, "Ä", "b"},                  // a letter of more than one byte
      {"20e\xCC\x81x", 20, "e\xCC\x81", "x"},  // e with a combining accent is one character
      {"   ", std::nullopt, std::nullopt, ""},
  };
  for (const auto& c : cases) {
    AppleBuild build(c.text);
    EXPECT_EQ(build.major, c.major) << c.text;
    EXPECT_EQ(build.minor, c.letter) << c.text;
    EXPECT_EQ(build.daily, c.daily) << c.text;
    EXPECT_EQ(build.toString(), c.text);
  }
}

TEST(AppleBuild, EqualityComparesThePartsNotTheText) {
  EXPECT_EQ(AppleBuild("21E219"), AppleBuild(" 21E219"));
  EXPECT_EQ(AppleBuild("21E219"), AppleBuild("21 E219"));
  EXPECT_NE(AppleBuild("21a1"), AppleBuild("21A1"));
  EXPECT_NE(AppleBuild("21A1"), AppleBuild("21A"));
  EXPECT_NE(AppleBuild("A1"), AppleBuild("0A1"));  // absent number differs from 0
  EXPECT_EQ(AppleBuild(""), AppleBuild(""));
}

TEST(AppleBuild, OrdersByNumberThenLetterThenDailyTextLiterally) {
  // Each build comes strictly before the next one.
  const std::vector<std::string> ascending = {
      "-1A", "9Z", "21A5248p", "21A559", "21B5", "21a1", "22A1", "22A100", "22A99", "100A1",
  };
  for (size_t i = 0; i + 1 < ascending.size(); ++i) {
    AppleBuild earlier(ascending[i]);
    AppleBuild later(ascending[i + 1]);
    EXPECT_TRUE(earlier < later) << ascending[i] << " < " << ascending[i + 1];
    EXPECT_FALSE(later < earlier) << ascending[i + 1] << " < " << ascending[i];
  }
  std::vector<AppleBuild> builds;
  for (auto it = ascending.rbegin(); it != ascending.rend(); ++it) builds.emplace_back(*it);
  std::sort(builds.begin(), builds.end());
  std::vector<std::string> sorted;
  for (const auto& build : builds) sorted.push_back(build.toString());
  EXPECT_EQ(sorted, ascending);
}

TEST(AppleBuild, OrdersBuildsWithMissingPartsWithoutFailing) {
  // A missing number counts as 0 against a present one, and decides the order right there.
  EXPECT_TRUE(AppleBuild("A1") < AppleBuild("1A"));
  EXPECT_TRUE(AppleBuild("-2A") < AppleBuild("A"));
  EXPECT_FALSE(AppleBuild("0B") < AppleBuild("A"));
  EXPECT_FALSE(AppleBuild("A") < AppleBuild("0B"));
  // No letter comes before a letter.
  EXPECT_TRUE(AppleBuild("21") < AppleBuild("21A"));
  EXPECT_FALSE(AppleBuild("21A") < AppleBuild("21"));
  // Upper case before lower case.
  EXPECT_TRUE(AppleBuild("21A1") < AppleBuild("21a1"));
  // The empty build is before any real build and equal to itself.
  EXPECT_TRUE(AppleBuild("") < AppleBuild("21A1"));
  EXPECT_FALSE(AppleBuild("") < AppleBuild(""));
  // Parenthesised builds as read from folder names order by their text after the parenthesis.
  EXPECT_TRUE(AppleBuild("(20E247)") < AppleBuild("(21E219)"));
  EXPECT_TRUE(AppleBuild("21E219") <= AppleBuild("21E219"));
  EXPECT_TRUE(AppleBuild("21E219") >= AppleBuild("21E219"));
  EXPECT_TRUE(AppleBuild("21F") > AppleBuild("21E999"));
}

}  // namespace
}  // namespace tw
