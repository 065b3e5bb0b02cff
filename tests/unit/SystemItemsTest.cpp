// System items: snapshots through a stand-in tmutil, the Trash, updates, backups, logs, synced cloud folders.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "fs/DirectorySize.h"
#include "fs/Shell.h"
#include "model/SystemEntries.h"
#include "platform/AdministratorRunner.h"
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
const std::string kNote =
    "Synced cloud folder – shown for reference only, Tidewell never deletes anything here. Files kept online-only "
    "take no space on this Mac; to free space, make folders online-only in the cloud client itself.";

class SystemScan : public ::testing::Test {
 protected:
  CatalogueFixture fixture;
  fs::path tmutilCalls = fixture.root() / "tmutil-calls";

  void standInTmutil(const std::string& output, int status) {
    writeStandInTool(fixture.root(), "/usr/bin/tmutil",
                     "printf '%s|' \"$@\" >> " + shellQuoted(tmutilCalls.string()) + "\nprintf '%s' " +
                         shellQuoted(output) + "\nexit " + std::to_string(status));
  }
};

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

TEST(TimeMachineSnapshotEntry, IsASizelessItemThatAlwaysHasSomethingToDelete) {
  auto snapshot = std::make_shared<TimeMachineSnapshotFileEntry>("2024-03-04-094100", false);
  EXPECT_EQ(snapshot->label(), "Snapshot 2024-03-04-094100");
  EXPECT_TRUE(snapshot->paths().empty());
  EXPECT_FALSE(snapshot->isEmpty());
  auto group = std::make_shared<CleanupEntry>("Time Machine Local Snapshots", "");
  group->addItem(snapshot);
  EXPECT_EQ(group->calculateSize(), CleanupEntry::Size::value(0));
  EXPECT_TRUE(snapshot->size().isUnknown()) << "snapshots are never measured";
  // Ticked, it stays ticked when the tree recomputes selections: it is not empty.
  snapshot->select();
  EXPECT_EQ(group->updateSelection(), CleanupEntry::Selection::on);
}

TEST_F(SystemScan, SnapshotDeletionRunsTmutilWithTheDateAndRaisesWithItsMessageWhenMissingOrFailing) {
  TimeMachineSnapshotFileEntry snapshot{"2024-03-04-094100", true};
  {
    test::LogCapture log;
    EXPECT_THROW(snapshot.deleteItem(std::nullopt), Shell::CommandError);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_TRUE(log.lines()[0].starts_with("❌ Shell: Cannot run /usr/bin/tmutil")) << log.lines()[0];
  }
  standInTmutil("", 0);
  EXPECT_NO_THROW(snapshot.deleteItem(std::nullopt));
  EXPECT_EQ(test::readFile(tmutilCalls), "deletelocalsnapshots|2024-03-04-094100|");
  writeStandInTool(fixture.root(), "/usr/bin/tmutil", "echo 'Failed to delete local snapshot' >&2\nexit 1");
  try {
    snapshot.deleteItem(std::nullopt);
    ADD_FAILURE() << "a failing tmutil must raise";
  } catch (const Shell::CommandError& error) {
    EXPECT_EQ(error.command(), "tmutil deletelocalsnapshots 2024-03-04-094100");
    EXPECT_EQ(std::string(error.what()),
              "Command failed: tmutil deletelocalsnapshots 2024-03-04-094100\nFailed to delete local snapshot\n");
  }
}

