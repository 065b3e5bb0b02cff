// The cleaning sheet's state machine and its relay from the deleting thread, the install sheet's
// command, the application menu's fixed places and "Show in Files"; the window tests' main.
#include <gtest/gtest.h>

#include <QApplication>
#include <QClipboard>
#include <QDBusConnection>
#include <QMenu>
#include <QMenuBar>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTest>
#include <thread>

#include "UiTestSupport.h"
#include "support/DeveloperFolderFixture.h"
#include "ui/AppDelegate.h"
#include "ui/CleaningSheet.h"
#include "ui/EntryIcons.h"
#include "ui/FileManagerReveal.h"
#include "ui/InstallSheet.h"
#include "ui/MainWindow.h"

namespace tw {
namespace {

class CleaningSheetTest : public ::testing::Test {
 protected:
  std::unique_ptr<CleaningSheet> makeSheet(bool dryRun) {
    auto sheet = std::make_unique<CleaningSheet>(nullptr, alerts, sound, dryRun, std::chrono::milliseconds(30));
    sheet->show();
    return sheet;
  }

  test::TestMachine machine;
  test::ScriptedAlerts alerts;
  test::CountingSound sound;
};

TEST_F(CleaningSheetTest, NotificationsDriveTheStatesAndTheCloseComesAfterFinished) {
  CleaningSheet* sheet = makeSheet(true).release();  // deletes itself once closed
  EXPECT_EQ(sheet->headingText(), "(Dry run) Cleaning Xcode cache files...");
  auto expectState = [sheet](const QString& text, int progress) {
    EXPECT_EQ(sheet->currentText(), text);
    EXPECT_EQ(sheet->progressValue(), progress) << text.toStdString();
  };
  sheet->deleteStarted();
  expectState("Initialization...", 0);
  sheet->deletingItem("derived data", "Sea Lion /p/Sea Lion.xcodeproj", 1, 3);
  expectState("Derived Data: Sea Lion /p/Sea Lion.xcodeproj", 33);
  sheet->deletingItem("OLD LOGS", "Logs from Xcode 15", 3, 4);
  expectState("Old Logs: Logs from Xcode 15", 75);
  // A failure shows an alert and leaves the state as it was.
  sheet->deleteFailed("Permission denied", "old logs", "");
  expectState("Old Logs: Logs from Xcode 15", 75);
  ASSERT_EQ(alerts.shown.size(), 1u);
  EXPECT_EQ(QStringList({alerts.shown[0].message, alerts.shown[0].informativeText, alerts.shown[0].firstButton}),
            QStringList({"Failed to delete item",
                         "Following file couldn't be removed:\nOld Logs: -\n\n\nPermission denied", "OK"}));

  QSignalSpy rescan(sheet, &CleaningSheet::rescanRequested);
  sheet->deleteFinished();
  expectState("Finished!", 100);
  EXPECT_TRUE(sheet->isVisible()) << "the sheet stays for the close delay";
  EXPECT_EQ(sound.plays, 0);
  ASSERT_TRUE(rescan.wait(2000));
  EXPECT_EQ(rescan.count(), 1);
  EXPECT_EQ(sound.plays, 1);
}

TEST_F(CleaningSheetTest, StopClosesAtOnceCancelsAndRescansOnlyAfterTheEngineFinished) {
  auto sheet = makeSheet(false);
  EXPECT_EQ(sheet->headingText(), "Cleaning Xcode cache files...");
  std::stop_source deletion;
  sheet->setStopSource(deletion);
  QSignalSpy rescan(sheet.get(), &CleaningSheet::rescanRequested);
  sheet->stop();
  EXPECT_FALSE(sheet->isVisible());
  EXPECT_TRUE(deletion.stop_requested());
  QTest::qWait(50);
  EXPECT_EQ(rescan.count(), 0) << "no rescan while the engine may still be deleting";

  // The engine's notifications come from its own thread, in order, through the relay.
  test::DeveloperFolderFixture folder(machine.developerFolder());
  auto devFiles = DevFiles::create(folder.developerFolder(), std::nullopt, std::nullopt);
  ASSERT_TRUE(devFiles.has_value());
  auto relay = std::make_shared<CleaningRelay>(sheet.release());  // deletes itself once closed
  std::thread([&] { relay->deleteFinished(**devFiles); }).join();
  ASSERT_TRUE(rescan.wait(2000));
  EXPECT_EQ(rescan.count(), 1);
  EXPECT_EQ(sound.plays, 1);
}

TEST(InstallSheet, ShowsTheLinkCommandAndCopiesItWithoutThePrompt) {
  InstallSheet sheet(nullptr, "/Applications/My Tools/Tidewell.app");
  const QString command =
      "sudo ln -sf /Applications/My Tools/Tidewell.app/Contents/Resources/tidewell.sh /usr/local/bin/tidewell";
  EXPECT_EQ(sheet.shownText(), "$ " + command);
  sheet.copyCommand();
  EXPECT_EQ(QGuiApplication::clipboard()->text(), command);
}

TEST_F(CleaningSheetTest, TheApplicationMenuHoldsTheUpdateItemAtIndexOneAndItsSeparatorAtTwo) {
  MainWindow window(alerts, sound);
  AppDelegate delegate(window);
  QMenu* menu = delegate.applicationMenu();
  ASSERT_EQ(window.menuBar()->actions().constFirst()->menu(), menu) << "first in the menu bar";
  EXPECT_EQ(menu->title().remove('&'), "Tidewell");
  const auto actions = menu->actions();
  ASSERT_GT(actions.size(), 2);
  EXPECT_EQ(actions[1], delegate.updateAction());
  EXPECT_EQ(actions[1]->text(), "Check for &Updates…");
  EXPECT_TRUE(actions[2]->isSeparator());
  EXPECT_EQ(delegate.preferencesAction()->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_Comma));
  for (QAction* action : {delegate.sendFeedbackAction(), delegate.reportIssueAction(), delegate.preferencesAction(),
                          delegate.installCommandLineToolAction(), delegate.showLogFilesAction(),
                          delegate.onlineHelpAction(), delegate.quitAction()})
    EXPECT_TRUE(actions.contains(action)) << action->text().toStdString();
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
  bus.unregisterService("org.freedesktop.FileManager1");
  bus.unregisterObject("/org/freedesktop/FileManager1");
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

#include "CleaningSheetTest.moc"
