// System items: snapshots through a stand-in tmutil, the Trash, updates, backups, logs, synced cloud folders.
#include <gtest/gtest.h>

#include "fs/DirectorySize.h"
#include "fs/Shell.h"
#include "model/SystemEntries.h"
#include "scan/Scanners.h"
#include "scan/SystemItems.h"
#include "support/CatalogueFixture.h"
#include "support/DeveloperFolderFixture.h"
#include "support/StandInTools.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using namespace test;
using Labels = std::vector<std::string>;

class SystemScan : public ::testing::Test {
 protected:
  CatalogueFixture fixture;
  fs::path calls = fixture.root() / "tool-calls";

  void standInTmutil(const std::string& output, int status) {
    writeStandInTool(fixture.root(), "/usr/bin/tmutil",
                     "printf '%s|' \"$@\" >> " + shellQuoted(calls.string()) + "\nprintf '%s' " + shellQuoted(output) +
                         "\nexit " + std::to_string(status));
  }
};

TEST_F(SystemScan, SnapshotsListedByTmutilFormOneGroupOfSizelessItemsThatTmutilDeletes) {
  EXPECT_FALSE(SystemItems::timeMachineSnapshots()) << "no tmutil";
  standInTmutil("com.apple.TimeMachine.2024-03-04-094100.local\n", 1);
  EXPECT_FALSE(SystemItems::timeMachineSnapshots()) << "tmutil failed";
  standInTmutil("Snapshots for disk /:\n\n  \n", 0);
  EXPECT_FALSE(SystemItems::timeMachineSnapshots()) << "no snapshots";

  // Only well-formed stamps of snapshot lines count: "/" as a stamp would delete every snapshot.
  fs::remove(calls);
  LogCapture log;
  standInTmutil(
      "Snapshots for disk /:\n  com.apple.TimeMachine.2024-03-04-094100.local\n\n"
      "\tcom.apple.TimeMachine.2024-03-05-101500.local \t\ncom.apple.os.update-ABCDEF\n"
      "no com.apple.TimeMachine.2024-01-01-000000.local\ncom.apple.TimeMachine./.local\n"
      "com.apple.TimeMachine.--help.local\ncom.apple.TimeMachine..local\ncom.apple.TimeMachine.2024-03-04-094100\n"
      "com.apple.TimeMachine.2024-03-04-094100.local.local\ncom.apple.TimeMachine.2024-3-04-0941000.local\n"
      "com.apple.TimeMachine.2024-03-04-09410a.local\ncom.apple.TimeMachine.2024-03-06-080000.local",
      0);
  CleanupEntryPtr group = SystemItems::timeMachineSnapshots();
  ASSERT_TRUE(group);
  EXPECT_EQ(readFile(calls), "listlocalsnapshots|/|");
  ASSERT_EQ(labelsOf(group->items()),
            (Labels{"Snapshot 2024-03-04-094100", "Snapshot 2024-03-05-101500", "Snapshot 2024-03-06-080000"}));
  EXPECT_EQ(log.lines().size(), 7u) << "each rejected name is logged";
  EXPECT_EQ(group->calculateSize(), CleanupEntry::Size::value(0));
  EXPECT_TRUE(group->items()[0]->size().isUnknown() && group->items()[0]->paths().empty());
  // Ticked, it stays ticked when the tree recomputes selections: it is not empty.
  group->items()[0]->select();
  EXPECT_EQ(group->updateSelection(), CleanupEntry::Selection::mixed);

  fs::remove(calls);
  EXPECT_NO_THROW(group->items()[1]->deleteItem(std::nullopt));
  EXPECT_EQ(readFile(calls), "deletelocalsnapshots|2024-03-05-101500|");
  standInTmutil("Failed to delete local snapshot", 1);
  EXPECT_THROW(group->items()[0]->deleteItem(std::nullopt), Shell::CommandError);
}

