// The system items on a fixture home and system root: Time Machine snapshots through a
// stand-in tmutil, the Trash, OS updates and installers, device backups and user logs.
#include <gtest/gtest.h>
#include <plist/plist.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "model/SystemEntries.h"
#include "platform/Text.h"
#include "scan/Scanners.h"
#include "scan/SystemItems.h"
#include "support/CatalogueFixture.h"
#include "support/StandInTools.h"
#include "support/TempDir.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using test::CatalogueFixture;
using test::shellQuoted;
using test::writeStandInTool;

constexpr size_t kMiB = 1'048'576;
constexpr size_t kKiB = 1024;

std::vector<std::string> labelsOf(const std::vector<CleanupEntryPtr>& entries) {
  std::vector<std::string> labels;
  for (const auto& entry : entries) labels.push_back(entry->label());
  return labels;
}

void writeBackupInfo(const fs::path& file, const std::vector<std::pair<std::string, std::string>>& strings,
                     bool binary) {
  plist_t dictionary = plist_new_dict();
  for (const auto& [key, value] : strings)
    plist_dict_set_item(dictionary, key.c_str(), plist_new_string(value.c_str()));
  char* data = nullptr;
  uint32_t length = 0;
  if (binary) {
    plist_to_bin(dictionary, &data, &length);
  } else {
    plist_to_xml(dictionary, &data, &length);
  }
  test::writeFile(file, std::string_view(data, length));
  free(data);
  plist_free(dictionary);
}

TEST(LocalSnapshotListing, TakesTheDatesOfSnapshotLinesOnly) {
  const std::string listing =
      "Snapshots for disk /:\n"
      "  com.apple.TimeMachine.2024-03-04-094100.local\n"
      "\n"
      "\tcom.apple.TimeMachine.2024-03-05-101500.local \t\n"
      "com.apple.os.update-ABCDEF\n"
      "no com.apple.TimeMachine.2024-01-01-000000.local\n"
      "com.apple.TimeMachine.2024-03-06-080000.local";
  EXPECT_EQ(SystemItems::parseLocalSnapshots(listing),
            (std::vector<std::string>{"2024-03-04-094100", "2024-03-05-101500", "2024-03-06-080000"}));
  EXPECT_TRUE(SystemItems::parseLocalSnapshots("").empty());
  EXPECT_TRUE(SystemItems::parseLocalSnapshots("\n\n  \n").empty());
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
  standInTmutil(
      "Snapshots for disk /:\n  com.apple.TimeMachine.2024-03-04-094100.local\n"
      "  com.apple.TimeMachine.2024-03-05-101500.local\n",
      0);
  CleanupEntryPtr group = SystemItems::timeMachineSnapshots();
  ASSERT_TRUE(group);
  EXPECT_EQ(test::readFile(tmutilCalls), "listlocalsnapshots|/|");
  EXPECT_EQ(group->label(), "Time Machine Local Snapshots");
  EXPECT_EQ(group->tooltipText(),
            "Local APFS snapshots created by Time Machine. Deleted via \"tmutil deletelocalsnapshots\". macOS also "
            "purges them automatically when space is needed.");
  EXPECT_EQ(group->icon(), CleanupEntry::Icon::system("NSImageNameComputer"));
  EXPECT_TRUE(group->tooltip());
  EXPECT_EQ(group->selection(), CleanupEntry::Selection::off);
  ASSERT_EQ(labelsOf(group->items()),
            (std::vector<std::string>{"Snapshot 2024-03-04-094100", "Snapshot 2024-03-05-101500"}));
  for (const auto& item : group->items()) {
    ASSERT_TRUE(dynamic_cast<TimeMachineSnapshotFileEntry*>(item.get()));
    EXPECT_EQ(item->selection(), CleanupEntry::Selection::off);
    EXPECT_TRUE(item->size().isUnknown());
    EXPECT_EQ(item->parent(), group);
  }
}

TEST_F(SystemItemsScan, NoSnapshotGroupWhenTmutilFailsOrListsNothing) {
  standInTmutil("com.apple.TimeMachine.2024-03-04-094100.local\n", 1);
  EXPECT_FALSE(SystemItems::timeMachineSnapshots());
  standInTmutil("Snapshots for disk /:\n", 0);
  EXPECT_FALSE(SystemItems::timeMachineSnapshots());
}

