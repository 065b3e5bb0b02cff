#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "clean/DeletionEngine.h"
#include "model/XcodeEntries.h"
#include "scan/DevFiles.h"
#include "support/DeveloperFolderFixture.h"
#include "support/TempDir.h"
#include "support/Unprivileged.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using Location = DevFiles::Location;
using test::linesStartingWith;
using test::LogCapture;
using test::TempDir;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct Unit {
  std::string locationLabel, description;
  std::optional<fs::path> url;
  size_t index, count;
  bool operator==(const Unit&) const = default;
};

struct RecordingDeleteDelegate : DevFilesDeleteDelegate {
  std::vector<std::string> events;
  std::vector<Unit> units;
  std::vector<std::optional<fs::path>> failures;

  void deleteStarted(DevFiles&) override { events.push_back("started"); }
  void deletingItem(DevFiles&, const std::string& locationLabel, const std::string& itemDescription,
                    const std::optional<fs::path>& url, size_t index, size_t count) override {
    events.push_back("deleting");
    units.push_back({locationLabel, itemDescription, url, index, count});
  }
  void deleteFailed(DevFiles&, const std::exception& error, const std::string&, const std::string&,
                    const std::optional<fs::path>& url) override {
    events.push_back(std::string("failed: ") + (*error.what() ? "with text" : "silent"));
    failures.push_back(url);
  }
  void deleteFinished(DevFiles&) override { events.push_back("finished"); }
};

// Deletes without a path, like a simulator runtime removed through simctl.
struct CommandDeletedEntry : CleanupEntry {
  CommandDeletedEntry() : CleanupEntry("iOS 17.4", "21E213", std::nullopt, std::nullopt, false, true) {}
  bool hasPaths() const override { return true; }
  bool isEmpty() const override { return false; }
  void deleteItem(const std::optional<fs::path>& path) override { deletedWith.push_back(path); }
  std::vector<std::optional<fs::path>> deletedWith;
};

// Listed for reference only, like a synced cloud folder.
struct ReferenceOnlyEntry : CleanupEntry {
  ReferenceOnlyEntry() : CleanupEntry("iCloud Drive", "", std::nullopt, std::nullopt, false, true) {}
  bool hasPaths() const override { return false; }
  void select() override {}
};

CleanupEntryPtr leaf(const std::string& label, std::vector<fs::path> paths, bool selected = true) {
  auto entry = std::make_shared<CleanupEntry>(label, "x", std::nullopt, std::nullopt, true, selected);
  entry->addPaths(paths);
  return entry;
}

CleanupEntryPtr group(const std::string& label, std::vector<CleanupEntryPtr> items, bool selected = true) {
  auto entry = std::make_shared<CleanupEntry>(label, "", std::nullopt, std::nullopt, true, selected);
  entry->addItems(items);
  return entry;
}

class DeletionEngine : public ::testing::Test {
 protected:
  DeletionEngine() { devFiles->setDeleteDelegate(delegate); }

  void add(Location location, const CleanupEntryPtr& entry) {
    devFiles->entry(location)->addItem(entry);
    devFiles->entry(location)->updateSelection();
  }
  fs::path file(const std::string& name, size_t bytes = 100) {
    test::writeFileOfSize(temp / "items" / name, bytes);
    return temp / "items" / name;
  }
  std::vector<std::string> workList() {
    std::vector<std::string> order;
    for (const auto& item : makeDeletionList(*devFiles))
      order.push_back(item.locationLabel + "/" + item.entry->label());
    return order;
  }

  TempDir temp;
  test::DeveloperFolderFixture fixture{temp / "Library/Developer"};
  std::shared_ptr<DevFiles> devFiles =
      DevFiles::create(fixture.developerFolder(), std::nullopt, std::nullopt).value_or(nullptr);
  std::shared_ptr<RecordingDeleteDelegate> delegate = std::make_shared<RecordingDeleteDelegate>();
};

