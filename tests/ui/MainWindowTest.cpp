// The window offscreen: the item model over a real driver's tree (checked throughout by Qt's model tester), and the
// main window on a generated home: scan, summary, ticks, clean flow, warning strip, sheets and menus.
#include <gtest/gtest.h>

#include <QAbstractItemModelTester>
#include <QApplication>
#include <QClipboard>
#include <QDBusConnection>
#include <QItemSelectionModel>
#include <QMenu>
#include <QMenuBar>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTest>
#include <QTreeView>
#include <algorithm>
#include <span>
#include <thread>

#include "app/Preferences.h"
#include "platform/ByteCountFormatter.h"
#include "support/DeveloperFolderFixture.h"
#include "support/FixtureHome.h"
#include "support/StandInEnvironment.h"
#include "support/TempDir.h"
#include "ui/Alerts.h"
#include "ui/AppDelegate.h"
#include "ui/CleaningSheet.h"
#include "ui/CleanupTreeModel.h"
#include "ui/CompletionSound.h"
#include "ui/EntryIcons.h"
#include "ui/FileManagerReveal.h"
#include "ui/InstallSheet.h"
#include "ui/MainWindow.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using Location = DevFiles::Location;

struct ScriptedAlerts : Alerts {  // Alerts and a completion sound that answer instead of waiting for a person.
  Response run(QWidget*, Style style, const QString& message, const QString& informativeText,
               const QString& firstButton, const QString& secondButton) override {
    shown.push_back({style, {message, informativeText, firstButton, secondButton}});
    return std::exchange(answer, Response::first);  // one scripted answer, then the default
  }
  std::optional<fs::path> chooseFolder(QWidget*, const fs::path&, const QString&, const QString&) override {
    return ++panels, std::nullopt;  // the panel is cancelled
  }
  Response answer = Response::first;
  std::vector<std::pair<Style, QStringList>> shown;  // message, informative text, buttons
  int panels = 0;
};

struct CountingSound : CompletionSound {
  void play() override { ++plays; }
  int plays = 0;
};

QString formatted(int64_t bytes) { return QString::fromStdString(formatByteCount(bytes)); }

class MainWindowTest : public ::testing::Test {
 protected:
  MainWindowTest() { fs::create_directories(folder / "tmp"); }
  void writeHome() { test::FixtureHome::write(homeFolder, {.caches = false, .projects = false}); }
  void start() {  // Starts the window as the application does; waitForScans waits for the `count`-th finished scan.
    window = std::make_unique<MainWindow>(alerts, sound);
    window->setCleaningCloseDelay(std::chrono::milliseconds(0));
    spy = std::make_unique<QSignalSpy>(window.get(), &MainWindow::scanCompleted);
    window->checkDeveloperFolder();
  }
  void waitForScans(int count) {
    ASSERT_TRUE(QTest::qWaitFor([&] { return spy->count() >= count; }, 30000)) << "scan " << count << " never ended";
  }
  QModelIndex locationRow(Location location) {
    return window->model().indexOf(window->devFiles()->entry(location).get());
  }
  bool ticked(Location location) {
    return window->devFiles()->entry(location)->selection() == CleanupEntry::Selection::on;
  }
  bool logged(const std::string& line) { return std::ranges::count(log.lines(), line) > 0; }

  test::TempDir folder;
  fs::path homeFolder = folder / "home";
  ScopedHost scopedHost{test::hostWithRoot(folder.path())};  // "/" and the home below the test folder
  ScriptedAlerts alerts;
  CountingSound sound;
  test::LogCapture log;
  std::unique_ptr<MainWindow> window;
  std::unique_ptr<QSignalSpy> spy;
};

