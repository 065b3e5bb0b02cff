// System items on a fixture home and root: snapshots via a stand-in tmutil, Trash, updates, backups, logs.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "model/SystemEntries.h"
#include "scan/Scanners.h"
#include "scan/SystemItems.h"
#include "support/CatalogueFixture.h"
#include "support/DeveloperFolderFixture.h"
#include "support/FixtureHome.h"
#include "support/LogCapture.h"
#include "support/StandInTools.h"
#include "support/TempDir.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using test::CatalogueFixture;
using test::labelsOf;
using test::shellQuoted;
using test::writeStandInTool;

constexpr size_t kMiB = 1'048'576;
constexpr size_t kKiB = 1024;

void writeBackupInfo(const fs::path& file, const std::vector<std::pair<std::string, std::string>>& strings,
                     test::PlistFormat format) {
  plist_t dictionary = plist_new_dict();
  for (const auto& [key, value] : strings)
    plist_dict_set_item(dictionary, key.c_str(), plist_new_string(value.c_str()));
  test::writePlist(file, dictionary, format);
}

// The stamp goes back to "tmutil deletelocalsnapshots": "/" there deletes every snapshot.
TEST(LocalSnapshotListing, TakesTheDatesOfSnapshotLinesOnlyAndRejectsOtherStamps) {
  EXPECT_EQ(
      SystemItems::parseLocalSnapshots("Snapshots for disk /:\n  com.apple.TimeMachine.2024-03-04-094100.local\n"
                                       "\n\tcom.apple.TimeMachine.2024-03-05-101500.local \t\n"
                                       "com.apple.os.update-ABCDEF\nno com.apple.TimeMachine.2024-01-01-000000.local\n"
                                       "com.apple.TimeMachine.2024-03-06-080000.local"),
      (std::vector<std::string>{"2024-03-04-094100", "2024-03-05-101500", "2024-03-06-080000"}));
  EXPECT_TRUE(SystemItems::parseLocalSnapshots("\n\n  \n").empty());
  test::LogCapture log;
  EXPECT_EQ(SystemItems::parseLocalSnapshots(
                "com.apple.TimeMachine./.local\ncom.apple.TimeMachine.--help.local\ncom.apple.TimeMachine..local\n"
                "com.apple.TimeMachine.2024-03-04-094100\ncom.apple.TimeMachine.2024-03-04-094100.local.local\n"
                "com.apple.TimeMachine.2024-3-04-0941000.local\ncom.apple.TimeMachine.2024-03-04-09410a.local\n"
                "com.apple.TimeMachine.2024-03-04-094100.local\n"),
            (std::vector<std::string>{"2024-03-04-094100"}));
  EXPECT_EQ(log.lines().size(), 7u);
  EXPECT_EQ(log.lines().front(),
            "\u26A0\uFE0F SystemItems: Ignoring a snapshot name of unknown form: com.apple.TimeMachine./.local");
}

class SystemItemsScan : public ::testing::Test {
 protected:
  CatalogueFixture fixture;
  fs::path tmutilCalls = fixture.root() / "tmutil-calls";

  void standInTmutil(const std::string& output, int status) {
    writeStandInTool(fixture.root(), "/usr/bin/tmutil",
                     "printf '%s|' \"$@\" >> " + shellQuoted(tmutilCalls.string()) + "\nprintf '%s' " +
                         shellQuoted(output) + "\nexit " + std::to_string(status));
  }
};