TEST_F(SystemScan, SnapshotsListedByTmutilFormOneGroup) {
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

TEST_F(SystemScan, TrashIsShownFromOneMebibyteWithItsVisibleTopLevelItems) {
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

TEST_F(SystemScan, UpdatesAndInstallersNeedAdministratorRightsToDelete) {
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

TEST_F(SystemScan, DeviceBackupsAreNamedFromTheirInfo) {
  const fs::path backups = fixture.at("~/Library/Application Support/MobileSync/Backup");
  test::writeFileOfSize(backups / "00008101-A/Manifest.db", 4 * kMiB);
  test::writePlist(backups / "00008101-A/Info.plist",
                   test::textDictionary({{"Display Name", "Ann's iPhone"}, {"Device Name", "iPhone"}}),
                   test::PlistFormat::xml);
  test::writeFileOfSize(backups / "00008101-B/Manifest.db", 3 * kMiB);
  test::writePlist(backups / "00008101-B/Info.plist", test::textDictionary({{"Device Name", "Bob's iPad"}}),
                   test::PlistFormat::binary);
  test::writeFileOfSize(backups / "00008101-C/Manifest.db", 2 * kMiB);
  test::writeFile(backups / "00008101-C/Info.plist", "<?xml version=\"1.0\"?><plist><dict><key>Disp");
  test::writeFileOfSize(backups / "00008101-D/Manifest.db", 2 * kMiB);  // no Info.plist at all
  test::writeFileOfSize(backups / "00008101-E/Manifest.db", 100 * kKiB);
  test::writeFileOfSize(backups / "00008101-F/Manifest.db", 5 * kMiB / 2);  // an empty display name is a name
  test::writePlist(backups / "00008101-F/Info.plist",
                   test::textDictionary({{"Display Name", ""}, {"Device Name", "iPhone"}}), test::PlistFormat::binary);
  // A backup moved elsewhere and linked back is a backup, but a link measures nothing.
  test::writePlist(fixture.at("~/Moved/00008101-G/Info.plist"), test::textDictionary({{"Display Name", "Moved iPad"}}),
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

TEST_F(SystemScan, AllSourcesInTheirFixedOrderWithLargeUserLogs) {
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

class PrivilegedDeletion : public SystemScan {
 protected:
  void SetUp() override {
    test::writeFileOfSize(item / "Payload" / "data.bin", kMiB);
    test::writeFile(updates / "index.plist", "<plist/>");
    entry.addPath(item);
  }

  ScopedAdministratorRunner polkit{AdministratorRunner::polkit};
  fs::path updates = fixture.at("/Library/Updates");
  // Quotes, blanks and a would-be command substitution: the administrator's shell must see one word.
  fs::path item = updates / "041-91 Ann's $(touch pwned) \"update\"";
  fs::path pkexecCalls = fixture.root() / "pkexec-calls";
  PrivilegedFileEntry entry{"041-91", "", "update"};
};

TEST_F(PrivilegedDeletion, PlainRemovalNeedsNoAdministrator) {
  writeStandInTool(fixture.root(), "/usr/bin/pkexec", "echo called >> " + shellQuoted(pkexecCalls.string()));
  EXPECT_NO_THROW(entry.deleteItem(item));
  EXPECT_FALSE(fs::exists(fs::symlink_status(item)));
  EXPECT_FALSE(fs::exists(pkexecCalls));
}

TEST_F(PrivilegedDeletion, FallsBackToAdministratorRightsWhenPlainRemovalFails) {
  test::RemovalBlocker blocker(updates);
  if (!blocker.active()) GTEST_SKIP() << "cannot make removal fail on this file system";
  // The stand-in plays the administrator: it lifts the block, then runs the command it was given.
  writeStandInTool(
      fixture.root(), "/usr/bin/pkexec",
      "printf '%s\\n' \"$@\" > " + shellQuoted(pkexecCalls.string()) + "\n" + blocker.liftCommand() + "\nexec \"$@\"");
  EXPECT_NO_THROW(entry.deleteItem(item));
  EXPECT_FALSE(fs::exists(fs::symlink_status(item)));
  EXPECT_TRUE(fs::exists(updates / "index.plist")) << "only the item itself goes";
  EXPECT_FALSE(fs::exists(updates / "pwned"));
  EXPECT_EQ(test::readFile(pkexecCalls), "/bin/sh\n-c\n" + privilegedRemovalCommand(item) + "\n");
}

TEST_F(PrivilegedDeletion, ReportsTheAdministratorFailureNotThePlainOne) {
  test::RemovalBlocker blocker(updates);
  if (!blocker.active()) GTEST_SKIP() << "cannot make removal fail on this file system";
  test::writeFailingPkexec(fixture.root(), "Error executing command as another user: Request dismissed", 126);
  try {
    entry.deleteItem(item);
    ADD_FAILURE() << "a dismissed prompt must raise";
  } catch (const Shell::CommandError& error) {
    EXPECT_EQ(error.command(), privilegedRemovalCommand(item));
    EXPECT_NE(error.output().find("Request dismissed"), std::string::npos);
  }
  blocker.lift();
  EXPECT_TRUE(fs::exists(item)) << "what plain removal could not take stays";
}

TEST(CloudSyncFolder, ShowsItsSizeButIsNeverCountedTickedOrDeleted) {
  test::TempDir temp;
  const fs::path folder = temp / "CloudStorage/Dropbox";
  test::writeFileOfSize(folder / "Photos/a.jpg", 3 * kMiB);
  auto cloud = std::make_shared<CloudSyncFolderEntry>("Dropbox", folder, "  ~/Dropbox\n\nnote \n");
  EXPECT_EQ(cloud->tooltipText(), "~/Dropbox\n\nnote");
  EXPECT_FALSE(cloud->hasPaths());
  EXPECT_EQ(cloud->displayPaths(), std::vector<fs::path>{folder});

  auto cache = std::make_shared<CleanupEntry>("Dropbox cache", "");
  test::writeFileOfSize(temp / "cache/c.bin", kMiB);
  cache->addPath(temp / "cache");
  auto location = std::make_shared<CleanupEntry>("Cloud Storage", "");
  location->addItems({cache, cloud});
  const auto total = location->updateSize();
  EXPECT_EQ(total, cache->size()) << "the synced folder adds nothing to its location";
  EXPECT_GE(cloud->size().bytesOrZero(), static_cast<int64_t>(3 * kMiB));
  HardLinkTracker tracker;
  EXPECT_EQ(cloud->calculateSize(tracker), std::nullopt);

  location->select();
  EXPECT_EQ(cloud->selection(), CleanupEntry::Selection::off) << "cannot be ticked";
  EXPECT_EQ(location->selectedSize(), cache->size().bytesOrZero());
  cloud->deleteItem(folder);
  cloud->deleteItem(std::nullopt);
  EXPECT_TRUE(fs::exists(folder / "Photos/a.jpg"));

  auto missing = std::make_shared<CloudSyncFolderEntry>("Box", temp / "nowhere", "Box");
  EXPECT_EQ(missing->calculateSize(tracker), std::nullopt);
  EXPECT_TRUE(missing->size().isUnknown());
}

TEST(CloudDisplayName, NamesTheProviderAndTheAccount) {
  const std::pair<const char*, const char*> names[] = {
      {"GoogleDrive-ann@example.com", "Google Drive – ann@example.com"},
      {"OneDrive - Contoso Ltd", "OneDrive – Contoso Ltd"},
      {"Dropbox (Personal)", "Dropbox – Personal"},
      {"Box-Box", "Box"},
      {"pCloud Drive", "pCloud – Drive"},
      {"Sync-Work", "Sync.com – Work"},
      {"ProtonDrive-ann@proton.me", "Proton Drive – ann@proton.me"},
      {"Creative Cloud Files", "Creative Cloud"},
      {"com~apple~CloudDocs", "iCloud Drive"},
      {"MEGA ((x))", "MEGA – x"},
      {"SomethingElse-x", "SomethingElse-x"},
      {"dropbox", "dropbox"}};  // prefixes are case-sensitive
  for (const auto& [folder, name] : names) EXPECT_EQ(SystemItems::cloudDisplayName(folder), name) << folder;
}

TEST_F(SystemScan, CloudFoldersFindsEachSyncedFolderOnceLargestFirst) {
  fs::create_directories(fixture.at("~/Library/CloudStorage"));
  EXPECT_TRUE(scanCloudFolders().empty()) << "nothing synced, nothing listed";
  test::writeFileOfSize(fixture.at("~/Library/CloudStorage/Dropbox/Photos/a.jpg"), 3 * kMiB);
  test::writeFileOfSize(fixture.at("~/Library/CloudStorage/GoogleDrive-ann@example.com/My Drive/b.pdf"), 5 * kMiB);
  fs::create_directories(fixture.at("~/Library/Mobile Documents/com~apple~CloudDocs"));  // empty: still listed
  fs::create_directory_symlink(fixture.at("~/Library/CloudStorage/Dropbox"), fixture.at("~/Dropbox"));
  test::writeFile(fixture.at("~/OneDrive notes.txt"), "a file, not a synced folder");
  fs::create_symlink(fixture.at("~/gone"), fixture.at("~/Google Drive"));
  // Reached only through a link: shown at its real place.
  test::TempDir elsewhere;
  test::writeFileOfSize(elsewhere / "Dropbox (Team)/a.bin", kMiB);
  fs::create_directory_symlink(elsewhere / "Dropbox (Team)", fixture.at("~/Dropbox (Team)"));

  auto entries = scanCloudFolders();
  ASSERT_EQ(test::labelsOf(entries),
            (std::vector<std::string>{"Google Drive – ann@example.com", "Dropbox", "Dropbox – Team", "iCloud Drive"}));
  auto* dropbox = dynamic_cast<CloudSyncFolderEntry*>(entries[1].get());
  ASSERT_TRUE(dropbox);
  EXPECT_EQ(dropbox->folderUrl(), fs::canonical(fixture.at("~/Library/CloudStorage/Dropbox")));
  EXPECT_EQ(dropbox->tooltipText(), "~/Library/CloudStorage/Dropbox\n\n" + kNote);
  EXPECT_GE(dropbox->size().bytesOrZero(), static_cast<int64_t>(3 * kMiB));
  EXPECT_EQ(entries[2]->displayPaths(), std::vector<fs::path>{elsewhere / "Dropbox (Team)"});
  EXPECT_TRUE(entries[2]->tooltipText().starts_with((elsewhere / "Dropbox (Team)").string() + "\n\n"));
  EXPECT_EQ(entries[3]->size(), CleanupEntry::Size::value(0)) << "no size threshold for synced folders";
  EXPECT_EQ(entries[3]->tooltipText(), "~/Library/Mobile Documents/com~apple~CloudDocs\n\n" + kNote);
}

}  // namespace
}  // namespace tw
