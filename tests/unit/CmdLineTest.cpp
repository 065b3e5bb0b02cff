// The command line: its argument parser, the "clean" value, the listing and the deletion report.
#include <gtest/gtest.h>

#include <sstream>

#include "cli/ArgumentsParser.h"
#include "cli/CmdLine.h"
#include "platform/Error.h"
#include "platform/Host.h"
#include "support/TempDir.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using Location = DevFiles::Location;
using Locations = std::vector<Location>;

TEST(ArgumentsParser, ResultsFollowCommandLineOrderValuesAreVerbatimAndUsageKeepsRegistrationOrder) {
  ArgumentsParser parser("tidewell", "Reclaims storage");
  parser.addOption("info", "Show all items available to clean.");
  parser.addOptionWithValue("clean", "Perform cleaning of given items.", std::vector<std::string>{"all", "archives"});
  parser.addOption("--help", "Prints this message");
  auto given = parser.parse({"tw", "--help", "clean", "info", "info"});  // a value is the next token, whatever it is
  ASSERT_EQ(given.size(), 3u);
  EXPECT_TRUE(given[0].name() == "--help" && given[0].plain()->enabled && given[2].name() == "info");
  EXPECT_EQ(given[1].withValue()->value, "info");
  EXPECT_TRUE(parser.parse({}).empty());
  for (std::string value : {"", " all ", "--help"})
    EXPECT_EQ(parser.parse({"tw", "clean", value}).at(0).withValue()->value, value);
  // The registered copies stay unset, so the same parser parses again from scratch.
  for (const auto& option : parser.options()) EXPECT_FALSE(option.isSet()) << option.name();
  parser.addOptionWithValue("free", "Anything goes.", std::nullopt);
  // The real tool's whole usage is checked end to end; a value without a list of its own shows "<value>".
  EXPECT_TRUE(parser.usageText().ends_with(" --help\n\tPrints this message\n free <value>\n\tAnything goes.\n"))
      << parser.usageText();
  // Without a tool name the usage names the running program.
  EXPECT_NE(ArgumentsParser(std::nullopt, "d").usageText().find("USAGE: tidewell_tests <command>"), std::string::npos);
}

// The locations a "clean" value names, or the trimmed piece it is rejected for.
std::variant<Locations, std::string> parsed(const std::string& value) {
  try {
    return CmdLine::parseLocations(value);
  } catch (const CmdLine::Error& error) {
    return error.kind() == CmdLine::Error::Kind::wrongOption ? error.option() : "not a wrong value";
  }
}

TEST(CmdLineLocations, NamesAreSplitAtCommasTrimmedAndKeptInOrderAndUnknownPiecesAreRejected) {
  const Locations all(DevFiles::allLocations().begin(), DevFiles::allLocations().end());
  for (const char* value : {"all", "ALL", " all ", "\u00A0aLL\u3000", "\u2003all\u2028"})
    EXPECT_EQ(CmdLine::parseLocations(value), all) << value;
  auto expanded = CmdLine::parseLocations("archives,all");  // "all" inside a list as well
  ASSERT_EQ(expanded.size(), all.size() + 1);
  EXPECT_EQ(expanded.front(), Location::archives);
  const std::vector<std::pair<std::string, std::variant<Locations, std::string>>> cases = {
      // more run end to end
      {" runtimes \n,\u00A0cloud-caches", Locations{Location::simulatorRuntimes, Location::cloudStorage}},
      {"archives,device-support,archives", Locations{Location::archives, Location::deviceSupport, Location::archives}},
      {",,,", Locations{}},
      {"derived-data, ,archives", std::string("")},
      {"all archives", std::string("all archives")},
      {"\xff\xfe", std::string("\xff\xfe")}};
  for (const auto& [value, expected] : cases) EXPECT_EQ(parsed(value), expected) << value;
}

CleanupEntryPtr entry(std::string label, std::string extraInfo, std::optional<int64_t> bytes,
                      std::vector<CleanupEntryPtr> items = {}) {
  auto result = std::make_shared<CleanupEntry>(std::move(label), std::move(extraInfo));
  for (auto& item : items) result->addItem(item);
  result->setSize(bytes ? CleanupEntry::Size::value(*bytes) : CleanupEntry::Size::unknown());
  return result;
}

TEST(CmdLineListing, RootsInDescendingCodePointOrderChildrenInStoredOrderOneTabDeeper) {
  std::ostringstream out;
  // "É" written as E + combining acute sorts as U+00C9, above every ASCII letter, but prints as given.
  CmdLine(out).printInfo({entry("Zeta", "", 0, {entry("b", "/x/b", 1'500'000), entry("a", "", std::nullopt)}),
                          entry("E\u0301clair", "old", 1'000), entry("apple", "", 1)});
  EXPECT_EQ(out.str(),
            "[1 KB] E\u0301clair (old)\n\n[1 byte] apple \n\n"
            "[Zero KB] Zeta \n\t[1.5 MB] b (/x/b)\n\t[Zero KB] a \n\n");
}

TEST(CmdLineDriver, ReportsEachItemAndEachFailureAndCleansOnlyTheNamedLocationsWhateverWasSelectedBefore) {
  test::TempDir home;
  for (const char* folder : {"Xcode", "CoreSimulator"}) fs::create_directories(home / "Library/Developer" / folder);
  ScopedHost scoped(Host{.home = home.path(), .temporaryDirectory = home.path(), .configDirectory = home / "config"});
  auto devFiles = DevFiles::create(home / "Library/Developer", std::nullopt, std::nullopt).value_or(nullptr);
  ASSERT_TRUE(devFiles);
  std::ostringstream out;
  CmdLine cmdLine(out);
  cmdLine.deleteStarted(*devFiles);
  cmdLine.deletingItem(*devFiles, "Derived Data", "WeatherApp /Users/sam/W.xcodeproj", fs::path("/x/W-abc"), 1, 12);
  cmdLine.deletingItem(*devFiles, "Archives", "", fs::path("/x/A 1.xcarchive"), 2, 12);
  cmdLine.deletingItem(*devFiles, "System", "", std::nullopt, 12, 12);
  cmdLine.deleteFailed(*devFiles, FileSystemError("Permission denied", EACCES, "/y"), "UserData Cache", "ignored",
                       fs::path("/x/Previews"));
  cmdLine.deleteFailed(*devFiles, Error("Operation not permitted"), "old logs", "", std::nullopt);
  cmdLine.deleteFinished(*devFiles);
  EXPECT_EQ(
      out.str(),
      "Removing files:\nDerived Data: WeatherApp /Users/sam/W.xcodeproj - 1/12\nArchives: /x/A 1.xcarchive - 2/12\n"
      "System: 12/12\nWarning: Following file couldn't be removed: Userdata Cache: /x/Previews Permission denied\n"
      "Warning: Following file couldn't be removed: Old Logs: - Operation not permitted\n");
  // A selection left over from before must not survive a clean of other locations.
  const fs::path archive = home / "Library/Developer/Xcode/Archives/W.xcarchive";
  test::writeFile(archive / "Info.plist", "x");
  auto item = entry("W", "", 1);
  item->addPath(archive);
  item->select();
  devFiles->entry(Location::archives)->addItem(item);
  cmdLine.clean(*devFiles, {Location::derivedData});
  EXPECT_TRUE(fs::exists(archive));
}

}  // namespace
}  // namespace tw
