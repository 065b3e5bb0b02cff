// The cleanup tree (selection, sizes, deletion of one entry) and the engine that deletes what is ticked.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "clean/DeletionEngine.h"
#include "fs/DirectorySize.h"
#include "model/CleanupEntry.h"
#include "scan/DevFiles.h"
#include "support/DeveloperFolderFixture.h"
#include "support/TempDir.h"
#include "support/Unprivileged.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using Location = DevFiles::Location;
using Selection = CleanupEntry::Selection;
using enum CleanupEntry::Selection;
using Size = CleanupEntry::Size;
using namespace test;
using namespace ::testing;

// Items are added before paths, so an entry given both keeps only its items.
CleanupEntryPtr entry(std::string label, bool selected = false, const std::vector<CleanupEntryPtr>& items = {},
                      const std::vector<fs::path>& paths = {}) {
  auto node = std::make_shared<CleanupEntry>(std::move(label), "", std::nullopt, std::nullopt, true, selected);
  node->addItems(items);
  node->addPaths(paths);
  return node;
}

// A leaf with one (not necessarily existing) path, so that it is not empty.
CleanupEntryPtr leaf(const std::string& label, Selection selection, std::optional<int64_t> bytes = std::nullopt) {
  auto node = entry(label, false, {}, {"/nonexistent/" + label});
  node->setSelection(selection);
  if (bytes) node->setSize(Size::value(*bytes));
  return node;
}

TEST(CleanupEntry, TooltipsAreTrimmedAndEntriesHoldPathsOrItemsNeverBoth) {
  CleanupEntry given(" Label", "extra\n", std::string("\n\t tip \xC2\xA0\r\n"), std::nullopt, false, true);
  EXPECT_EQ(given.tooltipText(), "tip");  // trimmed, the no-break space included
  EXPECT_EQ(CleanupEntry(" Label", "extra\n", std::nullopt, std::nullopt, true, false).tooltipText(), "Label extra");

  auto withPaths = entry("paths", false, {}, {"/a"});
  withPaths->addItems({entry("c1"), entry("c2")});
  EXPECT_TRUE(withPaths->items().empty());
  EXPECT_TRUE(entry("group", false, {entry("child")}, {"/c", "/d"})->paths().empty());
  // The parent link is weak: it goes with the parent.
  auto orphan = entry("orphan");
  entry("short-lived", false, {orphan});
  EXPECT_FALSE(orphan->parent());
  EXPECT_NO_THROW(orphan->deleteItem(std::nullopt));  // nothing to delete without a path
}

TEST(CleanupEntry, RecomputesTriStateSelectionsFromTheChildrenWhereEmptyOnesDoNotCount) {
  const std::pair<std::vector<Selection>, Selection> cases[] = {
      {{on, on, mixed}, mixed}, {{on, on}, on}, {{off, off}, off}, {{on, off}, mixed}};
  for (const auto& [children, expected] : cases) {
    for (bool start : {true, false}) {
      auto group = entry("group", start);
      for (Selection selection : children)  // a mixed child: one selected and one unselected leaf
        group->addItem(selection != mixed ? leaf("child", selection)
                                          : entry("mixed", false, {leaf("a", on), leaf("b", off)}));
      EXPECT_EQ(group->updateSelection(), expected);
    }
  }
  EXPECT_EQ(entry("empty", true)->updateSelection(), off);
  for (bool selected : {true, false}) {  // a group whose only child is empty keeps its own selection
    auto child = entry("empty child", true);
    EXPECT_EQ(entry("group", selected, {child})->updateSelection(), selected ? on : off);
    EXPECT_EQ(child->selection(), off);
  }
  // Empty children count neither as selected nor as unselected.
  EXPECT_EQ(entry("group", false, {leaf("full", on), entry("empty")})->updateSelection(), on);
}

TEST(CleanupEntry, SelectsTheWholeSubtreeAndCountsTheSelectedSize) {
  auto a = leaf("a", off, 1000), b = leaf("b", off, 20);
  auto group = entry("group", true, {a, b, leaf("unknown", on)});  // an unknown size adds 0
  group->setSize(Size::value(999999));                             // a group counts only through its children
  auto root = entry("root", true, {group});
  EXPECT_EQ(root->selectedSize(), 0);
  root->select();
  EXPECT_TRUE(a->isSelected() && b->isSelected() && group->isSelected());
  EXPECT_EQ(root->selectedSize(), 1020);
  a->setSelection(mixed);  // only "on" counts for the entry itself
  EXPECT_EQ(root->selectedSize(), 20);
  group->deselect();
  EXPECT_EQ(std::pair(a->selection(), root->selection()), std::pair(off, on));
  EXPECT_EQ(root->updateSelection(), off);
  EXPECT_EQ(root->selectedSize(), 0);
}