TEST_F(MainWindowTest, AScanFillsTheSummaryTicksFollowTheUserAndACleanConfirmsRaisesTheTotalAndRescans) {
  writeHome();
  start();
  EXPECT_EQ(window->windowTitle(), "Tidewell");
  waitForScans(1);
  const auto& devFiles = window->devFiles();
  EXPECT_EQ(window->totalText(), "Total: " + formatted(devFiles->totalSize()));  // the title: WindowEndToEnd
  EXPECT_TRUE(!window->warningVisible() && alerts.panels == 0) << "an accessible developer folder needs no panel";
  // The fixture's older device logs start ticked.
  EXPECT_EQ(window->selectedText(), "Selected: " + formatted(devFiles->selectedSize()));
  EXPECT_TRUE(window->cleanButtonEnabled());
  window->model().applyCheckState({devFiles->entry(Location::logs).get()}, false);
  window->refreshSummary();
  EXPECT_EQ(window->selectedText(), "Selected: Zero KB");
  EXPECT_FALSE(window->cleanButtonEnabled());

  const std::tuple<int64_t, bool, QString> cases[] = {
      {0, false, ""}, {5'000'000, true, "You saved 5 MB in total!"}, {1, false, "You saved 1 byte in total!"}};
  for (const auto& [saved, dryRun, savedText] : cases) {
    Preferences::shared().setTotalBytesCleaned(saved);
    Preferences::shared().setDryRunEnabled(dryRun);  // observers refresh the summary
    EXPECT_TRUE(window->savedLineVisible() == (saved > 0) && window->donationButtonVisible() == (saved > 0)) << saved;
    EXPECT_TRUE(saved == 0 || window->savedText() == savedText) << window->savedText().toStdString();
    EXPECT_EQ(window->dryRunBadgeVisible(), dryRun);
  }

  // Ticking a selected row ticks every selected row; a row outside the selection changes alone; Space toggles once.
  QTreeView* outline = window->outline();
  outline->expandAll();
  for (Location location : {Location::archives, Location::derivedData, Location::documentationCache})
    outline->selectionModel()->select(locationRow(location), QItemSelectionModel::Select | QItemSelectionModel::Rows);
  auto ticks = [&] {  // archives, derived data, documentation cache, device support
    std::string shown;
    for (Location l :
         {Location::archives, Location::derivedData, Location::documentationCache, Location::deviceSupport})
      shown += ticked(l) ? '1' : '0';
    return shown;
  };
  auto tick = [&](Location location, bool on) {
    window->model().setData(locationRow(location), on ? Qt::Checked : Qt::Unchecked, Qt::CheckStateRole);
    return ticks();
  };
  EXPECT_EQ(tick(Location::derivedData, true), "1110");
  EXPECT_EQ(tick(Location::deviceSupport, true), "1111");
  EXPECT_EQ(tick(Location::deviceSupport, false), "1110");
  outline->selectionModel()->setCurrentIndex(locationRow(Location::archives), QItemSelectionModel::NoUpdate);
  outline->setFocus();
  for (const char* expected : {"0000", "1110"}) {
    QTest::keyClick(outline, Qt::Key_Space);
    EXPECT_EQ(ticks(), expected);
  }

  int scans = 1;  // The clean flow: cancelled, confirmed in dry run, confirmed for real.
  for (const auto& [dryRun, answer] : {std::pair{false, Alerts::Response::second},
                                       {true, Alerts::Response::first},
                                       {false, Alerts::Response::first}}) {
    SCOPED_TRACE(scans);
    Preferences::shared().setDryRunEnabled(dryRun);
    window->model().applyCheckState({window->devFiles()->entry(Location::derivedData).get()}, true);
    const int64_t selected = window->devFiles()->selectedSize(),
                  savedBefore = Preferences::shared().totalBytesCleaned();
    alerts.shown.clear();
    alerts.answer = answer;
    log.clear();
    window->startCleaning();
    ASSERT_EQ(alerts.shown.size(), 1u);
    const auto& [style, texts] = alerts.shown[0];
    EXPECT_EQ(QStringList({texts[0], texts[2], texts[3]}), QStringList({"Clean selected files", "Clean", "Cancel"}));
    EXPECT_EQ(style, Alerts::Style::critical);
    // Raised at confirmation, before the deletion, and never in dry run or when cancelled.
    const bool cleans = answer == Alerts::Response::first;
    EXPECT_EQ(Preferences::shared().totalBytesCleaned(), savedBefore + (cleans && !dryRun ? selected : 0));
    ASSERT_EQ(window->cleaningSheet() != nullptr, cleans);
    if (!cleans) continue;
    EXPECT_EQ(window->cleaningSheet()->headingText().startsWith("(Dry run) "), dryRun);
    EXPECT_TRUE(logged("❕ MainViewController: Total bytes cleaned - " +
                       formatByteCount(Preferences::shared().totalBytesCleaned())));
    waitForScans(++scans);
    EXPECT_EQ(sound.plays, scans - 1);  // once per finished clean; what goes from the disk: WindowEndToEnd
  }
}

