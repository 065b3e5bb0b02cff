#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

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

CleanupEntryPtr entry(std::string label, bool selected = false) {
  return std::make_shared<CleanupEntry>(std::move(label), "", std::nullopt, std::nullopt, true, selected);
}

// A leaf with one (not necessarily existing) path, so that it is not empty.
CleanupEntryPtr leaf(std::string label, Selection selection) {
  auto node = entry(std::move(label));
  node->addPath("/nonexistent/" + node->label());
  node->setSelection(selection);
  return node;
}

TEST(CleanupEntry, NewEntriesStartUnmeasuredAndEmpty) {
  CleanupEntry plain("Derived Data", "", std::nullopt, std::nullopt, true, false);
  EXPECT_EQ(plain.tooltipText(), "Derived Data");  // no trailing space for an empty extra text
  EXPECT_TRUE(plain.size().isUnknown());
  EXPECT_TRUE(plain.paths().empty());
  EXPECT_TRUE(plain.items().empty());
  EXPECT_FALSE(plain.parent());
  EXPECT_EQ(plain.selection(), Selection::off);
  EXPECT_TRUE(plain.isEmpty());
  EXPECT_FALSE(plain.hasPaths());
  EXPECT_FALSE(plain.isSelected());
  EXPECT_EQ(plain.itemDescription(), "Derived Data ");

  CleanupEntry given(" Label", "extra\n", std::string("\n\t tip \xC2\xA0\r\n"), CleanupEntry::Icon::image("x"), false,
                     true);
  EXPECT_EQ(given.tooltipText(), "tip");  // trimmed, the no-break space included
  EXPECT_EQ(given.label(), " Label");     // labels are kept as given
  EXPECT_EQ(given.selection(), Selection::on);
  CleanupEntry defaulted(" Label", "extra\n", std::nullopt, std::nullopt, true, false);
  EXPECT_EQ(defaulted.tooltipText(), "Label extra");
}

TEST(CleanupEntry, HoldsPathsOrItemsNeverBoth) {
  auto withPaths = entry("paths");
  withPaths->addPath("/a");
  withPaths->addItem(entry("child"));
  withPaths->addItems({entry("c1"), entry("c2")});
  EXPECT_TRUE(withPaths->items().empty());
  EXPECT_EQ(withPaths->paths(), (std::vector<std::filesystem::path>{"/a"}));

  auto group = entry("group");
  auto child = entry("child");
  group->addItem(child);
  group->addItem(child);  // duplicates are allowed
  group->addPath("/b");
  group->addPaths({"/c", "/d"});
  EXPECT_TRUE(group->paths().empty());
  EXPECT_EQ(group->items().size(), 2u);
  EXPECT_EQ(child->parent(), group);

  group->removeAllItems();
  EXPECT_TRUE(group->items().empty());
  EXPECT_EQ(child->parent(), group);  // links of removed children stay
  group->addPaths({"/c", "/d"});
  EXPECT_EQ(group->paths().size(), 2u);

  // The parent link is weak: it goes with the parent.
  auto orphan = entry("orphan");
  {
    auto shortLived = entry("short-lived");
    shortLived->addItem(orphan);
    EXPECT_TRUE(orphan->parent());
  }
  EXPECT_FALSE(orphan->parent());

  // An entry that is not owned by a shared pointer still takes children.
  CleanupEntry onStack("stack", "", std::nullopt, std::nullopt, true, false);
  auto stackChild = entry("stack child");
  onStack.addItem(stackChild);
  EXPECT_EQ(onStack.items().size(), 1u);
  EXPECT_FALSE(stackChild->parent());
}

TEST(CleanupEntry, RecomputesSelectionsFromTheChildren) {
  struct Case {
    std::vector<Selection> children;
    Selection expected;
  };
  const std::vector<Case> cases = {
      {{Selection::on, Selection::on, Selection::mixed}, Selection::mixed},
      {{Selection::on, Selection::on, Selection::on}, Selection::on},
      {{Selection::off, Selection::off}, Selection::off},
      {{Selection::on, Selection::off}, Selection::mixed},
      {{Selection::mixed}, Selection::mixed},
  };
  for (const auto& c : cases) {
    for (Selection start : {Selection::on, Selection::off}) {
      auto group = entry("group", start == Selection::on);
      for (size_t i = 0; i < c.children.size(); ++i) {
        auto child = leaf("child" + std::to_string(i), c.children[i]);
        if (c.children[i] == Selection::mixed) {
          // A mixed child is a group of one selected and one unselected leaf.
          child = entry("mixed group");
          child->addItems({leaf("a", Selection::on), leaf("b", Selection::off)});
        }
        group->addItem(child);
      }
      EXPECT_EQ(group->updateSelection(), c.expected);
      EXPECT_EQ(group->selection(), c.expected);
    }
  }
}

TEST(CleanupEntry, EmptyEntriesAreTurnedOffAndDoNotCount) {
  // A leaf without paths or items becomes off, whatever it was.
  auto emptyLeaf = entry("empty", true);
  EXPECT_EQ(emptyLeaf->updateSelection(), Selection::off);

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

  // A leaf with paths keeps the user's choice.
  auto chosen = leaf("chosen", Selection::on);
  EXPECT_EQ(chosen->updateSelection(), Selection::on);
}

TEST(CleanupEntry, SelectsAndDeselectsTheWholeSubtree) {
  auto root = entry("root");
  auto group = entry("group");
  auto a = leaf("a", Selection::off);
  auto b = leaf("b", Selection::off);
  group->addItems({a, b});
  root->addItem(group);
  root->select();
  EXPECT_TRUE(a->isSelected() && b->isSelected() && group->isSelected() && root->isSelected());
  group->deselect();
  EXPECT_EQ(a->selection(), Selection::off);
  EXPECT_EQ(root->selection(), Selection::on);
  EXPECT_EQ(root->updateSelection(), Selection::off);
}

