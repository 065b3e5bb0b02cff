#include <gtest/gtest.h>

#include <sstream>

#include "cli/ArgumentsParser.h"

namespace tw {
namespace {

using Kind = ArgumentsParser::Error::Kind;

ArgumentsParser toolParser() {
  ArgumentsParser parser("tidewell", "Reclaims storage");
  parser.addOption("info", "Show all items available to clean.");
  parser.addOptionWithValue("clean", "Perform cleaning of given items.", std::vector<std::string>{"all", "archives"});
  parser.addOption("--help", "Prints this message");
  return parser;
}

// Runs the parse and returns the error kind and its argument; fails the test when nothing is thrown.
std::pair<Kind, std::string> parseError(const ArgumentsParser& parser, const std::vector<std::string>& arguments) {
  try {
    parser.parse(arguments);
  } catch (const ArgumentsParser::Error& error) {
    return {error.kind(), error.argument()};
  }
  ADD_FAILURE() << "no error thrown";
  return {Kind::insufficientArguments, "<none>"};
}

TEST(ArgumentsParser, TheArgumentListMustHoldMoreThanTheProgramPath) {
  auto parser = toolParser();
  EXPECT_EQ(parseError(parser, {"/usr/local/bin/tidewell"}).first, Kind::insufficientArguments);
  EXPECT_TRUE(parser.parse({}).empty());

  ArgumentsParser empty("tool", "nothing registered");
  EXPECT_TRUE(empty.parse({"tool"}).empty());
  EXPECT_TRUE(empty.parse({"tool", "anything", "--at-all"}).empty());
}

TEST(ArgumentsParser, TokensMatchWholeNamesCaseSensitivelyAndOnlyOnce) {
  auto parser = toolParser();
  EXPECT_EQ(parseError(parser, {"tw", "info", "info"}), std::make_pair(Kind::wrongArgument, std::string("info")));
  EXPECT_EQ(parseError(parser, {"tw", "INFO"}), std::make_pair(Kind::wrongArgument, std::string("INFO")));
  EXPECT_EQ(parseError(parser, {"tw", "--Help"}), std::make_pair(Kind::wrongArgument, std::string("--Help")));
  EXPECT_EQ(parseError(parser, {"tw", "inf"}), std::make_pair(Kind::wrongArgument, std::string("inf")));
  EXPECT_EQ(parseError(parser, {"tw", "clean=all"}), std::make_pair(Kind::wrongArgument, std::string("clean=all")));
  EXPECT_EQ(parseError(parser, {"tw", "clean", "all", "clean", "archives"}),
            std::make_pair(Kind::wrongArgument, std::string("clean")));
  EXPECT_EQ(parseError(parser, {"tw", "--help", "-h"}), std::make_pair(Kind::wrongArgument, std::string("-h")));
}

TEST(ArgumentsParser, AnOptionWithValueTakesTheNextTokenVerbatim) {
  auto parser = toolParser();
  EXPECT_EQ(parseError(parser, {"tw", "clean"}), std::make_pair(Kind::noValue, std::string("clean")));
  EXPECT_EQ(parseError(parser, {"tw", "info", "clean"}), std::make_pair(Kind::noValue, std::string("clean")));

  for (std::string value : {"info", "ALL", "bogus", "", " all ", "--help"}) {
    auto given = parser.parse({"tw", "clean", value});
    ASSERT_EQ(given.size(), 1u) << value;
    ASSERT_NE(given[0].withValue(), nullptr);
    EXPECT_EQ(given[0].name(), "clean");
    EXPECT_TRUE(given[0].isSet());
    EXPECT_EQ(given[0].withValue()->value, value);
  }
}

TEST(ArgumentsParser, ResultsFollowCommandLineOrderAndLeaveRegistrationUntouched) {
  auto parser = toolParser();
  auto given = parser.parse({"tw", "info", "clean", "all"});
  ASSERT_EQ(given.size(), 2u);
  EXPECT_EQ(given[0].name(), "info");
  ASSERT_NE(given[0].plain(), nullptr);
  EXPECT_TRUE(given[0].plain()->enabled);
  EXPECT_EQ(given[1].name(), "clean");
  EXPECT_EQ(given[1].withValue()->value, "all");

  auto reversed = parser.parse({"tw", "--help", "clean", "archives", "info"});
  ASSERT_EQ(reversed.size(), 3u);
  EXPECT_EQ(reversed[0].name(), "--help");
  EXPECT_EQ(reversed[1].name(), "clean");
  EXPECT_EQ(reversed[2].name(), "info");

  // The registered copies stay unset, so the same parser parses again from scratch.
  for (const auto& option : parser.options()) EXPECT_FALSE(option.isSet()) << option.name();
  EXPECT_EQ(parser.parse({"tw", "info"}).size(), 1u);
  EXPECT_EQ(parseError(parser, {"tw", "bogus"}).first, Kind::wrongArgument);
  EXPECT_EQ(parser.parse({"tw", "clean", "x"}).front().withValue()->value, "x");
}

TEST(ArgumentsParser, UsageTextListsOptionsInRegistrationOrder) {
  ArgumentsParser parser("tidewell", "Reclaims storage that Xcode stores in caches and old files");
  parser.addOption("info", "Show all items available to clean.");
  parser.addOptionWithValue("clean", "Perform cleaning.",
                            std::vector<std::string>{"all", "device-support", "archives"});
  parser.addOptionWithValue("free", "Anything goes.", std::nullopt);
  parser.addOptionWithValue("none", "Nothing goes.", std::vector<std::string>{});
  parser.addOption("--help", "Prints this message");

  EXPECT_EQ(parser.usageText(),
            "OVERVIEW: Reclaims storage that Xcode stores in caches and old files\n"
            "\n"
            "USAGE: tidewell <command> [options]\n"
            "\n"
            "OPTIONS:\n"
            "\n"
            " info\n"
            "\tShow all items available to clean.\n"
            " clean <all,device-support,archives>\n"
            "\tPerform cleaning.\n"
            " free <value>\n"
            "\tAnything goes.\n"
            " none <>\n"
            "\tNothing goes.\n"
            " --help\n"
            "\tPrints this message\n");

  std::ostringstream out;
  parser.printUsage(out);
  EXPECT_EQ(out.str(), parser.usageText());
}

TEST(ArgumentsParser, WithoutToolNameTheUsageNamesTheRunningProgram) {
  ArgumentsParser parser(std::nullopt, "d");
  EXPECT_EQ(parser.toolName(), "tidewell_tests");
  EXPECT_NE(parser.usageText().find("USAGE: tidewell_tests <command> [options]\n"), std::string::npos);
}

}  // namespace
}  // namespace tw