TEST_F(MainWindowTest, WarningStripCasesAndTheVanishedCustomFolder) {
  start();  // No developer folder at all (body and button follow the same case as the title).
  EXPECT_TRUE(window->warningVisible() && window->warningTitle() == "\"~/Developer\" folder cannot be found");
  EXPECT_EQ(window->devFiles(), nullptr);
  // A developer folder without Xcode's caches cannot be scanned: the access case.
  fs::create_directories(homeFolder / "Library/Developer");
  window->checkDeveloperFolder();
  EXPECT_EQ(window->warningTitle(), "Access to \"~/Developer\" folder is needed");
  EXPECT_TRUE(logged("⚠️ MainViewController: Cannot acquire \"Developer\" folder access! Showing access warning!"));
  writeHome();  // Give Access after the folders exist; a custom folder that vanished is cleared first.
  Preferences::shared().setCustomDerivedDataFolder(homeFolder / "Gone/DerivedData");
  window->pressWarningButton();
  EXPECT_TRUE(!window->warningVisible() && !Preferences::shared().customDerivedDataFolder());
  EXPECT_TRUE(logged("⚠️ Custom derived data folder no longer exists, resetting to default!"));
  waitForScans(1);
}

TEST_F(MainWindowTest, CleaningSheetFollowsTheEngineClosesAfterFinishedAndAtOnceWhenStopped) {
  auto* sheet = new CleaningSheet(nullptr, alerts, sound, /*dryRun=*/true, std::chrono::milliseconds(30));
  sheet->show();  // deletes itself once closed
  EXPECT_EQ(sheet->headingText(), "(Dry run) Cleaning Xcode cache files...");
  auto state = [sheet] { return sheet->currentText() + " " + QString::number(sheet->progressValue()); };
  sheet->deleteStarted();
  EXPECT_EQ(state(), "Initialization... 0");
  sheet->deletingItem("derived data", "Sea Lion /p/Sea Lion.xcodeproj", 1, 3);
  EXPECT_EQ(state(), "Derived Data: Sea Lion /p/Sea Lion.xcodeproj 33");
  sheet->deletingItem("OLD LOGS", "Logs from Xcode 15", 3, 4);
  sheet->deleteFailed("Permission denied", "old logs", "");  // A failure shows an alert and leaves the state as it was.
  EXPECT_EQ(state(), "Old Logs: Logs from Xcode 15 75");
  ASSERT_EQ(alerts.shown.size(), 1u);
  EXPECT_EQ(alerts.shown[0].second.first(3),
            QStringList({"Failed to delete item",
                         "Following file couldn't be removed:\nOld Logs: -\n\n\nPermission denied", "OK"}));
  QSignalSpy rescan(sheet, &CleaningSheet::rescanRequested);
  sheet->deleteFinished();
  EXPECT_EQ(state(), "Finished! 100");
  EXPECT_TRUE(sheet->isVisible() && sound.plays == 0) << "the sheet stays, silent, for the close delay";
  EXPECT_EQ((std::pair{rescan.wait(2000) ? rescan.count() : 0, sound.plays}), (std::pair<qsizetype, int>{1, 1}));

  // Stopped, it closes at once; the rescan waits for the engine's end, told from the engine's thread by the relay.
  auto stopped =
      std::make_unique<CleaningSheet>(nullptr, alerts, sound, /*dryRun=*/false, std::chrono::milliseconds(30));
  stopped->show();
  std::stop_source deletion;
  stopped->setStopSource(deletion);
  QSignalSpy relayed(stopped.get(), &CleaningSheet::rescanRequested);
  stopped->stop();
  EXPECT_TRUE(!stopped->isVisible() && deletion.stop_requested());
  QTest::qWait(50);
  EXPECT_EQ(relayed.count(), 0) << "no rescan while the engine may still be deleting";
  auto devFiles = test::DeveloperFolderFixture(homeFolder / "Library/Developer").devFiles();
  ASSERT_TRUE(devFiles);
  auto relay = std::make_shared<CleaningRelay>(stopped.release());  // deletes itself once closed
  std::thread([&] { relay->deleteFinished(*devFiles); }).join();
  EXPECT_EQ((std::pair{relayed.wait(2000) ? relayed.count() : 0, sound.plays}), (std::pair<qsizetype, int>{1, 2}));
}

