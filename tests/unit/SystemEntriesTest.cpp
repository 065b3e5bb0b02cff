// The entry kinds of the system items and cloud folders: snapshot deletion through tmutil,
// removal that falls back to administrator rights, and cloud folders that are shown but never
// counted, ticked or deleted.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "fs/DirectorySize.h"
#include "fs/Shell.h"
#include "model/SystemEntries.h"
#include "platform/AdministratorRunner.h"
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

TEST(TimeMachineSnapshotEntry, IsASizelessItemThatAlwaysHasSomethingToDelete) {
  auto snapshot = std::make_shared<TimeMachineSnapshotFileEntry>("2024-03-04-094100", false);
  EXPECT_EQ(snapshot->label(), "Snapshot 2024-03-04-094100");
  EXPECT_EQ(snapshot->snapshotDate(), "2024-03-04-094100");
  EXPECT_EQ(snapshot->tooltipText(),
            "Local APFS snapshot made by Time Machine. macOS purges them automatically when disk space is needed; "
            "deleting frees the space immediately. Size of individual snapshots cannot be determined.");
  EXPECT_EQ(snapshot->icon(), CleanupEntry::Icon::system("NSImageNameComputer"));
  EXPECT_TRUE(snapshot->tooltip());
  EXPECT_EQ(snapshot->selection(), CleanupEntry::Selection::off);
  EXPECT_TRUE(snapshot->paths().empty());
  EXPECT_FALSE(snapshot->isEmpty());
  EXPECT_TRUE(snapshot->hasPaths());
  EXPECT_EQ(TimeMachineSnapshotFileEntry("x", true).selection(), CleanupEntry::Selection::on);

  auto group = std::make_shared<CleanupEntry>("Time Machine Local Snapshots", "");
  group->addItem(snapshot);
  EXPECT_EQ(group->calculateSize(), CleanupEntry::Size::value(0));
  EXPECT_TRUE(snapshot->size().isUnknown()) << "snapshots are never measured";
  // Ticked, it stays ticked when the tree recomputes selections: it is not empty.
  snapshot->select();
  EXPECT_EQ(group->updateSelection(), CleanupEntry::Selection::on);
}

class SnapshotDeletion : public ::testing::Test {
 protected:
  CatalogueFixture fixture;
  fs::path calls = fixture.root() / "tmutil-calls";
};

TEST_F(SnapshotDeletion, RunsTmutilWithTheDate) {
  writeStandInTool(fixture.root(), "/usr/bin/tmutil",
                   "printf '%s|' \"$@\" >> " + shellQuoted(calls.string()) + "\necho 'Deleted local snapshot'");
  TimeMachineSnapshotFileEntry snapshot("2024-03-04-094100", true);
  EXPECT_NO_THROW(snapshot.deleteItem(std::nullopt));
  EXPECT_EQ(test::readFile(calls), "deletelocalsnapshots|2024-03-04-094100|");
}

TEST_F(SnapshotDeletion, FailureCarriesTheCommandAndTheToolsMessage) {
  writeStandInTool(fixture.root(), "/usr/bin/tmutil", "echo 'Failed to delete local snapshot' >&2\nexit 1");
  TimeMachineSnapshotFileEntry snapshot("2024-03-04-094100", true);
  try {
    snapshot.deleteItem(std::nullopt);
    FAIL() << "a failing tmutil must raise";
  } catch (const Shell::CommandError& error) {
    EXPECT_EQ(error.command(), "tmutil deletelocalsnapshots 2024-03-04-094100");
    EXPECT_EQ(error.output(), "Failed to delete local snapshot\n");
    EXPECT_EQ(std::string(error.what()),
              "Command failed: tmutil deletelocalsnapshots 2024-03-04-094100\nFailed to delete local snapshot\n");
  }
}

TEST_F(SnapshotDeletion, MissingTmutilIsAFailureToo) {
  TimeMachineSnapshotFileEntry snapshot("2024-03-04-094100", true);
  test::LogCapture log;
  EXPECT_THROW(snapshot.deleteItem(std::nullopt), Shell::CommandError);
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(log.lines()[0].starts_with("❌ Shell: Cannot run /usr/bin/tmutil")) << log.lines()[0];
}

TEST(PrivilegedRemovalCommand, QuotesThePathForTheShell) {
  EXPECT_EQ(privilegedRemovalCommand("/Library/Updates/041-12345"), "/bin/rm -rf '/Library/Updates/041-12345'");
  EXPECT_EQ(privilegedRemovalCommand("/Applications/Install macOS Ann's.app"),
            "/bin/rm -rf '/Applications/Install macOS Ann'\\''s.app'");
  EXPECT_EQ(privilegedRemovalCommand("/x/'$(touch y)'"), "/bin/rm -rf '/x/'\\''$(touch y)'\\'''");
}

