#include <gtest/gtest.h>

#include <sstream>

#include "app/Preferences.h"
#include "cli/CmdLine.h"
#include "platform/Error.h"
#include "platform/Host.h"
#include "support/TempDir.h"

namespace tw {
namespace {

using Location = DevFiles::Location;

std::vector<Location> everyLocation() { return {DevFiles::allLocations().begin(), DevFiles::allLocations().end()}; }

std::string wrongOption(std::string_view value) {
  try {
    CmdLine::parseLocations(value);
  } catch (const CmdLine::Error& error) {
    EXPECT_EQ(error.kind(), CmdLine::Error::Kind::wrongOption);
    return error.option();
  }
  ADD_FAILURE() << "accepted \"" << value << "\"";
  return "<accepted>";
}

TEST(CmdLineLocations, AllInAnyCaseOrSurroundedBySpaceMeansEveryLocationInDeclarationOrder) {
  auto all = everyLocation();
  ASSERT_EQ(all.size(), 18u);
  EXPECT_EQ(all.front(), Location::deviceSupport);
  EXPECT_EQ(all.back(), Location::projectBuilds);
  for (const char* value : {"all", "ALL", "All", " all ", "\tall\n", "\u00A0aLL\u3000", "\u2003all\u2028"}) {
    EXPECT_EQ(CmdLine::parseLocations(value), all) << value;
  }
}

TEST(CmdLineLocations, NamesAreSplitAtCommasTrimmedAndKeptInOrder) {
  EXPECT_EQ(CmdLine::parseLocations("derived-data,archives"),
            (std::vector<Location>{Location::derivedData, Location::archives}));
  EXPECT_EQ(CmdLine::parseLocations("derived-data, archives"),
            (std::vector<Location>{Location::derivedData, Location::archives}));
  EXPECT_EQ(CmdLine::parseLocations("derived-data,,archives,"),
            (std::vector<Location>{Location::derivedData, Location::archives}));
  EXPECT_EQ(CmdLine::parseLocations(" runtimes \n,\u00A0cloud-caches"),
            (std::vector<Location>{Location::simulatorRuntimes, Location::cloudStorage}));
  EXPECT_EQ(CmdLine::parseLocations("archives,device-support,archives"),
            (std::vector<Location>{Location::archives, Location::deviceSupport, Location::archives}));
  EXPECT_TRUE(CmdLine::parseLocations("").empty());
  EXPECT_TRUE(CmdLine::parseLocations(",,,").empty());

  // Every name of the table selects its own location.
  for (auto location : DevFiles::allLocations()) {
    EXPECT_EQ(CmdLine::parseLocations(DevFiles::commandLineName(location)), std::vector<Location>{location});
  }
  // "all" inside a list stands for every location as well.
  auto expanded = CmdLine::parseLocations("archives,all");
  ASSERT_EQ(expanded.size(), 19u);
  EXPECT_EQ(expanded.front(), Location::archives);
}

TEST(CmdLineLocations, UnknownPiecesAreRejectedWithTheTrimmedPiece) {
  EXPECT_EQ(wrongOption("Derived-Data"), "Derived-Data");
  EXPECT_EQ(wrongOption("derived-data,bogus"), "bogus");
  EXPECT_EQ(wrongOption("derived-data, bogus \n"), "bogus");
  EXPECT_EQ(wrongOption("derived-data, ,archives"), "");
  EXPECT_EQ(wrongOption("ALL,archives"), "ALL");
  EXPECT_EQ(wrongOption("derived_data"), "derived_data");
  EXPECT_EQ(wrongOption("all archives"), "all archives");
  EXPECT_EQ(wrongOption("\xff\xfe"), "\xff\xfe");
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
  CmdLine cmdLine(out);
  auto derived = entry("Derived Data", "", 3'500'000,
                       {entry("WeatherApp", "/Users/sam/WeatherApp.xcodeproj", 3'000'000,
                              {entry("Build", "", 2'999'000), entry("Index", "", std::nullopt)}),
                        entry("Alpha", "", 500'000)});
  // "É" written as E + combining acute sorts as U+00C9, above every ASCII letter, but prints as given.
  cmdLine.printInfo({entry("Archives", "", std::nullopt), derived, entry("apple", "", 1),
                     entry("E\u0301clair", "old", 1'000), entry("Zeta", "", 0)});

  EXPECT_EQ(out.str(),
            "[1 KB] E\u0301clair (old)\n"
            "\n"
            "[1 byte] apple \n"
            "\n"
            "[Zero KB] Zeta \n"
            "\n"
            "[3.5 MB] Derived Data \n"
            "\t[3 MB] WeatherApp (/Users/sam/WeatherApp.xcodeproj)\n"
            "\t\t[3 MB] Build \n"
            "\t\t[Zero KB] Index \n"
            "\t[500 KB] Alpha \n"
            "\n"
            "[Zero KB] Archives \n"
            "\n");
}

TEST(CmdLineListing, DeletionProgressAndFailureLines) {
  std::ostringstream out;
  auto cmdLine = std::make_shared<CmdLine>(out);
  test::TempDir home;
  std::filesystem::create_directories(home / "Library/Developer/Xcode");
  std::filesystem::create_directories(home / "Library/Developer/CoreSimulator");
  Host host = Host::current();
  host.home = home.path();
  ScopedHost scoped(host);
  auto devFiles = DevFiles::create(home / "Library/Developer", std::nullopt, std::nullopt);
  ASSERT_TRUE(devFiles);

  cmdLine->deleteStarted(*devFiles);
  cmdLine->deletingItem(*devFiles, "Derived Data", "WeatherApp /Users/sam/W.xcodeproj",
                        std::filesystem::path("/x/WeatherApp-abc"), 1, 12);
  cmdLine->deletingItem(*devFiles, "Archives", "", std::filesystem::path("/x/A 1.xcarchive"), 2, 12);
  cmdLine->deletingItem(*devFiles, "System", "", std::nullopt, 12, 12);
  cmdLine->deleteFailed(*devFiles, FileSystemError("Permission denied", EACCES, "/x/y"), "UserData Cache",
                        "ignored description", std::filesystem::path("/x/UserData/Previews"));
  cmdLine->deleteFailed(*devFiles, Error("Operation not permitted"), "old logs", "", std::nullopt);
  cmdLine->deleteFinished(*devFiles);

  EXPECT_EQ(out.str(),
            "Removing files:\n"
            "Derived Data: WeatherApp /Users/sam/W.xcodeproj - 1/12\n"
            "Archives: /x/A 1.xcarchive - 2/12\n"
            "System: 12/12\n"
            "Warning: Following file couldn't be removed: Userdata Cache: /x/UserData/Previews Permission denied\n"
            "Warning: Following file couldn't be removed: Old Logs: - Operation not permitted\n");
}

TEST(CmdLineCleaning, DeletesOnlyTheNamedLocationsAndAddsWhatTheSelectionHeldToTheLifetimeTotal) {
  test::TempDir home;
  auto developer = home / "Library/Developer";
  std::filesystem::create_directories(developer / "Xcode");
  std::filesystem::create_directories(developer / "CoreSimulator");
  auto derivedProject = developer / "Xcode/DerivedData/WeatherApp-abc";
  auto archive = developer / "Xcode/Archives/2024-03-04/WeatherApp.xcarchive";
  test::writeFileOfSize(derivedProject / "Build/app", 2'000);
  test::writeFileOfSize(archive / "Info.plist", 5'000);
  Host host = Host::current();
  host.home = home.path();
  host.configDirectory = home / "config";
  host.temporaryDirectory = home.path();
  ScopedHost scoped(host);
  Preferences::shared().setTotalBytesCleaned(1'000'000);

  std::ostringstream out;
  auto cmdLine = std::make_shared<CmdLine>(out);
  auto devFiles = DevFiles::create(developer, std::nullopt, std::nullopt);
  ASSERT_TRUE(devFiles);
  devFiles->setDeleteDelegate(cmdLine);
  auto derivedItem = std::make_shared<CleanupEntry>("WeatherApp", "");
  derivedItem->addPath(derivedProject);
  derivedItem->setSize(CleanupEntry::Size::value(2'000));
  devFiles->entry(Location::derivedData)->addItem(derivedItem);
  auto archiveItem = std::make_shared<CleanupEntry>("WeatherApp", "2.1 (45)");
  archiveItem->addPath(archive);
  archiveItem->setSize(CleanupEntry::Size::value(5'000));
  archiveItem->select();  // a selection left over from before must not survive
  devFiles->entry(Location::archives)->addItem(archiveItem);

  cmdLine->clean(*devFiles, {Location::derivedData});

  EXPECT_FALSE(std::filesystem::exists(derivedProject));
  EXPECT_TRUE(std::filesystem::exists(archive / "Info.plist"));
  std::string printed = out.str();
  EXPECT_EQ(printed.rfind("Removing files:\n", 0), 0u) << printed;
  auto progress = printed.find("\nDerived Data: WeatherApp");
  ASSERT_NE(progress, std::string::npos) << printed;
  EXPECT_EQ(printed.substr(printed.find('\n', progress + 1) - 4, 5), " 1/1\n") << printed;
  EXPECT_EQ(printed.find("Archives:"), std::string::npos) << printed;
  EXPECT_NE(printed.find("\n\nTotal bytes cleaned: 2 KB\n"), std::string::npos) << printed;
  EXPECT_EQ(Preferences::shared().totalBytesCleaned(), 1'002'000);
}

}  // namespace
}  // namespace tw
