// The cleaning sheet's state machine and its relay from the deleting thread, the install
// sheet's command and the application menu's fixed places.
#include <gtest/gtest.h>

#include <QClipboard>
#include <QGuiApplication>
#include <QMenu>
#include <QMenuBar>
#include <QSignalSpy>
#include <QTest>
#include <thread>

#include "UiTestSupport.h"
#include "support/DeveloperFolderFixture.h"
#include "ui/AppDelegate.h"
#include "ui/CleaningSheet.h"
#include "ui/InstallSheet.h"
#include "ui/MainWindow.h"

namespace tw {
namespace {

class CleaningSheetTest : public ::testing::Test {
 protected:
  std::unique_ptr<CleaningSheet> makeSheet(bool dryRun) {
    auto sheet = std::make_unique<CleaningSheet>(nullptr, alerts, sound, dryRun, std::chrono::milliseconds(30));
    sheet->setState(CleaningState::idle("Initialization...", 0));
    sheet->show();
    return sheet;
  }

  test::TestMachine machine;
  test::ScriptedAlerts alerts;
  test::CountingSound sound;
};

TEST_F(CleaningSheetTest, NotificationsDriveTheStatesAndTheCloseComesAfterFinished) {
  auto sheet = makeSheet(true);
  EXPECT_EQ(sheet->headingText(), "(Dry run) Cleaning Xcode cache files...");
  CleaningSheet* raw = sheet.get();
  auto expectState = [raw](const QString& text, int progress) {
    EXPECT_EQ(raw->currentText(), text);
    EXPECT_EQ(raw->progressValue(), progress) << text.toStdString();
  };
  raw->deleteStarted();
  expectState("Initialization...", 0);
  raw->deletingItem("derived data", "Sea Lion /p/Sea Lion.xcodeproj", 1, 3);
  expectState("Derived Data: Sea Lion /p/Sea Lion.xcodeproj", 33);
  raw->deletingItem("OLD LOGS", "Logs from Xcode 15", 3, 4);
  expectState("Old Logs: Logs from Xcode 15", 75);
  // A failure shows an alert and leaves the state as it was.
  raw->deleteFailed("Permission denied", "old logs", "");
  expectState("Old Logs: Logs from Xcode 15", 75);
  ASSERT_EQ(alerts.shown.size(), 1u);
  EXPECT_EQ(QStringList({alerts.shown[0].message, alerts.shown[0].informativeText, alerts.shown[0].firstButton}),
            QStringList({"Failed to delete item",
                         "Following file couldn't be removed:\nOld Logs: -\n\n\nPermission denied", "OK"}));

  QSignalSpy rescan(raw, &CleaningSheet::rescanRequested);
  sheet.release();  // deletes itself once closed
  raw->deleteFinished();
  expectState("Finished!", 100);
  EXPECT_TRUE(raw->isVisible()) << "the sheet stays for the close delay";
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
  auto relay = std::make_shared<CleaningRelay>(sheet.get());
  std::thread([&] { relay->deleteFinished(**devFiles); }).join();
  sheet.release();  // deletes itself once closed
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

}  // namespace
}  // namespace tw