TEST(CleanupEntry, ATickChangesTheSubtreeAndTheAncestorsAndReportsExactlyWhatChanged) {
  // root > {group > {a, b}, other > {c}}
  auto a = leaf("a", off), b = leaf("b", off), c = leaf("c", on);
  auto group = entry("group", false, {a, b});
  auto root = entry("root", false, {group, entry("other", false, {c})});
  ASSERT_EQ(root->updateSelection(), mixed);

  EXPECT_EQ(a->changeSelection(on), (std::vector<CleanupEntry*>{group.get(), a.get()}));
  EXPECT_EQ(std::pair(group->selection(), root->selection()), std::pair(mixed, mixed));

  // Mixed ticks, as a click on a mixed box does.
  EXPECT_THAT(group->changeSelection(mixed), UnorderedElementsAre(root.get(), group.get(), b.get()));
  EXPECT_EQ(root->selection(), on);

  EXPECT_EQ(root->changeSelection(off).size(), 6u);
  EXPECT_EQ(root->selectedSize(), 0);
  EXPECT_TRUE(a->changeSelection(off).empty());
  EXPECT_TRUE(a->isCheckable() && !entry("empty")->isCheckable());  // nothing to clean, nothing to tick
}

TEST(CleanupEntry, SizesOrderUnknownFirstAndTreesAreMeasuredCountingHardLinksOnceAndDescribed) {
  std::vector<Size> sizes = {Size::value(5), Size::unknown(), Size::value(-1), Size::value(0), Size::unknown()};
  std::stable_sort(sizes.begin(), sizes.end());
  EXPECT_EQ(sizes,
            (std::vector<Size>{Size::unknown(), Size::unknown(), Size::value(-1), Size::value(0), Size::value(5)}));
  EXPECT_NE(Size::unknown(), Size::value(0));
  TempDir dir;
  writeFileOfSize(dir / "a/big", 300000);
  writeFileOfSize(dir / "b/own", 100000);
  fs::create_hard_link(dir / "a/big", dir / "b/link-to-big");
  auto makeTree = [&] {
    return entry("root", false,
                 {entry("a", false, {}, {dir / "a"}), entry("b", false, {}, {dir / "b", dir / "missing"})});
  };
  const auto total = Size::value(measurePath(dir / "a", nullptr) + measurePath(dir / "b", nullptr) -
                                 allocatedSizeOfFile(dir / "a/big"));
  EXPECT_EQ(makeTree()->calculateSize(), total);
  EXPECT_EQ(makeTree()->updateSize(), total);
  // updateSize keeps what children already know; a known size is not measured again.
  auto known = makeTree();
  known->items()[0]->setSize(Size::value(7));
  known->items()[1]->setSize(Size::value(8));
  EXPECT_EQ(known->updateSize(), Size::value(15));
  EXPECT_EQ(known->sizeOrCalculate(), Size::value(15));
  EXPECT_EQ(known->description(1), "\t root: 15 bytes\n\t\t a: 7 bytes\n\t\t b: 8 bytes\n");
  EXPECT_EQ(entry("unmeasured", false, {known})->description(0), " unmeasured\n" + known->description(1));
}

TEST(CleanupEntryDeathTest, ASumBeyondSixtyFourBitsStopsWithAMessage) {
  EXPECT_EQ(addSizes(INT64_MAX - 1, 1), INT64_MAX);
  EXPECT_DEATH(addSizes(INT64_MAX, 1), "size sum overflows");
  auto group = entry("group", false, {leaf("a", on, INT64_MAX), leaf("b", on, 1)});
  EXPECT_DEATH(group->selectedSize(), "overflows");
}

// Each call as one line; a unit as "location: description <file name> index/count". Stops when reaching unit 3.
struct RecordingDeleteDelegate : DevFilesDeleteDelegate {
  std::vector<std::string> events;
  std::stop_source stop;
  static std::string shown(const std::optional<fs::path>& url) { return url.value_or("-").filename().string(); }
  void deleteStarted(DevFiles&) override { events.push_back("started"); }
  void deletingItem(DevFiles&, const std::string& location, const std::string& description,
                    const std::optional<fs::path>& url, size_t index, size_t count) override {
    events.push_back(location + ": " + description + " <" + shown(url) + "> " + std::to_string(index) + "/" +
                     std::to_string(count));
    if (index == 3) stop.request_stop();
  }
  void deleteFailed(DevFiles&, const std::exception& error, const std::string&, const std::string&,
                    const std::optional<fs::path>& url) override {
    events.push_back("failed <" + shown(url) + ">" + (*error.what() ? "" : " without a message"));
  }
  void deleteFinished(DevFiles&) override { events.push_back("finished"); }
};