TEST_F(SystemItemsScan, MissingTmutilMeansNoGroupAndOneLogLine) {
  test::LogCapture log;
  EXPECT_FALSE(SystemItems::timeMachineSnapshots());
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(log.lines()[0].starts_with("❌ Shell: Cannot run /usr/bin/tmutil: ")) << log.lines()[0];
}

TEST_F(SystemItemsScan, TrashBelowOneMebibyteIsNotShown) {
  test::writeFileOfSize(fixture.at("~/.Trash/notes.txt"), 900 * kKiB);
  EXPECT_FALSE(SystemItems::trash());
  fs::remove(fixture.at("~/.Trash/notes.txt"));
  EXPECT_FALSE(SystemItems::trash()) << "an empty Trash";
  fs::remove(fixture.at("~/.Trash"));
  EXPECT_FALSE(SystemItems::trash()) << "no Trash at all";
}

TEST_F(SystemItemsScan, TrashHoldsItsVisibleTopLevelItems) {
  test::writeFileOfSize(fixture.at("~/.Trash/movie.mov"), kMiB);
  test::writeFileOfSize(fixture.at("~/.Trash/Old Project/build/a.o"), kMiB);
  test::writeFileOfSize(fixture.at("~/.Trash/.DS_Store"), 8 * kKiB);
  CleanupEntryPtr trash = SystemItems::trash();
  ASSERT_TRUE(trash);
  EXPECT_EQ(trash->label(), "Trash");
  EXPECT_EQ(trash->tooltipText(),
            "⚠️ Contents of your Trash. Same as \"Empty Trash\" in Finder – files are gone for good.");
  EXPECT_EQ(trash->icon(), CleanupEntry::Icon::system("NSImageNameTrashFull"));
  EXPECT_TRUE(trash->tooltip());
  EXPECT_EQ(trash->selection(), CleanupEntry::Selection::off);
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
  EXPECT_EQ(group->label(), "macOS Updates & Installers");
  EXPECT_EQ(group->tooltipText(),
            "Downloaded but not yet installed macOS updates (/Library/Updates) and full installers in /Applications. "
            "Deleting may require admin rights.");
  EXPECT_EQ(group->icon(), CleanupEntry::Icon::system("NSImageNameComputer"));
  ASSERT_EQ(labelsOf(group->items()), (std::vector<std::string>{"Install macOS Sonoma.app", "041-12345"}));

  const CleanupEntry& installer = *group->items()[0];
  EXPECT_TRUE(dynamic_cast<const PrivilegedFileEntry*>(&installer));
  EXPECT_EQ(installer.extraInfo(), "");
  EXPECT_EQ(installer.tooltipText(),
            "Full macOS installer application. Can be re-downloaded from the App Store or with \"softwareupdate\".");
  EXPECT_EQ(installer.paths(), std::vector<fs::path>{fixture.at("/Applications/Install macOS Sonoma.app")});

  const CleanupEntry& update = *group->items()[1];
  EXPECT_TRUE(dynamic_cast<const PrivilegedFileEntry*>(&update));
  EXPECT_EQ(update.extraInfo(), fixture.at("/Library/Updates/041-12345").string());
  EXPECT_EQ(update.tooltipText(),
            "Downloaded macOS update package. Deleting requires admin rights; macOS will re-download the update if "
            "still needed.");
  EXPECT_EQ(update.selection(), CleanupEntry::Selection::off);
  EXPECT_TRUE(update.tooltip());
}

