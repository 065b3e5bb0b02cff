#include <gtest/gtest.h>

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
      {"15", 15, std::nullopt, ""},
      {"   ", std::nullopt, std::nullopt, ""},
      {" 21 E219", 21, "E", "219"},          // white space before the number and the letter is skipped
      {" 21 A \n 5248p", 21, "A", "5248p"},  // and before the daily part
      {"(21E219)", std::nullopt, "(", "21E219)"},
      {"-3A1", -3, "A", "1"},
      {"99999999999999999999Z", std::numeric_limits<int64_t>::max(), "Z", ""},
      {"20e\xCC\x81x", 20, "e\xCC\x81", "x"},  // e with a combining accent is one character
  };
  for (const auto& c : cases) {
    AppleBuild build(c.text);
    EXPECT_EQ(build.major, c.major) << c.text;
    EXPECT_EQ(build.minor, c.letter) << c.text;
    EXPECT_EQ(build.daily, c.daily) << c.text;
    EXPECT_EQ(build.toString(), c.text);
  }
  EXPECT_EQ(AppleBuild("21E219"), AppleBuild(" 21 E219"));  // equality compares the parts
  EXPECT_EQ(AppleBuild("21A5248p"), AppleBuild(" 21 A 5248p"));
  EXPECT_NE(AppleBuild("A1"), AppleBuild("0A1"));  // an absent number differs from 0
}

TEST(AppleBuild, OrdersByNumberThenLetterThenDailyTextLiterally) {
  // Each build comes strictly before the next one: a missing number counts as 0, no letter
  // comes before a letter, upper case before lower case, daily parts compare as text.
  const std::vector<std::string> ascending = {
      "-2A", "", "A1", "1A", "9Z", "21", "21A5248p", "21A559", "21B5", "21E999", "21F", "21a1", "22A1", "22A100", "22A99",
  };
  for (size_t i = 0; i + 1 < ascending.size(); ++i) {
    AppleBuild earlier(ascending[i]);
    AppleBuild later(ascending[i + 1]);
    EXPECT_TRUE(earlier < later) << ascending[i] << " < " << ascending[i + 1];
    EXPECT_FALSE(later < earlier) << ascending[i + 1] << " < " << ascending[i];
  }
  // A number decides as soon as one side has it.
  EXPECT_FALSE(AppleBuild("0B") < AppleBuild("A"));
  EXPECT_FALSE(AppleBuild("A") < AppleBuild("0B"));
  EXPECT_TRUE(AppleBuild("(20E247)") < AppleBuild("(21E219)"));
}

}  // namespace
}  // namespace tw