TEST_F(SystemScan, BackupsNamedFromTheirInfoTrashUpdatesAndAllSourcesInTheirFixedOrderWithLargeUserLogs) {
  EXPECT_TRUE(scanSystemItems().empty()) << "nothing on a fresh machine";
  const fs::path backups = fixture.at("~/Library/Application Support/MobileSync/Backup");
  const size_t sizes[] = {4 * kMiB, 3 * kMiB, 2 * kMiB, 2 * kMiB, 100 * kKiB, 5 * kMiB / 2};
  for (char folder = 'A'; folder <= 'F'; ++folder)
    writeFileOfSize(backups / ("00008101-" + std::string(1, folder)) / "Manifest.db", sizes[folder - 'A']);
  writePlist(backups / "00008101-A/Info.plist",
             textDictionary({{"Display Name", "Ann's iPhone"}, {"Device Name", "iPhone"}}), PlistFormat::xml);
  writePlist(backups / "00008101-B/Info.plist", textDictionary({{"Device Name", "Bob's iPad"}}), PlistFormat::binary);
  writeFile(backups / "00008101-C/Info.plist", "<?xml version=\"1.0\"?><plist><dict><key>Disp");
  // D has no Info.plist at all; F's empty display name is a name.
  writePlist(backups / "00008101-F/Info.plist", textDictionary({{"Display Name", ""}, {"Device Name", "iPhone"}}),
             PlistFormat::binary);
  // A backup moved elsewhere and linked back is a backup, but a link measures nothing.
  writePlist(fixture.at("~/Moved/00008101-G/Info.plist"), textDictionary({{"Display Name", "Moved iPad"}}),
             PlistFormat::xml);
  fs::create_directory_symlink(fixture.at("~/Moved/00008101-G"), backups / "00008101-G");
  writeFile(backups / "00008101-H", "a file, not a backup");

  EXPECT_EQ(labelsOf(SystemItems::deviceBackupEntries()),
            (Labels{"Ann's iPhone", "Bob's iPad", "00008101-C", "00008101-D", "00008101-E", "", "Moved iPad"}));
  CleanupEntryPtr group = SystemItems::deviceBackups();
  ASSERT_TRUE(group);
  ASSERT_EQ(labelsOf(group->items()), (Labels{"Ann's iPhone", "Bob's iPad", "", "00008101-C", "00008101-D"}));
  const CleanupEntry& ann = *group->items()[0];
  EXPECT_EQ(ann.tooltipText(),
            "⚠️ Backup at " + (backups / "00008101-A").string() + ". Deleting removes it permanently.");
  EXPECT_EQ(ann.paths(), std::vector<fs::path>{backups / "00008101-A"});
  EXPECT_EQ(ann.selection(), CleanupEntry::Selection::off) << "a backup is never preselected for deletion";
  // The Trash from 1 MiB, with its visible top-level items.
  fixture.file("~/.Trash/movie.mov", 900 * kKiB);
  EXPECT_FALSE(SystemItems::trash()) << "below 1 MiB";
  for (const char* file : {"~/.Trash/movie.mov", "~/.Trash/Old Project/build/a.o"}) fixture.file(file, kMiB);
  fixture.file("~/.Trash/.DS_Store", 8 * kKiB);
  CleanupEntryPtr trash = SystemItems::trash();
  ASSERT_TRUE(trash);
  EXPECT_EQ(trash->paths(),
            (std::vector<fs::path>{fixture.at("~/.Trash/Old Project"), fixture.at("~/.Trash/movie.mov")}));
  EXPECT_GE(trash->size().bytesOrZero(), static_cast<int64_t>(2 * kMiB));
  // Updates and installers, which need administrator rights to delete.
  writeFile(fixture.at("/Library/Updates/index.plist"), "<plist/>");
  EXPECT_FALSE(SystemItems::updatesAndInstallers()) << "the index alone is no update";
  fixture.file("/Library/Updates/041-12345/Payload.pkg", 3 * kMiB);
  fixture.file("/Library/Updates/041-00001/tiny.pkg", 10 * kKiB);
  for (const char* other : {"Install macOS Sonoma.app/Contents/SharedSupport/a.dmg", "Install Xcode.app/Contents/x",
                            "Install macOS Notes/x", "Install macOS Beta.app.zip"})
    fixture.file(std::string("/Applications/") + other, 5 * kMiB);
  CleanupEntryPtr updates = SystemItems::updatesAndInstallers();
  ASSERT_TRUE(updates);
  ASSERT_EQ(labelsOf(updates->items()), (Labels{"Install macOS Sonoma.app", "041-12345"}));
  for (const auto& item : updates->items()) EXPECT_TRUE(dynamic_cast<const PrivilegedFileEntry*>(item.get()));
  EXPECT_EQ(updates->items()[1]->extraInfo(), fixture.at("/Library/Updates/041-12345").string());
  // All sources, the large user logs among them, the backups above too.
  standInTmutil("com.apple.TimeMachine.2024-03-04-094100.local\n", 0);
  fixture.file("~/Library/Logs/CoreSimulator/sim.log", 3 * kMiB);
  fixture.file("~/Library/Logs/small.log", 10 * kKiB);
  for (const char* file : {"~/Library/Logs/big.log", "~/Library/Logs/.hidden.log"}) fixture.file(file, 2 * kMiB);
  auto items = scanSystemItems();
  ASSERT_EQ(labelsOf(items), (Labels{"Time Machine Local Snapshots", "Trash", "macOS Updates & Installers",
                                     "iOS Device Backups", "User Logs"}));
  EXPECT_EQ(labelsOf(items[4]->items()), (Labels{"CoreSimulator", "big.log"}));
  EXPECT_EQ(items[4]->items()[1]->tooltipText(),
            "Logs at " + fixture.at("~/Library/Logs/big.log").string() + ". Recreated by the app that writes them.");
}

