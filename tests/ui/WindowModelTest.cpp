// The item model over a real driver's tree, checked throughout by Qt's QAbstractItemModelTester.
#include <gtest/gtest.h>

#include <QAbstractItemModelTester>
#include <QSignalSpy>
#include <algorithm>
#include <span>

#include "support/DeveloperFolderFixture.h"
#include "support/StandInEnvironment.h"
#include "support/TempDir.h"
#include "ui/CleanupTreeModel.h"
#include "ui/EntryIcons.h"

namespace tw {
namespace {

using Location = DevFiles::Location;

CleanupEntryPtr leaf(const std::string& label, int64_t bytes, const std::string& extra = "") {
  auto entry = std::make_shared<CleanupEntry>(label, extra, std::nullopt, CleanupEntry::Icon::system("NSFolder"),
                                              /*tooltip=*/!extra.empty());
  entry->addPath("/nonexistent/" + label);
  entry->setSize(CleanupEntry::Size::value(bytes));
  return entry;
}

class WindowModel : public ::testing::Test {
 protected:
  WindowModel() {
    model.setDevFiles(devFiles = fixture.devFiles());
    model.prepareScan();
  }

  // Puts `items` below the location as a scan would, then reports it finished.
  void finishLocation(Location location, std::vector<CleanupEntryPtr> items) {
    devFiles->entry(location)->addItems(items), model.locationScanned(location);
  }
  QModelIndex row(const CleanupEntryPtr& entry) { return model.indexOf(entry.get()); }

