#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "fs/DirectorySize.h"
#include "model/CleanupEntry.h"
#include "platform/ByteCountFormatter.h"
#include "support/TempDir.h"

namespace tw {
namespace {

using Selection = CleanupEntry::Selection;
using Size = CleanupEntry::Size;
using test::TempDir;
using test::writeFileOfSize;
using ::testing::UnorderedElementsAre;

CleanupEntryPtr entry(std::string label, bool selected = false) {
  return std::make_shared<CleanupEntry>(std::move(label), "", std::nullopt, std::nullopt, true, selected);
}

CleanupEntryPtr holding(std::string label, std::vector<std::filesystem::path> paths) {
  auto node = entry(std::move(label));
  node->addPaths(std::move(paths));
  return node;
}

// A leaf with one (not necessarily existing) path, so that it is not empty.
CleanupEntryPtr leaf(std::string label, Selection selection, std::optional<int64_t> bytes = std::nullopt) {
  auto node = entry(std::move(label));
  node->addPath("/nonexistent/" + node->label());
  node->setSelection(selection);
  if (bytes) node->setSize(Size::value(*bytes));
  return node;
}

TEST(CleanupEntry, TooltipsAreTrimmedAndEntriesHoldPathsOrItemsNeverBoth) {
  CleanupEntry given(" Label", "extra\n", std::string("\n\t tip \xC2\xA0\r\n"), std::nullopt, false, true);
  EXPECT_EQ(given.tooltipText(), "tip");  // trimmed, the no-break space included
  EXPECT_EQ(CleanupEntry(" Label", "extra\n", std::nullopt, std::nullopt, true, false).tooltipText(), "Label extra");

  auto withPaths = holding("paths", {"/a"});
  withPaths->addItems({entry("c1"), entry("c2")});
  EXPECT_TRUE(withPaths->items().empty());
  auto group = entry("group");
  group->addItem(entry("child"));
  group->addPaths({"/c", "/d"});
  EXPECT_TRUE(group->paths().empty());
  // The parent link is weak: it goes with the parent.
  auto orphan = entry("orphan");
  entry("short-lived")->addItem(orphan);
  EXPECT_FALSE(orphan->parent());
}

TEST(CleanupEntry, RecomputesTriStateSelectionsFromTheChildren) {
  const std::pair<std::vector<Selection>, Selection> cases[] = {
      {{Selection::on, Selection::on, Selection::mixed}, Selection::mixed},
      {{Selection::on, Selection::on}, Selection::on},
      {{Selection::off, Selection::off}, Selection::off},
      {{Selection::on, Selection::off}, Selection::mixed},
  };
  for (const auto& [children, expected] : cases) {
    for (bool start : {true, false}) {
      auto group = entry("group", start);
      for (Selection selection : children) {
        auto child = leaf("child", selection);
        if (selection == Selection::mixed) {  // a group of one selected and one unselected leaf
          child = entry("mixed group");
          child->addItems({leaf("a", Selection::on), leaf("b", Selection::off)});
        }
        group->addItem(child);
      }
      EXPECT_EQ(group->updateSelection(), expected);
      EXPECT_EQ(group->selection(), expected);
    }
  }
}

TEST(CleanupEntry, EmptyEntriesAreTurnedOffAndDoNotCount) {
  EXPECT_EQ(entry("empty", true)->updateSelection(), Selection::off);
  // A group whose only child is empty keeps its own selection; the child is turned off.
  for (bool selected : {true, false}) {
    auto group = entry("group", selected);
    auto child = entry("empty child", true);
    group->addItem(child);
    EXPECT_EQ(group->updateSelection(), selected ? Selection::on : Selection::off);
    EXPECT_EQ(child->selection(), Selection::off);
  }
  // Empty children count neither as selected nor as unselected.
  auto group = entry("group");
  group->addItems({leaf("full", Selection::on), entry("empty", false)});
  EXPECT_EQ(group->updateSelection(), Selection::on);
}

TEST(CleanupEntry, SelectsTheWholeSubtreeAndCountsTheSelectedSize) {
  auto root = entry("root", true);
  auto group = entry("group", true);
  auto a = leaf("a", Selection::off, 1000);
  auto b = leaf("b", Selection::off, 20);
  group->addItems({a, b, leaf("unknown", Selection::on)});  // an unknown size adds 0
  group->setSize(Size::value(999999));                      // a group counts only through its children
  root->addItem(group);
  EXPECT_EQ(root->selectedSize(), 0);
  root->select();
  EXPECT_TRUE(a->isSelected() && b->isSelected() && group->isSelected());
  EXPECT_EQ(root->selectedSize(), 1020);
  a->setSelection(Selection::mixed);  // only "on" counts for the entry itself
  EXPECT_EQ(root->selectedSize(), 20);
  group->deselect();
  EXPECT_EQ(a->selection(), Selection::off);
  EXPECT_EQ(root->selection(), Selection::on);
  EXPECT_EQ(root->updateSelection(), Selection::off);
  EXPECT_EQ(root->selectedSize(), 0);
}

TEST(CleanupEntry, ATickChangesTheSubtreeAndTheAncestorsAndReportsExactlyWhatChanged) {
  // root > {group > {a, b}, other > {c}}
  auto root = entry("root");
  auto group = entry("group");
  auto other = entry("other");
  auto a = leaf("a", Selection::off), b = leaf("b", Selection::off), c = leaf("c", Selection::on);
  group->addItems({a, b});
  other->addItem(c);
  root->addItems({group, other});
  root->updateSelection();
  ASSERT_EQ(root->selection(), Selection::mixed);

  EXPECT_EQ(a->changeSelection(Selection::on), (std::vector<CleanupEntry*>{group.get(), a.get()}));
  EXPECT_EQ(group->selection(), Selection::mixed);
  EXPECT_EQ(root->selection(), Selection::mixed);

  // Mixed ticks, as a click on a mixed box does.
  EXPECT_THAT(group->changeSelection(Selection::mixed), UnorderedElementsAre(root.get(), group.get(), b.get()));
  EXPECT_EQ(root->selection(), Selection::on);

  EXPECT_EQ(root->changeSelection(Selection::off).size(), 6u);
  EXPECT_EQ(root->selectedSize(), 0);
  EXPECT_TRUE(a->changeSelection(Selection::off).empty());

  // Nothing to clean, nothing to tick.
  EXPECT_TRUE(a->isCheckable());
  EXPECT_FALSE(entry("empty")->isCheckable());
}

TEST(CleanupEntry, SizesOrderUnknownFirst) {
  std::vector<Size> sizes = {Size::value(5), Size::unknown(), Size::value(-1),
                             Size::value(0), Size::unknown(), Size::value(INT64_MAX)};
  std::stable_sort(sizes.begin(), sizes.end());
  EXPECT_EQ(sizes, (std::vector<Size>{Size::unknown(), Size::unknown(), Size::value(-1), Size::value(0), Size::value(5),
                                      Size::value(INT64_MAX)}));
  EXPECT_NE(Size::unknown(), Size::value(0));
}

TEST(CleanupEntry, MeasuresTreesCountingHardLinksOnceInParallelAsInSequence) {
  TempDir dir;
  writeFileOfSize(dir / "a/big", 300000);
  writeFileOfSize(dir / "b/own", 100000);
  std::filesystem::create_hard_link(dir / "a/big", dir / "b/link-to-big");
  const int64_t bigFile = allocatedSizeOfFile(dir / "a/big");
  ASSERT_GT(bigFile, 0);

  auto makeTree = [&] {
    auto root = entry("root");
    root->addItems({holding("a", {dir / "a"}), holding("b", {dir / "b", dir / "missing"})});
    return root;
  };
  auto parallel = makeTree();
  auto total = parallel->calculateSize();
  ASSERT_TRUE(total.has_value());
  EXPECT_EQ(total->bytesOrZero(), measurePath(dir / "a", nullptr) + measurePath(dir / "b", nullptr) - bigFile);
  EXPECT_EQ(parallel->size(), *total);
  EXPECT_EQ(makeTree()->updateSize(), total);

  // updateSize keeps what children already know; a known size is not measured again.
  auto known = makeTree();
  known->items()[0]->setSize(Size::value(7));
  known->items()[1]->setSize(Size::value(8));
  EXPECT_EQ(known->updateSize(), Size::value(15));
  EXPECT_EQ(known->sizeOrCalculate(), Size::value(15));
}

TEST(CleanupEntry, DescribesTheSubtreeForLogs) {
  auto root = entry("Root");
  auto child = holding("Child", {"/x"});
  child->setSize(Size::value(2000000));
  root->addItem(child);
  EXPECT_EQ(root->description(2), "\t\t Root\n\t\t\t Child: " + formatByteCount(2000000) + "\n");
}

TEST(CleanupEntry, DeletesItsPathAndNothingWithoutOne) {
  TempDir dir;
  writeFileOfSize(dir / "victim/inner", 10);
  auto node = entry("victim");
  node->deleteItem(std::nullopt);
  EXPECT_TRUE(std::filesystem::exists(dir / "victim"));
  node->deleteItem(dir / "victim");
  EXPECT_FALSE(std::filesystem::exists(dir / "victim"));
}

TEST(CleanupEntryDeathTest, ASumBeyondSixtyFourBitsStopsWithAMessage) {
  EXPECT_EQ(addSizes(INT64_MAX - 1, 1), INT64_MAX);
  EXPECT_DEATH(addSizes(INT64_MAX, 1), "size sum overflows");
  auto group = entry("group");
  group->addItems({leaf("a", Selection::on, INT64_MAX), leaf("b", Selection::on, 1)});
  EXPECT_DEATH(group->selectedSize(), "overflows");
}

}  // namespace
}  // namespace tw