TEST_F(SystemItemsScan, SnapshotsListedByTmutilFormOneGroup) {
  {
    test::LogCapture log;
    EXPECT_FALSE(SystemItems::timeMachineSnapshots()) << "no tmutil";
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_TRUE(log.lines()[0].starts_with("❌ Shell: Cannot run /usr/bin/tmutil: ")) << log.lines()[0];
  }
  standInTmutil("com.apple.TimeMachine.2024-03-04-094100.local\n", 1);
  EXPECT_FALSE(SystemItems::timeMachineSnapshots()) << "tmutil failed";
  standInTmutil("Snapshots for disk /:\n", 0);
  EXPECT_FALSE(SystemItems::timeMachineSnapshots()) << "no snapshots";

  fs::remove(tmutilCalls);
  standInTmutil(
      "Snapshots for disk /:\n  com.apple.TimeMachine.2024-03-04-094100.local\n"
      "  com.apple.TimeMachine.2024-03-05-101500.local\n",
      0);
  CleanupEntryPtr group = SystemItems::timeMachineSnapshots();
  ASSERT_TRUE(group);
  EXPECT_EQ(test::readFile(tmutilCalls), "listlocalsnapshots|/|");
  ASSERT_EQ(labelsOf(group->items()),
            (std::vector<std::string>{"Snapshot 2024-03-04-094100", "Snapshot 2024-03-05-101500"}));
  for (const auto& item : group->items())
    EXPECT_TRUE(dynamic_cast<TimeMachineSnapshotFileEntry*>(item.get()) && item->size().isUnknown());
}

TEST_F(SystemItemsScan, TrashIsShownFromOneMebibyteWithItsVisibleTopLevelItems) {
  EXPECT_FALSE(SystemItems::trash()) << "no Trash at all";
  test::writeFileOfSize(fixture.at("~/.Trash/movie.mov"), 900 * kKiB);
  EXPECT_FALSE(SystemItems::trash()) << "below 1 MiB";

  test::writeFileOfSize(fixture.at("~/.Trash/movie.mov"), kMiB);
  test::writeFileOfSize(fixture.at("~/.Trash/Old Project/build/a.o"), kMiB);
  test::writeFileOfSize(fixture.at("~/.Trash/.DS_Store"), 8 * kKiB);
  CleanupEntryPtr trash = SystemItems::trash();
  ASSERT_TRUE(trash);
  EXPECT_EQ(trash->tooltipText(),
            "⚠️ Contents of your Trash. Same as \"Empty Trash\" in Finder – files are gone for good.");
  EXPECT_EQ(trash->paths(),
            (std::vector<fs::path>{fixture.at("~/.Trash/Old Project"), fixture.at("~/.Trash/movie.mov")}));
  EXPECT_GE(trash->size().bytesOrZero(), static_cast<int64_t>(2 * kMiB));
}

TEST_F(SystemItemsScan, UpdatesAndInstallersNeedAdministratorRightsToDelete) {
  test::writeFile(fixture.at("/Library/Updates/index.plist"), "<plist/>");
  EXPECT_FALSE(SystemItems::updatesAndInstallers()) << "the index alone is no update";

  test::writeFileOfSize(fixture.at("/Library/Updates/041-12345/Payload.pkg"), 3 * kMiB);
  test::writeFileOfSize(fixture.at("/Library/Updates/041-00001/tiny.pkg"), 10 * kKiB);
  test::writeFileOfSize(fixture.at("/Applications/Install macOS Sonoma.app/Contents/SharedSupport/a.dmg"), 5 * kMiB);
  test::writeFileOfSize(fixture.at("/Applications/Install Xcode.app/Contents/x"), 5 * kMiB);
  test::writeFileOfSize(fixture.at("/Applications/Install macOS Notes/x"), 5 * kMiB);
  test::writeFileOfSize(fixture.at("/Applications/Install macOS Beta.app.zip"), 5 * kMiB);

  CleanupEntryPtr group = SystemItems::updatesAndInstallers();
  ASSERT_TRUE(group);
  ASSERT_EQ(labelsOf(group->items()), (std::vector<std::string>{"Install macOS Sonoma.app", "041-12345"}));
  for (const auto& item : group->items()) EXPECT_TRUE(dynamic_cast<const PrivilegedFileEntry*>(item.get()));
  EXPECT_EQ(group->items()[1]->extraInfo(), fixture.at("/Library/Updates/041-12345").string());
}