TEST_F(SystemItemsScan, DeviceBackupsAreNamedFromTheirInfo) {
  const fs::path backups = fixture.at("~/Library/Application Support/MobileSync/Backup");
  test::writeFileOfSize(backups / "00008101-A/Manifest.db", 4 * kMiB);
  writeBackupInfo(backups / "00008101-A/Info.plist", {{"Display Name", "Ann's iPhone"}, {"Device Name", "iPhone"}},
                  false);
  test::writeFileOfSize(backups / "00008101-B/Manifest.db", 3 * kMiB);
  writeBackupInfo(backups / "00008101-B/Info.plist", {{"Device Name", "Bob's iPad"}}, true);
  test::writeFileOfSize(backups / "00008101-C/Manifest.db", 2 * kMiB);
  test::writeFile(backups / "00008101-C/Info.plist", "<?xml version=\"1.0\"?><plist><dict><key>Disp");
  test::writeFileOfSize(backups / "00008101-D/Manifest.db", 2 * kMiB);  // no Info.plist at all
  test::writeFileOfSize(backups / "00008101-E/Manifest.db", 100 * kKiB);

  const auto modified = std::chrono::sys_days(std::chrono::year(2023) / 7 / 14) + std::chrono::hours(12);
  const timespec times[2] = {{0, UTIME_OMIT},
                             {static_cast<time_t>(modified.time_since_epoch() / std::chrono::seconds(1)), 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, (backups / "00008101-A").c_str(), times, 0), 0);

  CleanupEntryPtr group = SystemItems::deviceBackups();
  ASSERT_TRUE(group);
  EXPECT_EQ(group->label(), "iOS Device Backups");
  EXPECT_EQ(
      group->tooltipText(),
      "⚠️ Local backups of iPhones & iPads made by Finder/iTunes. Deleting removes the backup permanently – "
      "make sure you don't need it!");
  ASSERT_EQ(labelsOf(group->items()),
            (std::vector<std::string>{"Ann's iPhone", "Bob's iPad", "00008101-C", "00008101-D"}));
  const CleanupEntry& ann = *group->items()[0];
  EXPECT_EQ(ann.extraInfo(), formatMediumDate(std::chrono::time_point_cast<TimePoint::duration>(modified)));
  EXPECT_EQ(ann.tooltipText(),
            "⚠️ Backup at " + (backups / "00008101-A").string() + ". Deleting removes it permanently.");
  EXPECT_EQ(ann.paths(), std::vector<fs::path>{backups / "00008101-A"});
  EXPECT_EQ(ann.icon(), CleanupEntry::Icon::system("NSImageNameComputer"));
  EXPECT_EQ(ann.selection(), CleanupEntry::Selection::off);
}

TEST_F(SystemItemsScan, UserLogsListEveryLargeItem) {
  test::writeFileOfSize(fixture.at("~/Library/Logs/CoreSimulator/sim.log"), 3 * kMiB);
  test::writeFileOfSize(fixture.at("~/Library/Logs/big.log"), 2 * kMiB);
  test::writeFileOfSize(fixture.at("~/Library/Logs/small.log"), 10 * kKiB);
  test::writeFileOfSize(fixture.at("~/Library/Logs/.hidden.log"), 2 * kMiB);
  CleanupEntryPtr group = SystemItems::userLogs();
  ASSERT_TRUE(group);
  EXPECT_EQ(group->label(), "User Logs");
  EXPECT_EQ(group->icon(), CleanupEntry::Icon::system("NSImageNameFolder"));
  EXPECT_EQ(group->tooltipText(),
            "Application & diagnostic logs in ~/Library/Logs. Apps recreate them; delete if you don't need them for "
            "debugging.");
  ASSERT_EQ(labelsOf(group->items()), (std::vector<std::string>{"CoreSimulator", "big.log"}));
  EXPECT_EQ(group->items()[1]->tooltipText(),
            "Logs at " + fixture.at("~/Library/Logs/big.log").string() + ". Recreated by the app that writes them.");
  EXPECT_EQ(group->items()[1]->paths(), std::vector<fs::path>{fixture.at("~/Library/Logs/big.log")});
}

TEST_F(SystemItemsScan, AllSourcesInTheirFixedOrder) {
  EXPECT_TRUE(scanSystemItems().empty()) << "nothing on a fresh machine";
  standInTmutil("com.apple.TimeMachine.2024-03-04-094100.local\n", 0);
  test::writeFileOfSize(fixture.at("~/Library/Logs/big.log"), 9 * kMiB);
  test::writeFileOfSize(fixture.at("~/Library/Application Support/MobileSync/Backup/X/Manifest.db"), 2 * kMiB);
  test::writeFileOfSize(fixture.at("/Library/Updates/041-1/a.pkg"), 3 * kMiB);
  test::writeFileOfSize(fixture.at("~/.Trash/a"), 4 * kMiB);
  EXPECT_EQ(labelsOf(scanSystemItems()),
            (std::vector<std::string>{"Time Machine Local Snapshots", "Trash", "macOS Updates & Installers",
                                      "iOS Device Backups", "User Logs"}));
}

}  // namespace
}  // namespace tw