  test::TempDir folder;
  ScopedHost scopedHost{test::hostWithRoot(folder.path())};  // "/" and the home below the test folder
  test::DeveloperFolderFixture fixture{folder / "home/Library/Developer"};
  std::shared_ptr<DevFiles> devFiles;
  CleanupTreeModel model;
  QAbstractItemModelTester tester{&model, QAbstractItemModelTester::FailureReportingMode::Fatal};
};

TEST_F(WindowModel, RowsAppearOnlyAfterTheFirstNotificationAndPerFinishedLocationAndReadTheEntry) {
  ASSERT_TRUE(devFiles);
  EXPECT_EQ(model.rowCount(), 0) << "no rows before the first scan notification";

  model.scanStarted();
  ASSERT_EQ(model.rowCount(), static_cast<int>(devFiles->rootEntries().size()));
  const QModelIndex derivedData = row(devFiles->entry(Location::derivedData)), size = derivedData.siblingAtColumn(1);
  EXPECT_TRUE(size.data(CleanupTreeModel::scanningRole).toBool() && size.data().toString().isEmpty());

  // A location that already holds items but is still scanning shows none and cannot expand.
  devFiles->entry(Location::derivedData)
      ->addItems({leaf("Sea Lion", 2'500'000, "/Users/dev/Sea Lion.xcodeproj"), leaf("Otter", 3'000'000),
                  std::make_shared<CleanupEntry>("Nothing", "")});
  EXPECT_FALSE(model.rowCount(derivedData) > 0 || model.hasChildren(derivedData));

  QSignalSpy inserted(&model, &QAbstractItemModel::rowsInserted);
  QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
  model.locationScanned(Location::derivedData);
  ASSERT_TRUE(inserted.count() == 1 && inserted[0][0].value<QModelIndex>() == derivedData &&
              inserted[0][2].toInt() == 2);
  // Children in tree order, unsorted; the roles read the entry.
  const QModelIndex item = model.index(0, 0, derivedData), nothing = model.index(2, 0, derivedData);
  EXPECT_EQ(item.data().toString() + model.index(1, 0, derivedData).data().toString(), "Sea LionOtter");
  EXPECT_EQ(item.data(CleanupTreeModel::extraInfoRole).toString(), "/Users/dev/Sea Lion.xcodeproj");
  EXPECT_EQ(item.data(Qt::AccessibleTextRole).toString(), "Sea Lion /Users/dev/Sea Lion.xcodeproj");
  EXPECT_EQ(item.data(Qt::ToolTipRole).toString(), "Sea Lion /Users/dev/Sea Lion.xcodeproj");
  EXPECT_EQ(item.siblingAtColumn(1).data().toString(), "2.5 MB");
  EXPECT_EQ(item.siblingAtColumn(1).data(Qt::TextAlignmentRole).toInt(), int(Qt::AlignRight | Qt::AlignVCenter));
  EXPECT_FALSE(item.data(Qt::DecorationRole).value<QIcon>().isNull());

  // An entry with nothing to clean: disabled, box off, no tooltip without the flag.
  EXPECT_FALSE((nothing.flags() & Qt::ItemIsEnabled) || model.setData(nothing, Qt::Checked, Qt::CheckStateRole));
  EXPECT_EQ(nothing.data(Qt::CheckStateRole).value<Qt::CheckState>(), Qt::Unchecked);
  EXPECT_TRUE(nothing.data(CleanupTreeModel::emptyRole).toBool() && !nothing.data(Qt::ToolTipRole).isValid());

  EXPECT_FALSE(size.data(CleanupTreeModel::scanningRole).toBool());
  // The Apple group repaints when one of its locations finishes; a location outside it does not touch it.
  const QModelIndex apple = row(devFiles->appleGroupEntry());
  auto repainted = [&](const QModelIndex& index) {
    return std::ranges::any_of(changed,
                               [&](const auto& signal) { return signal[0].template value<QModelIndex>() == index; });
  };
  EXPECT_TRUE(repainted(apple));
  changed.clear();
  finishLocation(Location::toolCaches, {leaf("Gradle", 5'000'000)});
  EXPECT_FALSE(repainted(apple));

  model.scanFinished();
  EXPECT_EQ(model.rowCount(row(devFiles->entry(Location::toolCaches))), 1);
  // A click is taken, and asks the window to tick (MainWindowTest follows the request to the entries).
  EXPECT_TRUE(model.setData(item, Qt::Checked, Qt::CheckStateRole) &&
              model.setData(item, Qt::Unchecked, Qt::CheckStateRole));
}

TEST_F(WindowModel, TicksPropagateToAncestorsAndRepaintOnlyChangedRows) {
  model.scanStarted();
  auto group = std::make_shared<CleanupEntry>("Other", "");
  auto a = leaf("A", 2'000'000), b = leaf("B", 2'000'000), other = leaf("C", 2'000'000);
  group->addItems({a, b});
  finishLocation(Location::derivedData, {group, other});
  finishLocation(Location::archives, {leaf("Archive", 4'000'000)});
  model.scanFinished();

  using enum Qt::CheckState;
  const CleanupEntryPtr derivedData = devFiles->entry(Location::derivedData);
  // The ticked entry, on or off, the ticks expected after the change, and how many rows repaint (Apple's included).
  const std::tuple<CleanupEntryPtr, bool, std::vector<std::pair<CleanupEntryPtr, Qt::CheckState>>, int> cases[] = {
      {a, true, {{a, Checked}, {group, PartiallyChecked}, {derivedData, PartiallyChecked}}, 4},
      {b, true, {{group, Checked}, {derivedData, PartiallyChecked}}, 2},  // Derived Data stays mixed: C is off
      {derivedData, false, {{a, Unchecked}, {b, Unchecked}, {group, Unchecked}, {derivedData, Unchecked}}, 5},
  };
  for (const auto& [ticked, on, expected, repaints] : cases) {
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    model.applyCheckState({ticked.get()}, on);
    for (const auto& [entry, state] : expected)
      EXPECT_EQ(row(entry).data(Qt::CheckStateRole).value<Qt::CheckState>(), state)
          << ticked->label() << " -> " << entry->label();
    int repainted = 0;
    for (const auto& signal : changed)
      repainted += signal[1].value<QModelIndex>().row() - signal[0].value<QModelIndex>().row() + 1;
    EXPECT_EQ(repainted, repaints) << ticked->label();
  }
}

TEST(EntryIcons, EveryNameTheScannersUseResolvesToARealImage) {
  std::vector<CleanupEntry::Icon> icons;
  for (const auto& [family, first, last] :
       {std::tuple{"iOS", 2, 18}, {"watchOS", 2, 11}, {"tvOS", 9, 18}, {"macOS", 12, 15}, {"visionOS", 2, 2}}) {
    for (int version = first; version <= last; ++version)
      icons.push_back(CleanupEntry::Icon::image("OS/" + std::string(family) + "/" + std::to_string(version)));
    for (const char* name : {"/26", "/Generic"})
      icons.push_back(CleanupEntry::Icon::image("OS/" + std::string(family) + name));
  }
  for (const char* name : {"Devices/iPadIcon", "Devices/WatchIcon", "Devices/AppleTVIcon", "Devices/VisionProIcon",
                           "Devices/MacBookIcon", "Files/XCArchive"})
    icons.push_back(CleanupEntry::Icon::image(name));
  for (const char* name : {"NSFolder", "NSImageNameFolder", "NSComputer", "NSImageNameComputer", "NSImageNameNetwork",
                           "NSImageNameTrashFull", "NSMultipleDocuments"})
    icons.push_back(CleanupEntry::Icon::system(name));
  for (const auto& icon : icons) {
    // Drawn, not blank: some pixel is opaque.
    const QImage image = EntryIcons::icon(icon).pixmap(32, 32).toImage().convertToFormat(QImage::Format_Alpha8);
    EXPECT_TRUE(std::ranges::any_of(std::span(image.constBits(), static_cast<size_t>(image.sizeInBytes())),
                                    [](uchar alpha) { return alpha > 0; }))
        << icon.name;
  }
  EXPECT_EQ(EntryIcons::themeName("NSFolder"), EntryIcons::themeName("NSImageNameFolder"));
}

}  // namespace
}  // namespace tw
