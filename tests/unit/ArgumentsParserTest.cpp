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

TEST(ArgumentsParser, ErrorsNameTheTokenThatCouldNotBeTaken) {
  const std::vector<std::pair<std::vector<std::string>, std::pair<Kind, std::string>>> cases = {
      {{"/usr/local/bin/tidewell"}, {Kind::insufficientArguments, ""}},
      {{"tw", "info", "info"}, {Kind::wrongArgument, "info"}},  // whole names, case-sensitive, once
      {{"tw", "--Help"}, {Kind::wrongArgument, "--Help"}},
      {{"tw", "inf"}, {Kind::wrongArgument, "inf"}},
      {{"tw", "clean=all"}, {Kind::wrongArgument, "clean=all"}},
      {{"tw", "clean", "all", "clean", "archives"}, {Kind::wrongArgument, "clean"}},
      {{"tw", "info", "clean"}, {Kind::noValue, "clean"}}};
  auto parser = toolParser();
  for (const auto& [arguments, expected] : cases) {
    try {
      parser.parse(arguments);
      ADD_FAILURE() << "accepted " << testing::PrintToString(arguments);
    } catch (const ArgumentsParser::Error& error) {
      EXPECT_EQ(std::make_pair(error.kind(), error.argument()), expected) << testing::PrintToString(arguments);
    }
  }
  EXPECT_TRUE(parser.parse({}).empty());
}

TEST(ArgumentsParser, ResultsFollowCommandLineOrderAndValuesAreTakenVerbatim) {
  auto parser = toolParser();
  auto given = parser.parse({"tw", "--help", "clean", "info", "info"});
  ASSERT_EQ(given.size(), 3u);
  EXPECT_EQ(given[0].name(), "--help");
  ASSERT_NE(given[0].plain(), nullptr);
  EXPECT_TRUE(given[0].plain()->enabled);
  EXPECT_EQ(given[1].name(), "clean");
  EXPECT_EQ(given[1].withValue()->value, "info");  // the next token, whatever it is
  EXPECT_EQ(given[2].name(), "info");
  for (std::string value : {"", " all ", "--help"}) {
    EXPECT_EQ(parser.parse({"tw", "clean", value}).at(0).withValue()->value, value);
  }
  // The registered copies stay unset, so the same parser parses again from scratch.
  for (const auto& option : parser.options()) EXPECT_FALSE(option.isSet()) << option.name();
}

TEST(ArgumentsParser, UsageTextListsOptionsInRegistrationOrder) {
  auto parser = toolParser();
  parser.addOptionWithValue("free", "Anything goes.", std::nullopt);
  parser.addOptionWithValue("none", "Nothing goes.", std::vector<std::string>{});
  EXPECT_EQ(parser.usageText(),
            "OVERVIEW: Reclaims storage\n\nUSAGE: tidewell <command> [options]\n\nOPTIONS:\n\n"
            " info\n\tShow all items available to clean.\n clean <all,archives>\n\tPerform cleaning of given items.\n"
            " --help\n\tPrints this message\n free <value>\n\tAnything goes.\n none <>\n\tNothing goes.\n");
  std::ostringstream out;
  parser.printUsage(out);
  EXPECT_EQ(out.str(), parser.usageText());
  // Without a tool name the usage names the running program.
  EXPECT_NE(ArgumentsParser(std::nullopt, "d").usageText().find("USAGE: tidewell_tests <command>"), std::string::npos);
}

}  // namespace
}  // namespace tw