TEST(CleanupEntry, SelectedSizeCountsOnlySelectedEntriesWithPaths) {
  auto root = entry("root", true);
  auto group = entry("group", true);
  auto a = leaf("a", Selection::on);
  a->setSize(Size::value(1000));
  auto b = leaf("b", Selection::off);
  b->setSize(Size::value(20));
  auto unknown = leaf("unknown", Selection::on);  // an unknown size adds 0
  group->addItems({a, b, unknown});
  group->setSize(Size::value(999999));  // a group counts only through its children
  root->addItem(group);
  EXPECT_EQ(root->selectedSize(), 1000);
  b->setSelection(Selection::on);
  EXPECT_EQ(root->selectedSize(), 1020);
  a->setSelection(Selection::mixed);  // only "on" counts for the entry itself
  EXPECT_EQ(root->selectedSize(), 20);
}

TEST(CleanupEntry, SizesOrderUnknownFirst) {
  std::vector<Size> sizes = {Size::value(5), Size::unknown(), Size::value(-1),
                             Size::value(0), Size::unknown(), Size::value(INT64_MAX)};
  std::stable_sort(sizes.begin(), sizes.end());
  EXPECT_EQ(sizes, (std::vector<Size>{Size::unknown(), Size::unknown(), Size::value(-1), Size::value(0), Size::value(5),
                                      Size::value(INT64_MAX)}));
  EXPECT_EQ(Size::unknown(), Size::unknown());
  EXPECT_NE(Size::unknown(), Size::value(0));
  EXPECT_EQ(Size::unknown().bytesOrZero(), 0);
}

TEST(CleanupEntry, MeasuresTreesCountingHardLinksOnce) {
  TempDir dir;
  writeFileOfSize(dir / "a/big", 300000);
  writeFileOfSize(dir / "b/own", 100000);
  std::filesystem::create_hard_link(dir / "a/big", dir / "b/link-to-big");
  writeFileOfSize(dir / "loose-file", 50000);

  const int64_t aAlone = measurePath(dir / "a", nullptr);
  const int64_t bAlone = measurePath(dir / "b", nullptr);
  const int64_t bigFile = allocatedSizeOfFile(dir / "a/big");
  const int64_t looseFile = allocatedSizeOfFile(dir / "loose-file");
  ASSERT_GT(bigFile, 0);

  auto makeTree = [&] {
    auto root = entry("root");
    auto childA = entry("a");
    childA->addPath(dir / "a");
    auto childB = entry("b");
    childB->addPaths({dir / "b", dir / "missing"});
    root->addItems({childA, childB});
    return root;
  };

  auto parallel = makeTree();
  auto total = parallel->calculateSize();
  ASSERT_TRUE(total.has_value());
  EXPECT_EQ(total->bytesOrZero(), aAlone + bAlone - bigFile);
  EXPECT_EQ(parallel->size(), *total);
  EXPECT_FALSE(parallel->items()[0]->size().isUnknown());

  auto sequential = makeTree();
  EXPECT_EQ(sequential->updateSize(), total);

  // updateSize keeps what children already know.
  auto known = makeTree();
  known->items()[0]->setSize(Size::value(7));
  known->items()[1]->setSize(Size::value(8));
  EXPECT_EQ(known->updateSize(), Size::value(15));
  EXPECT_EQ(known->sizeOrCalculate(), Size::value(15));  // known: not measured again

  auto file = entry("file");
  file->addPath(dir / "loose-file");
  EXPECT_EQ(file->sizeOrCalculate(), Size::value(looseFile));

  file->clear();
  EXPECT_TRUE(file->size().isUnknown());
  EXPECT_TRUE(file->paths().empty());
  EXPECT_EQ(file->calculateSize(), Size::value(0));
}

TEST(CleanupEntry, DescribesTheSubtreeForLogs) {
  auto root = entry("Root");
  auto child = entry("Child");
  child->addPath("/x");
  child->setSize(Size::value(2000000));
  root->addItem(child);
  EXPECT_EQ(entry("Leaf")->description(0), " Leaf\n");
  EXPECT_EQ(root->description(0), " Root\n\t Child: " + formatByteCount(2000000) + "\n");
  EXPECT_EQ(root->description(2), "\t\t Root\n\t\t\t Child: " + formatByteCount(2000000) + "\n");
}

TEST(CleanupEntry, DeletesItsPathAndNothingWithoutOne) {
  TempDir dir;
  writeFileOfSize(dir / "victim/inner", 10);
  writeFileOfSize(dir / "keep", 10);
  auto node = entry("victim");
  node->addPath(dir / "victim");
  node->deleteItem(std::nullopt);
  EXPECT_TRUE(std::filesystem::exists(dir / "victim"));
  node->deleteItem(dir / "victim");
  EXPECT_FALSE(std::filesystem::exists(dir / "victim"));
  EXPECT_TRUE(std::filesystem::exists(dir / "keep"));
}

TEST(CleanupEntryDeathTest, ASumBeyondSixtyFourBitsStopsWithAMessage) {
  EXPECT_EQ(addSizes(INT64_MAX - 1, 1), INT64_MAX);
  EXPECT_EQ(addSizes(-5, 3), -2);
  EXPECT_DEATH(addSizes(INT64_MAX, 1), "size sum overflows");
  auto group = entry("group");
  auto a = leaf("a", Selection::on);
  a->setSize(Size::value(INT64_MAX));
  auto b = leaf("b", Selection::on);
  b->setSize(Size::value(1));
  group->addItems({a, b});
  EXPECT_DEATH(group->selectedSize(), "overflows");
}

}  // namespace
}  // namespace tw