class PrivilegedDeletion : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(updates);
    test::writeFileOfSize(item / "Payload" / "data.bin", kMiB);
    test::writeFile(updates / "index.plist", "<plist/>");
  }

  CatalogueFixture fixture;
  ScopedAdministratorRunner polkit{AdministratorRunner::polkit};
  fs::path updates = fixture.at("/Library/Updates");
  // Quotes, blanks and a would-be command substitution: the administrator's shell must see one word.
  fs::path item = updates / "041-91 Ann's $(touch pwned) \"update\"";
  fs::path pkexecCalls = fixture.root() / "pkexec-calls";
};

TEST_F(PrivilegedDeletion, PlainRemovalNeedsNoAdministrator) {
  writeStandInTool(fixture.root(), "/usr/bin/pkexec",
                   "echo called >> " + shellQuoted(pkexecCalls.string()) + "\nexit 127");
  PrivilegedFileEntry entry("041-91", "", "update");
  entry.addPath(item);
  EXPECT_NO_THROW(entry.deleteItem(item));
  EXPECT_FALSE(fs::exists(fs::symlink_status(item)));
  EXPECT_FALSE(fs::exists(pkexecCalls));
  EXPECT_NO_THROW(entry.deleteItem(std::nullopt)) << "no path: nothing to do";
}

TEST_F(PrivilegedDeletion, FallsBackToAdministratorRightsWhenPlainRemovalFails) {
  test::RemovalBlocker blocker(updates);
  if (!blocker.active()) GTEST_SKIP() << "cannot make removal fail on this file system";
  // The stand-in plays the administrator: it lifts the block, then runs the command it was given.
  writeStandInTool(
      fixture.root(), "/usr/bin/pkexec",
      "printf '%s\\n' \"$@\" > " + shellQuoted(pkexecCalls.string()) + "\n" + blocker.liftCommand() + "\nexec \"$@\"");
  PrivilegedFileEntry entry("041-91", "", "update");
  entry.addPath(item);
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
  PrivilegedFileEntry entry("041-91", "", "update");
  entry.addPath(item);
  try {
    entry.deleteItem(item);
    FAIL() << "a dismissed prompt must raise";
  } catch (const Shell::CommandError& error) {
    EXPECT_EQ(error.command(), privilegedRemovalCommand(item));
    EXPECT_NE(error.output().find("Request dismissed"), std::string::npos);
  }
  blocker.lift();
  EXPECT_TRUE(fs::exists(item)) << "what plain removal could not take stays";
}

class CloudSyncFolder : public ::testing::Test {
 protected:
  test::TempDir temp;
  fs::path folder = temp / "CloudStorage/Dropbox";
  void SetUp() override { test::writeFileOfSize(folder / "Photos/a.jpg", 3 * kMiB); }
};

TEST_F(CloudSyncFolder, ShowsItsSizeButNeverCounts) {
  auto cloud = std::make_shared<CloudSyncFolderEntry>("Dropbox", folder, "  ~/Dropbox\n\nnote \n");
  EXPECT_EQ(cloud->tooltipText(), "~/Dropbox\n\nnote");
  EXPECT_EQ(cloud->icon(), CleanupEntry::Icon::system("NSImageNameNetwork"));
  EXPECT_TRUE(cloud->tooltip());
  EXPECT_EQ(cloud->extraInfo(), "");
  EXPECT_FALSE(cloud->isEmpty());
  EXPECT_FALSE(cloud->hasPaths());
  EXPECT_TRUE(cloud->paths().empty());
  EXPECT_EQ(cloud->displayPaths(), std::vector<fs::path>{folder});

  auto cache = std::make_shared<CleanupEntry>("Dropbox cache", "");
  test::writeFileOfSize(temp / "cache/c.bin", kMiB);
  cache->addPath(temp / "cache");
  auto location = std::make_shared<CleanupEntry>("Cloud Storage", "");
  location->addItems({cache, cloud});

  const auto total = location->updateSize();
  ASSERT_FALSE(cloud->size().isUnknown());
  EXPECT_GE(cloud->size().bytesOrZero(), static_cast<int64_t>(3 * kMiB));
  EXPECT_EQ(total, cache->size()) << "the synced folder adds nothing to its location";
  HardLinkTracker tracker;
  EXPECT_EQ(cloud->calculateSize(tracker), std::nullopt);
  EXPECT_EQ(cloud->sizeOrCalculate(tracker), std::nullopt);

  location->select();
  EXPECT_EQ(cloud->selection(), CleanupEntry::Selection::off) << "cannot be ticked";
  EXPECT_EQ(location->updateSelection(), CleanupEntry::Selection::mixed);
  EXPECT_EQ(location->selectedSize(), cache->size().bytesOrZero());

  cloud->deleteItem(folder);
  cloud->deleteItem(std::nullopt);
  EXPECT_TRUE(fs::exists(folder / "Photos/a.jpg"));
}

TEST_F(CloudSyncFolder, UnreadableFolderKeepsAnUnknownSize) {
  auto missing = std::make_shared<CloudSyncFolderEntry>("Box", temp / "nowhere", "Box");
  HardLinkTracker tracker;
  EXPECT_EQ(missing->calculateSize(tracker), std::nullopt);
  EXPECT_TRUE(missing->size().isUnknown());
}

}  // namespace
}  // namespace tw
