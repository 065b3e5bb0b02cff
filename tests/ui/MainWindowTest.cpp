// The main window offscreen on a generated home: scan, summary, ticks, clean flow, warning strip, sheets and menus.
#include <gtest/gtest.h>

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