TEST_F(DeletionEngine, WalksLocationsInOrderEachDepthFirstFromTheLastChildSkippingUntickedNodes) {
  add(Location::archives, group("Project", {leaf("A", {file("a")}), leaf("B", {file("b")})}));
  add(Location::deviceSupport, leaf("C", {file("c")}));
  add(Location::projectBuilds, group("Outer", {group("Inner", {leaf("D", {file("d")})})}));
  // Unticked nodes give no units, but their ticked children do.
  auto unticked = group("Unticked", {leaf("Inner", {file("inner")})}, /*selected=*/false);
  add(Location::documentationCache,
      group("Parent", {leaf("Kept", {file("kept")}, /*selected=*/false), leaf("Gone", {file("gone")}), unticked}));

  EXPECT_THAT(workList(), ElementsAre("Device Support/C", "Archives/B", "Archives/A", "Documentation Cache/Inner",
                                      "Documentation Cache/Gone", "Project Build Folders/D"));

  // A location that is off is skipped whole; a ticked item inside it means a caller forgot to
  // recompute the ancestors, which debug builds refuse rather than lose the item silently.
  add(Location::logs, leaf("Log", {file("log")}));
  devFiles->entry(Location::logs)->setSelection(CleanupEntry::Selection::off);
  EXPECT_DEBUG_DEATH(workList(), "ticked item under an unticked location");
}

TEST_F(DeletionEngine, EachPathIsAUnitAndAFailedUnitIsReportedWhileTheRunGoesOn) {
  const fs::path one = file("one"), vanished = file("vanished"), three = file("three");
  add(Location::derivedData, leaf("Project", {one, vanished, three}));
  fs::remove(vanished);

  deleteSelected(*devFiles, false);
  EXPECT_THAT(delegate->events,
              ElementsAre("started", "deleting", "deleting", "failed: with text", "deleting", "finished"));
  EXPECT_THAT(delegate->units, ElementsAre(Unit{"Derived Data", "Project x", one, 1, 3},
                                           Unit{"Derived Data", "Project x", vanished, 2, 3},
                                           Unit{"Derived Data", "Project x", three, 3, 3}));
  EXPECT_THAT(delegate->failures, ElementsAre(vanished));
  EXPECT_FALSE(fs::exists(one) || fs::exists(three));
  // The engine leaves the tree as it was.
  EXPECT_EQ(devFiles->entry(Location::derivedData)->items().front()->paths().size(), 3u);
}

TEST_F(DeletionEngine, EntriesThatDeleteWithoutAPathGetOneUnitWithoutURL) {
  auto runtime = std::make_shared<CommandDeletedEntry>();
  add(Location::simulatorRuntimes, runtime);
  add(Location::cloudStorage, std::make_shared<ReferenceOnlyEntry>());
  LogCapture log;

  deleteSelected(*devFiles, false);
  EXPECT_THAT(delegate->units, ElementsAre(Unit{"Platform Runtimes", "iOS 17.4 21E213", std::nullopt, 1, 1}));
  EXPECT_THAT(runtime->deletedWith, ElementsAre(std::nullopt));
  EXPECT_THAT(linesStartingWith(log, "Deleting "),
              ElementsAre("\u2755 Deleting : Platform Runtimes: iOS 17.4 21E213 (-)"));
}

TEST_F(DeletionEngine, DryRunLeavesTheTreeByteIdenticalAndSaysSo) {
  fixture.populate();
  fs::create_directory_symlink(temp.path(), fixture.xcode() / "DerivedData" / "link-to-home");
  devFiles->scan({Location::derivedData, Location::archives, Location::oldDocumentation});
  devFiles->entry(Location::derivedData)->select();
  devFiles->entry(Location::oldDocumentation)->select();
  devFiles->entry(Location::derivedData)->updateSelection();
  const auto before = test::snapshot(temp.path());
  LogCapture log;

  deleteSelected(*devFiles, true);
  EXPECT_EQ(test::snapshot(temp.path()), before);
  const auto lines = linesStartingWith(log, "Deleting ");
  // Two projects and three folders under "Other" (one of them the link); the old documentation.
  ASSERT_EQ(lines.size(), 6u);
  for (const auto& line : lines) EXPECT_THAT(line, ::testing::HasSubstr("Deleting [DRY RUN!]: "));
  EXPECT_THAT(lines.back(), ::testing::HasSubstr("Deleting [DRY RUN!]: Old Documentation Downloads:  ("));
  EXPECT_THAT(delegate->failures, IsEmpty());
  EXPECT_EQ(delegate->units.size(), 6u);
}

TEST_F(DeletionEngine, SelectedSizeAddsUpTheLocations) {
  auto on = leaf("On", {file("on")});
  on->setSize(CleanupEntry::Size::value(1000));
  add(Location::archives, group("Holder", {on}));
  auto other = leaf("Other", {file("other")});
  other->setSize(CleanupEntry::Size::value(24));
  add(Location::projectBuilds, other);
  EXPECT_EQ(devFiles->selectedSize(), 1024);
  devFiles->entry(Location::projectBuilds)->deselect();
  EXPECT_EQ(devFiles->selectedSize(), 1000);
}

}  // namespace
}  // namespace tw
