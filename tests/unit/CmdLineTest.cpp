#include <gtest/gtest.h>

#include <sstream>
#include <variant>

#include "cli/CmdLine.h"
#include "platform/Error.h"
#include "platform/Host.h"
#include "support/TempDir.h"

namespace tw {
namespace {

using Location = DevFiles::Location;
using Locations = std::vector<Location>;
using Piece = std::string;

TEST(CmdLineLocations, NamesAreSplitAtCommasTrimmedAndKeptInOrderAndUnknownPiecesAreRejected) {
  const Locations all(DevFiles::allLocations().begin(), DevFiles::allLocations().end());
  for (const char* value : {"all", "ALL", " all ", "\u00A0aLL\u3000", "\u2003all\u2028"})
    EXPECT_EQ(CmdLine::parseLocations(value), all) << value;
  auto expanded = CmdLine::parseLocations("archives,all");  // "all" inside a list as well
  ASSERT_EQ(expanded.size(), all.size() + 1);
  EXPECT_EQ(expanded.front(), Location::archives);
  // Each value with the locations it names, or the trimmed piece it is rejected for.
  const std::vector<std::pair<std::string, std::variant<Locations, Piece>>> cases = {
      {"derived-data, archives,,", Locations{Location::derivedData, Location::archives}},
      {" runtimes \n,\u00A0cloud-caches", Locations{Location::simulatorRuntimes, Location::cloudStorage}},
      {"archives,device-support,archives", Locations{Location::archives, Location::deviceSupport, Location::archives}},
      {",,,", Locations{}},
      {"Derived-Data", Piece("Derived-Data")},
      {"derived-data, bogus \n", Piece("bogus")},
      {"derived-data, ,archives", Piece("")},
      {"ALL,archives", Piece("ALL")},
      {"all archives", Piece("all archives")},
      {"\xff\xfe", Piece("\xff\xfe")}};
  for (const auto& [value, expected] : cases) {
    try {
      const Locations parsed = CmdLine::parseLocations(value);
      EXPECT_EQ(parsed, std::get<Locations>(expected)) << value;
    } catch (const CmdLine::Error& error) {
      EXPECT_EQ(error.kind(), CmdLine::Error::Kind::wrongOption);
      EXPECT_EQ(error.option(), std::get<Piece>(expected)) << value;
    }
  }
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
            "[1 KB] E\u0301clair (old)\n\n"
            "[1 byte] apple \n\n"
            "[Zero KB] Zeta \n\n"
            "[3.5 MB] Derived Data \n"
            "\t[3 MB] WeatherApp (/Users/sam/WeatherApp.xcodeproj)\n"
            "\t\t[3 MB] Build \n"
            "\t\t[Zero KB] Index \n"
            "\t[500 KB] Alpha \n\n"
            "[Zero KB] Archives \n\n");
}

// A developer folder in a temporary home, installed as the current host, and a driver for it.
struct CmdLineDriver : ::testing::Test {
  void SetUp() override {
    std::filesystem::create_directories(developer / "Xcode");
    std::filesystem::create_directories(developer / "CoreSimulator");
    Host host = Host::current();
    host.home = home.path();
    host.configDirectory = home / "config";
    host.temporaryDirectory = home.path();
    scoped.emplace(host);
    devFiles = DevFiles::create(developer, std::nullopt, std::nullopt).value_or(nullptr);
    ASSERT_TRUE(devFiles);
  }
  test::TempDir home;
  std::filesystem::path developer = home / "Library/Developer";
  std::optional<ScopedHost> scoped;
  std::ostringstream out;
  std::shared_ptr<CmdLine> cmdLine = std::make_shared<CmdLine>(out);
  std::shared_ptr<DevFiles> devFiles;
};

TEST_F(CmdLineDriver, DeletionProgressAndFailureLines) {
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

TEST_F(CmdLineDriver, CleaningDeletesOnlyTheNamedLocationsWhateverWasSelectedBefore) {
  auto derivedProject = developer / "Xcode/DerivedData/WeatherApp-abc";
  auto archive = developer / "Xcode/Archives/2024-03-04/WeatherApp.xcarchive";
  test::writeFileOfSize(derivedProject / "Build/app", 2'000);
  test::writeFileOfSize(archive / "Info.plist", 5'000);
  devFiles->setDeleteDelegate(cmdLine);
  for (const auto& [location, path] :
       {std::pair{Location::derivedData, derivedProject}, {Location::archives, archive}}) {
    auto item = std::make_shared<CleanupEntry>("WeatherApp", "");
    item->addPath(path);
    item->setSize(CleanupEntry::Size::value(2'000));
    item->select();  // a selection left over from before must not survive
    devFiles->entry(location)->addItem(item);
  }
  cmdLine->clean(*devFiles, {Location::derivedData});
  EXPECT_FALSE(std::filesystem::exists(derivedProject));
  EXPECT_TRUE(std::filesystem::exists(archive / "Info.plist"));
  EXPECT_NE(out.str().find("\n\nTotal bytes cleaned: 2 KB\n"), std::string::npos) << out.str();
}

}  // namespace
}  // namespace tw