TEST_F(MainWindowTest, TheInstallSheetCopiesTheLinkCommandAndTheApplicationMenuComesFirst) {
  InstallSheet sheet(nullptr, "/Applications/My Tools/Tidewell.app");
  const QString command =
      "sudo ln -sf /Applications/My Tools/Tidewell.app/Contents/Resources/tidewell.sh /usr/local/bin/tidewell";
  EXPECT_EQ(sheet.shownText(), "$ " + command);
  sheet.copyCommand();  // without the prompt
  EXPECT_EQ(QGuiApplication::clipboard()->text(), command);

  MainWindow window(alerts, sound);
  AppDelegate delegate(window);
  QMenu* menu = delegate.applicationMenu();
  ASSERT_EQ(window.menuBar()->actions().constFirst()->menu(), menu) << "first in the menu bar";
  EXPECT_EQ(menu->title().remove('&'), "Tidewell");
  const auto actions = menu->actions();
  EXPECT_TRUE(actions.size() > 2 && actions[1] == delegate.updateAction() && actions[2]->isSeparator());
  EXPECT_EQ(delegate.preferencesAction()->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_Comma));
  EXPECT_EQ(delegate.quitAction()->shortcut(), QKeySequence(QKeySequence::Quit));
}

class StandInFileManager : public QObject {
  Q_OBJECT
  Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")
 public slots:
  void ShowItems(const QStringList& uris, const QString&) { shown = uris; }

 public:
  QStringList shown;
};

TEST(ShowInFiles, AsksTheFileManagerOnTheSessionBusForEveryPath) {
  QDBusConnection bus = QDBusConnection::sessionBus();
  if (!bus.isConnected()) GTEST_SKIP() << "no session bus: run through ctest (dbus-run-session)";
  StandInFileManager fileManager;
  ASSERT_TRUE(bus.registerObject("/org/freedesktop/FileManager1", &fileManager, QDBusConnection::ExportAllSlots));
  ASSERT_TRUE(bus.registerService("org.freedesktop.FileManager1"));
  revealInFileManager({"/Users/dev/Library/Developer/Xcode/DerivedData/Sea Lion-abc", "/tmp/other"});
  ASSERT_TRUE(QTest::qWaitFor([&] { return !fileManager.shown.isEmpty(); }, 5000));
  EXPECT_EQ(fileManager.shown,
            (QStringList{"file:///Users/dev/Library/Developer/Xcode/DerivedData/Sea%20Lion-abc", "file:///tmp/other"}));
  bus.unregisterObject("/org/freedesktop/FileManager1");  // before the stand-in goes
}

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
    devFiles->entry(location)->addItems(items);
    model.locationScanned(location);
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

// One offscreen QApplication; settings written through QSettings go to Qt's test locations, never the user's.
int main(int argc, char** argv) {
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  QStandardPaths::setTestModeEnabled(true);
  QApplication application(argc, argv);
  QApplication::setOrganizationName(QStringLiteral("TidewellTests"));
  tw::EntryIcons::loadResources();
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}

#if defined(__SANITIZE_ADDRESS__)
// Qt, fontconfig and the bus library keep caches for the process's life on purpose; ours are still reported.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libfontconfig\nleak:libQt6Core\nleak:libQt6Gui\nleak:libQt6Widgets\nleak:libQt6DBus\nleak:libdbus-1\n"
         "leak:libglib-2.0\nleak:libcanberra\n";
}
#endif

#include "MainWindowTest.moc"