TEST_F(SystemItemsScan, DeviceBackupsAreNamedFromTheirInfo) {
  const fs::path backups = fixture.at("~/Library/Application Support/MobileSync/Backup");
  test::writeFileOfSize(backups / "00008101-A/Manifest.db", 4 * kMiB);
  writeBackupInfo(backups / "00008101-A/Info.plist", {{"Display Name", "Ann's iPhone"}, {"Device Name", "iPhone"}},
                  test::PlistFormat::xml);
  test::writeFileOfSize(backups / "00008101-B/Manifest.db", 3 * kMiB);
  writeBackupInfo(backups / "00008101-B/Info.plist", {{"Device Name", "Bob's iPad"}}, test::PlistFormat::binary);
  test::writeFileOfSize(backups / "00008101-C/Manifest.db", 2 * kMiB);
  test::writeFile(backups / "00008101-C/Info.plist", "<?xml version=\"1.0\"?><plist><dict><key>Disp");
  test::writeFileOfSize(backups / "00008101-D/Manifest.db", 2 * kMiB);  // no Info.plist at all
  test::writeFileOfSize(backups / "00008101-E/Manifest.db", 100 * kKiB);
  test::writeFileOfSize(backups / "00008101-F/Manifest.db", 5 * kMiB / 2);  // an empty display name is a name
  writeBackupInfo(backups / "00008101-F/Info.plist", {{"Display Name", ""}, {"Device Name", "iPhone"}},
                  test::PlistFormat::binary);
  // A backup moved elsewhere and linked back is a backup, but a link measures nothing.
  writeBackupInfo(fixture.at("~/Moved/00008101-G/Info.plist"), {{"Display Name", "Moved iPad"}},
                  test::PlistFormat::xml);
  fs::create_directory_symlink(fixture.at("~/Moved/00008101-G"), backups / "00008101-G");
  test::writeFile(backups / "00008101-H", "a file, not a backup");

  EXPECT_EQ(labelsOf(SystemItems::deviceBackupEntries()),
            (std::vector<std::string>{"Ann's iPhone", "Bob's iPad", "00008101-C", "00008101-D", "00008101-E", "",
                                      "Moved iPad"}));
  CleanupEntryPtr group = SystemItems::deviceBackups();
  ASSERT_TRUE(group);
  ASSERT_EQ(labelsOf(group->items()),
            (std::vector<std::string>{"Ann's iPhone", "Bob's iPad", "", "00008101-C", "00008101-D"}));
  const CleanupEntry& ann = *group->items()[0];
  EXPECT_EQ(ann.tooltipText(),
            "⚠️ Backup at " + (backups / "00008101-A").string() + ". Deleting removes it permanently.");
  EXPECT_EQ(ann.paths(), std::vector<fs::path>{backups / "00008101-A"});
}

TEST_F(SystemItemsScan, AllSourcesInTheirFixedOrderWithLargeUserLogs) {
  EXPECT_TRUE(scanSystemItems().empty()) << "nothing on a fresh machine";
  standInTmutil("com.apple.TimeMachine.2024-03-04-094100.local\n", 0);
  test::writeFileOfSize(fixture.at("~/Library/Logs/CoreSimulator/sim.log"), 3 * kMiB);
  test::writeFileOfSize(fixture.at("~/Library/Logs/big.log"), 2 * kMiB);
  test::writeFileOfSize(fixture.at("~/Library/Logs/small.log"), 10 * kKiB);
  test::writeFileOfSize(fixture.at("~/Library/Logs/.hidden.log"), 2 * kMiB);
  test::writeFileOfSize(fixture.at("~/Library/Application Support/MobileSync/Backup/X/Manifest.db"), 2 * kMiB);
  test::writeFileOfSize(fixture.at("/Library/Updates/041-1/a.pkg"), 3 * kMiB);
  test::writeFileOfSize(fixture.at("~/.Trash/a"), 4 * kMiB);
  auto items = scanSystemItems();
  ASSERT_EQ(labelsOf(items),
            (std::vector<std::string>{"Time Machine Local Snapshots", "Trash", "macOS Updates & Installers",
                                      "iOS Device Backups", "User Logs"}));
  EXPECT_EQ(labelsOf(items[4]->items()), (std::vector<std::string>{"CoreSimulator", "big.log"}));
  EXPECT_EQ(items[4]->items()[1]->tooltipText(),
            "Logs at " + fixture.at("~/Library/Logs/big.log").string() + ". Recreated by the app that writes them.");
}

}  // namespace
}  // namespace tw
