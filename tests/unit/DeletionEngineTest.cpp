#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "clean/DeletionEngine.h"
#include "model/XcodeEntries.h"
#include "platform/Error.h"
#include "scan/DevFiles.h"
#include "support/DeveloperFolderFixture.h"
#include "support/TempDir.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using Location = DevFiles::Location;
using test::CapturedLog;
using test::DeveloperFolderFixture;
using test::TempDir;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

struct Unit {
  std::string locationLabel;
  std::string description;
  std::optional<fs::path> url;
  size_t index;
  size_t count;
  bool operator==(const Unit&) const = default;
};

struct RecordingDeleteDelegate : DevFilesDeleteDelegate {
  std::vector<std::string> events;
  std::vector<Unit> units;
  std::vector<std::pair<std::string, std::optional<fs::path>>> failures;

  void deleteStarted(DevFiles&) override { events.push_back("started"); }
  void deletingItem(DevFiles&, const std::string& locationLabel, const std::string& itemDescription,
                    const std::optional<fs::path>& url, size_t index, size_t count) override {
    events.push_back("deleting");
    units.push_back({locationLabel, itemDescription, url, index, count});
  }
  void deleteFailed(DevFiles&, const std::exception& error, const std::string&, const std::string&,
                    const std::optional<fs::path>& url) override {
    events.push_back("failed");
    failures.emplace_back(error.what(), url);
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

// Every file below `root` by relative name, with a SHA-256 digest of its contents (links by target).
std::map<std::string, std::string> contentHashes(const fs::path& root) {
  std::map<std::string, std::string> hashes;
  for (auto it = fs::recursive_directory_iterator(root); it != fs::recursive_directory_iterator(); ++it) {
    const std::string name = fs::relative(it->path(), root).string();
    if (it->is_symlink()) {
      hashes[name] = "link:" + fs::read_symlink(it->path()).string();
    } else if (it->is_directory()) {
      hashes[name] = "folder";
    } else {
      const std::string contents = test::readFile(it->path());
      unsigned char digest[EVP_MAX_MD_SIZE];
      unsigned int length = 0;
      EVP_Digest(contents.data(), contents.size(), digest, &length, EVP_sha256(), nullptr);
      hashes[name] = std::string(reinterpret_cast<const char*>(digest), length);
    }
  }
  return hashes;
}

class DeletionEngine : public ::testing::Test {
 protected:
  DeletionEngine() : fixture(temp / "Library/Developer") {
    devFiles = DevFiles::create(fixture.developerFolder(), std::nullopt, std::nullopt);
    devFiles->setDeleteDelegate(delegate);
  }

  void add(Location location, const CleanupEntryPtr& entry) {
    devFiles->entry(location)->addItem(entry);
    devFiles->entry(location)->updateSelection();
  }

  fs::path file(const std::string& name, size_t bytes = 100) {
    const fs::path path = temp / "items" / name;
    test::writeFileOfSize(path, bytes);
    return path;
  }

  TempDir temp;
  DeveloperFolderFixture fixture;
  std::shared_ptr<DevFiles> devFiles;
  std::shared_ptr<RecordingDeleteDelegate> delegate = std::make_shared<RecordingDeleteDelegate>();
};

TEST_F(DeletionEngine, WalksLocationsInOrderAndEachDepthFirstFromTheLastChild) {
  const fs::path a = file("a"), b = file("b"), c = file("c"), d = file("d");
  add(Location::archives, group("Project", {leaf("A", {a}), leaf("B", {b})}));
  add(Location::deviceSupport, leaf("C", {c}));
  add(Location::projectBuilds, group("Outer", {group("Inner", {leaf("D", {d})})}));

  std::vector<std::string> order;
  for (const auto& item : makeDeletionList(*devFiles)) order.push_back(item.locationLabel + "/" + item.entry->label());
  EXPECT_THAT(order, ElementsAre("Device Support/C", "Archives/B", "Archives/A", "Project Build Folders/D"));
}

TEST_F(DeletionEngine, ThreePathsAreThreeUnitsInPathOrder) {
  const fs::path one = file("one"), two = file("two"), three = file("three");
  add(Location::derivedData, leaf("Project", {one, two, three}));

  devFiles->deleteSelected(false);
  EXPECT_THAT(delegate->events, ElementsAre("started", "deleting", "deleting", "deleting", "finished"));
  EXPECT_THAT(delegate->units,
              ElementsAre(Unit{"Derived Data", "Project x", one, 1, 3}, Unit{"Derived Data", "Project x", two, 2, 3},
                          Unit{"Derived Data", "Project x", three, 3, 3}));
  EXPECT_FALSE(fs::exists(one) || fs::exists(two) || fs::exists(three));
  // The engine leaves the tree as it was.
  EXPECT_EQ(devFiles->entry(Location::derivedData)->items().front()->paths().size(), 3u);
}

TEST_F(DeletionEngine, UntickedNodesGiveNoUnitsButTheirTickedChildrenDo) {
  const fs::path kept = file("kept"), gone = file("gone"), inner = file("inner");
  auto unticked = group("Unticked", {leaf("Inner", {inner})}, /*selected=*/false);
  auto parent = group("Parent", {leaf("Kept", {kept}, /*selected=*/false), leaf("Gone", {gone}), unticked});
  add(Location::documentationCache, parent);
  // A selected group whose children are selected: units for the children only.
  auto allOn = group("All", {leaf("One", {file("one")}), leaf("Two", {file("two")})});
  add(Location::userDataCache, allOn);
  // A location that is off is skipped whole, even with ticked items inside.
  add(Location::logs, leaf("Log", {file("log")}));
  devFiles->entry(Location::logs)->setSelection(CleanupEntry::Selection::off);

  std::vector<std::string> units;
  for (const auto& item : makeDeletionList(*devFiles)) units.push_back(item.entry->label());
  EXPECT_THAT(units, ElementsAre("Inner", "Gone", "Two", "One"));
}

TEST_F(DeletionEngine, EntriesThatDeleteWithoutAPathGetOneUnitWithoutURL) {
  auto runtime = std::make_shared<CommandDeletedEntry>();
  add(Location::simulatorRuntimes, runtime);
  add(Location::cloudStorage, std::make_shared<ReferenceOnlyEntry>());
  CapturedLog log;

  devFiles->deleteSelected(false);
  ASSERT_EQ(delegate->units.size(), 1u);
  EXPECT_EQ(delegate->units[0], (Unit{"Platform Runtimes", "iOS 17.4 21E213", std::nullopt, 1, 1}));
  EXPECT_THAT(runtime->deletedWith, ElementsAre(std::nullopt));
  const auto lines = log.linesStartingWith("Deleting ");
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_THAT(lines[0].text, ::testing::EndsWith("Deleting : Platform Runtimes: iOS 17.4 21E213 (-)"));
  EXPECT_EQ(lines[0].level, Logger::Level::info);
}

TEST_F(DeletionEngine, DryRunTouchesNothingAndSaysSo) {
  fixture.populate();
  const fs::path link = fixture.xcode() / "DerivedData" / "link-to-home";
  fs::create_directory_symlink(temp.path(), link);
  devFiles->scan({Location::derivedData, Location::archives, Location::oldDocumentation});
  devFiles->entry(Location::derivedData)->select();
  devFiles->entry(Location::oldDocumentation)->select();
  devFiles->entry(Location::derivedData)->updateSelection();
  const auto before = contentHashes(temp.path());
  CapturedLog log;

  devFiles->deleteSelected(true);
  EXPECT_EQ(contentHashes(temp.path()), before);
  const auto lines = log.linesStartingWith("Deleting ");
  // Two projects and three folders under "Other" (one of them the link); the old documentation.
  ASSERT_EQ(lines.size(), 6u);
  for (const auto& line : lines) EXPECT_THAT(line.text, HasSubstr("Deleting [DRY RUN!]: "));
  EXPECT_THAT(lines.back().text, HasSubstr("Deleting [DRY RUN!]: Old Documentation Downloads:  ("));
  EXPECT_THAT(delegate->failures, IsEmpty());
  EXPECT_EQ(delegate->units.size(), 6u);
}

TEST_F(DeletionEngine, AFailedUnitIsReportedAndTheRunGoesOn) {
  const fs::path first = file("first"), vanished = file("vanished"), last = file("last");
  add(Location::derivedData, leaf("Project", {first, vanished, last}));
  fs::remove(vanished);

  devFiles->deleteSelected(false);
  EXPECT_THAT(delegate->events, ElementsAre("started", "deleting", "deleting", "failed", "deleting", "finished"));
  ASSERT_EQ(delegate->failures.size(), 1u);
  EXPECT_EQ(delegate->failures[0].second, vanished);
  EXPECT_FALSE(delegate->failures[0].first.empty());
  EXPECT_FALSE(fs::exists(first));
  EXPECT_FALSE(fs::exists(last));
}

TEST_F(DeletionEngine, RemovesALinkNeverItsTarget) {
  const fs::path target = file("precious/data.bin", 4096);
  const fs::path link = temp / "items" / "link";
  fs::create_directory_symlink(target.parent_path(), link);
  add(Location::projectBuilds, leaf("Link", {link}));

  devFiles->deleteSelected(false);
  EXPECT_THAT(delegate->failures, IsEmpty());
  EXPECT_FALSE(fs::exists(fs::symlink_status(link)));
  EXPECT_TRUE(fs::exists(target));
}

TEST_F(DeletionEngine, WithEverythingUntickedOnlyStartAndFinishAreReported) {
  add(Location::derivedData, leaf("Project", {file("p")}, /*selected=*/false));
  devFiles->deleteSelected(false);
  EXPECT_THAT(delegate->events, ElementsAre("started", "finished"));

  // Without a delegate the engine still deletes.
  devFiles->setDeleteDelegate(nullptr);
  const fs::path quiet = file("quiet");
  add(Location::archives, leaf("Quiet", {quiet}));
  devFiles->deleteSelected(false);
  EXPECT_FALSE(fs::exists(quiet));
}

TEST_F(DeletionEngine, SelectedSizeCountsTickedEntriesThatHoldPaths) {
  auto on = leaf("On", {file("on")});
  on->setSize(CleanupEntry::Size::value(1000));
  auto off = leaf("Off", {file("off")}, /*selected=*/false);
  off->setSize(CleanupEntry::Size::value(50));
  auto unknown = leaf("Unknown", {file("unknown")});
  auto holder = group("Holder", {on, off, unknown});
  holder->setSize(CleanupEntry::Size::value(999999));  // a group counts only through its children
  add(Location::archives, holder);
  auto other = leaf("Other", {file("other")});
  other->setSize(CleanupEntry::Size::value(24));
  add(Location::projectBuilds, other);

  EXPECT_EQ(devFiles->selectedSize(), 1024);
  devFiles->entry(Location::projectBuilds)->deselect();
  EXPECT_EQ(devFiles->selectedSize(), 1000);
}

}  // namespace
}  // namespace tw