class DeletionEngine : public ::testing::Test {
 protected:
  DeletionEngine() { devFiles->setDeleteDelegate(delegate); }

  void add(Location location, const CleanupEntryPtr& entry) {
    devFiles->entry(location)->addItem(entry);
    devFiles->entry(location)->updateSelection();
  }
  std::vector<std::string> workList() {
    std::vector<std::string> order;
    for (const auto& item : makeDeletionList(*devFiles))
      order.push_back(item.locationLabel + "/" + item.entry->label());
    return order;
  }

  TempDir temp;
  DeveloperFolderFixture fixture{temp / "Library/Developer"};
  std::shared_ptr<DevFiles> devFiles =
      DevFiles::create(fixture.developerFolder(), std::nullopt, std::nullopt).value_or(nullptr);
  std::shared_ptr<RecordingDeleteDelegate> delegate = std::make_shared<RecordingDeleteDelegate>();
};

TEST_F(DeletionEngine, WalksLocationsInOrderEachDepthFirstFromTheLastChildSkippingUntickedNodes) {
  add(Location::archives, entry("Project", true, {leaf("A", on), leaf("B", on)}));
  add(Location::deviceSupport, leaf("C", on));
  add(Location::projectBuilds, entry("Outer", true, {entry("Inner", true, {leaf("D", on)})}));
  // Unticked nodes give no units, but their ticked children do.
  auto unticked = entry("Unticked", false, {leaf("Inner", on)});
  add(Location::documentationCache, entry("Parent", true, {leaf("Kept", off), leaf("Gone", on), unticked}));

  EXPECT_THAT(workList(), ElementsAre("Device Support/C", "Archives/B", "Archives/A", "Documentation Cache/Inner",
                                      "Documentation Cache/Gone", "Project Build Folders/D"));

  // An unticked location is skipped whole; debug builds refuse a ticked item inside it rather than lose it silently.
  add(Location::logs, leaf("Log", on));
  devFiles->entry(Location::logs)->setSelection(off);
  EXPECT_DEBUG_DEATH(workList(), "ticked item under an unticked location");
}

// A failed unit is reported and the run goes on; a stop (at unit 3) lets the unit at hand finish.
TEST_F(DeletionEngine, EachPathIsAUnitAFailedOneIsReportedAndAStopEndsTheRunAfterTheUnitAtHand) {
  const fs::path one = temp / "one", vanished = temp / "vanished", three = temp / "three", four = temp / "four";
  for (const auto& path : {one, three, four}) writeFileOfSize(path, 100);
  add(Location::derivedData, entry("Project", true, {}, {one, vanished, three, four}));

  deleteSelected(*devFiles, false, delegate->stop.get_token());
  EXPECT_THAT(delegate->events,
              ElementsAre("started", "Derived Data: Project  <one> 1/4", "Derived Data: Project  <vanished> 2/4",
                          "failed <vanished>", "Derived Data: Project  <three> 3/4", "finished"));
  EXPECT_EQ(std::tuple(fs::exists(one), fs::exists(three), fs::exists(four)), std::tuple(false, false, true));
  // The engine leaves the tree as it was.
  EXPECT_EQ(devFiles->entry(Location::derivedData)->items().front()->paths().size(), 4u);
}

TEST_F(DeletionEngine, DryRunLeavesTheTreeByteIdenticalAndSaysSo) {
  fixture.populate();
  fs::create_directory_symlink(temp.path(), fixture.xcode() / "DerivedData" / "link-to-home");
  devFiles->scan({Location::derivedData, Location::archives, Location::oldDocumentation});
  for (Location location : {Location::derivedData, Location::oldDocumentation}) devFiles->entry(location)->select();
  const auto before = snapshot(temp.path());
  LogCapture log;

  deleteSelected(*devFiles, true);
  EXPECT_EQ(snapshot(temp.path()), before);
  const auto lines = linesStartingWith(log, "Deleting ");
  // Two projects and three folders under "Other" (one of them the link); the old documentation.
  EXPECT_THAT(lines, AllOf(SizeIs(6), Each(HasSubstr("Deleting [DRY RUN!]: "))));
  EXPECT_THAT(lines.back(), HasSubstr("Deleting [DRY RUN!]: Old Documentation Downloads:  ("));
  EXPECT_THAT(delegate->events, AllOf(SizeIs(8), Each(Not(StartsWith("failed")))));  // started, six units, finished
}

}  // namespace
}  // namespace tw