TEST_F(SystemScan, CloudFoldersAreNamedForTheProviderAndAccountAndFoundOnceLargestFirst) {
  Labels shown;  // prefixes are case-sensitive
  for (const char* folder : {"GoogleDrive-ann@example.com", "OneDrive - Contoso Ltd", "Dropbox (Personal)", "Box-Box",
                             "pCloud Drive", "Sync-Work", "ProtonDrive-ann@proton.me", "Creative Cloud Files",
                             "com~apple~CloudDocs", "MEGA ((x))", "SomethingElse-x", "dropbox"})
    shown.push_back(SystemItems::cloudDisplayName(folder));
  EXPECT_EQ(shown, (Labels{"Google Drive – ann@example.com", "OneDrive – Contoso Ltd", "Dropbox – Personal", "Box",
                           "pCloud – Drive", "Sync.com – Work", "Proton Drive – ann@proton.me", "Creative Cloud",
                           "iCloud Drive", "MEGA – x", "SomethingElse-x", "dropbox"}));
  fs::create_directories(fixture.at("~/Library/CloudStorage"));
  EXPECT_TRUE(scanCloudFolders().empty()) << "nothing synced, nothing listed";
  fixture.file("~/Library/CloudStorage/Dropbox/Photos/a.jpg", 3 * kMiB);
  fixture.file("~/Library/CloudStorage/GoogleDrive-ann@example.com/My Drive/b.pdf", 5 * kMiB);
  fs::create_directories(fixture.at("~/Library/Mobile Documents/com~apple~CloudDocs"));  // empty: still listed
  fs::create_directory_symlink(fixture.at("~/Library/CloudStorage/Dropbox"), fixture.at("~/Dropbox"));
  writeFile(fixture.at("~/OneDrive notes.txt"), "a file, not a synced folder");
  fs::create_symlink(fixture.at("~/gone"), fixture.at("~/Google Drive"));
  // Reached only through a link: shown at its real place.
  TempDir elsewhere;
  writeFileOfSize(elsewhere / "Dropbox (Team)/a.bin", kMiB);
  fs::create_directory_symlink(elsewhere / "Dropbox (Team)", fixture.at("~/Dropbox (Team)"));

  auto entries = scanCloudFolders();
  ASSERT_EQ(labelsOf(entries), (Labels{"Google Drive – ann@example.com", "Dropbox", "Dropbox – Team", "iCloud Drive"}));
  auto* dropbox = dynamic_cast<CloudSyncFolderEntry*>(entries[1].get());
  ASSERT_TRUE(dropbox);
  EXPECT_EQ(dropbox->folderUrl(), fs::canonical(fixture.at("~/Library/CloudStorage/Dropbox")));
  EXPECT_TRUE(dropbox->tooltipText().starts_with("~/Library/CloudStorage/Dropbox\n\nSynced cloud folder – shown"));
  EXPECT_GE(dropbox->size().bytesOrZero(), static_cast<int64_t>(3 * kMiB));
  EXPECT_EQ(entries[2]->displayPaths(), std::vector<fs::path>{elsewhere / "Dropbox (Team)"});
  EXPECT_TRUE(entries[2]->tooltipText().starts_with((elsewhere / "Dropbox (Team)").string() + "\n\n"));
  EXPECT_EQ(entries[3]->size(), CleanupEntry::Size::value(0)) << "no size threshold for synced folders";
  EXPECT_TRUE(entries[3]->tooltipText().starts_with("~/Library/Mobile Documents/com~apple~CloudDocs\n\nSynced cloud"));
  // Shown with its size, but never ticked, deleted or counted in its location.
  EXPECT_FALSE(dropbox->hasPaths());
  auto location = std::make_shared<CleanupEntry>("Cloud Storage", "");
  location->addItems({entries[1]});
  location->updateSize();
  location->select();
  EXPECT_EQ(dropbox->selection(), CleanupEntry::Selection::off);
  EXPECT_EQ(location->size().bytesOrZero() + location->selectedSize(), 0);
  dropbox->deleteItem(dropbox->folderUrl());
  EXPECT_TRUE(fs::exists(fixture.at("~/Library/CloudStorage/Dropbox/Photos/a.jpg")));
  CloudSyncFolderEntry missing("Box", fixture.at("~/nowhere"), "Box");
  HardLinkTracker tracker;
  missing.calculateSize(tracker);
  EXPECT_TRUE(missing.size().isUnknown()) << "an unreadable synced folder keeps an unknown size";
}

}  // namespace
}  // namespace tw
