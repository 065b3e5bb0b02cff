// System-item entry kinds: tmutil snapshots, removal with administrator fallback, cloud folders.
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

TEST(SnapshotDeletion, RunsTmutilWithTheDateAndRaisesWithItsMessageWhenMissingOrFailing) {
  CatalogueFixture fixture;
  TimeMachineSnapshotFileEntry snapshot{"2024-03-04-094100", true};
  {
    test::LogCapture log;
    EXPECT_THROW(snapshot.deleteItem(std::nullopt), Shell::CommandError);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_TRUE(log.lines()[0].starts_with("❌ Shell: Cannot run /usr/bin/tmutil")) << log.lines()[0];
  }
  const fs::path calls = fixture.root() / "tmutil-calls";
  writeStandInTool(fixture.root(), "/usr/bin/tmutil", "printf '%s|' \"$@\" >> " + shellQuoted(calls.string()));
  EXPECT_NO_THROW(snapshot.deleteItem(std::nullopt));
  EXPECT_EQ(test::readFile(calls), "deletelocalsnapshots|2024-03-04-094100|");
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

class PrivilegedDeletion : public ::testing::Test {
 protected:
  void SetUp() override {
    test::writeFileOfSize(item / "Payload" / "data.bin", kMiB);
    test::writeFile(updates / "index.plist", "<plist/>");
    entry.addPath(item);
  }

  CatalogueFixture fixture;
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

}  // namespace
}  // namespace tw
