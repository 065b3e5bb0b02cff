// The main window's controller on a generated home, offscreen: the scan fills the outline, the
// summary follows the ticks, the multi-row and space-bar rules, the clean flow with both
// confirmations, the warning strip cases and the vanished custom folder.
#include <gtest/gtest.h>

#include <QItemSelectionModel>
#include <QSignalSpy>
#include <QTest>
#include <QTreeView>
#include <algorithm>

#include "UiTestSupport.h"
#include "app/Preferences.h"
#include "platform/ByteCountFormatter.h"
#include "support/FixtureHome.h"
#include "support/LogCapture.h"
#include "ui/CleaningSheet.h"
#include "ui/CleanupTreeModel.h"
#include "ui/MainWindow.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using Location = DevFiles::Location;

QString formatted(int64_t bytes) { return QString::fromStdString(formatByteCount(bytes)); }

class MainWindowTest : public ::testing::Test {
 protected:
  void writeHome() { home = test::FixtureHome::write(machine.home(), {.caches = false, .projects = false}); }

  // Starts the window as the application does and waits for the `count`-th finished scan.
  void start() {
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

  test::TestMachine machine;
  test::FixtureHome home;
  test::ScriptedAlerts alerts;
  test::CountingSound sound;
  test::LogCapture log;
  std::unique_ptr<MainWindow> window;
  std::unique_ptr<QSignalSpy> spy;
};

TEST_F(MainWindowTest, AScanFillsTheOutlineAndTheSummaryFollowsTheTicks) {
  writeHome();
  start();
  EXPECT_EQ(window->windowTitle(), "Tidewell");
  waitForScans(1);
  const auto& devFiles = window->devFiles();
  const QString total = formatted(devFiles->totalSize());
  EXPECT_EQ(window->windowTitle(), "Tidewell - " + total + " available to clean");
  EXPECT_EQ(window->totalText(), "Total: " + total);
  EXPECT_FALSE(window->warningVisible());
  EXPECT_TRUE(alerts.panels.empty()) << "an accessible developer folder needs no panel";
  // The fixture's older device logs start ticked.
  EXPECT_EQ(window->selectedText(), "Selected: " + formatted(devFiles->selectedSize()));
  EXPECT_TRUE(window->cleanButtonEnabled());

  window->model().applyCheckState({devFiles->entry(Location::logs).get()}, false);
  window->refreshSummary();
  EXPECT_EQ(window->selectedText(), "Selected: Zero KB");
  EXPECT_FALSE(window->cleanButtonEnabled());

  struct Case {
    int64_t saved;
    bool dryRun;
    bool savedShown;
    QString savedText;
  };
  for (const Case& c : {Case{0, false, false, ""}, Case{5'000'000, true, true, "You saved 5 MB in total!"},
                        Case{1, false, true, "You saved 1 byte in total!"}}) {
    Preferences::shared().setTotalBytesCleaned(c.saved);
    Preferences::shared().setDryRunEnabled(c.dryRun);  // observers refresh the summary
    EXPECT_EQ(window->savedLineVisible(), c.savedShown) << c.saved;
    EXPECT_EQ(window->donationButtonVisible(), c.savedShown) << c.saved;
    if (c.savedShown) {
      EXPECT_EQ(window->savedText(), c.savedText);
    }
    EXPECT_EQ(window->dryRunBadgeVisible(), c.dryRun);
  }
}

TEST_F(MainWindowTest, TickingASelectedRowTicksEverySelectedRowAndTheSpaceBarTogglesOnce) {
  writeHome();
  start();
  waitForScans(1);
  QTreeView* outline = window->outline();
  outline->expandAll();
  QItemSelectionModel* selection = outline->selectionModel();
  const Location chosen[] = {Location::archives, Location::derivedData, Location::documentationCache};
  for (Location location : chosen) {
    selection->select(locationRow(location), QItemSelectionModel::Select | QItemSelectionModel::Rows);
  }

  window->model().setData(locationRow(Location::derivedData), Qt::Checked, Qt::CheckStateRole);
  for (Location location : chosen) EXPECT_TRUE(ticked(location)) << DevFiles::label(location);
  EXPECT_FALSE(ticked(Location::deviceSupport));

  // A row outside the selection changes alone.
  window->model().setData(locationRow(Location::deviceSupport), Qt::Checked, Qt::CheckStateRole);
  EXPECT_TRUE(ticked(Location::deviceSupport));
  window->model().setData(locationRow(Location::deviceSupport), Qt::Unchecked, Qt::CheckStateRole);
  for (Location location : chosen) EXPECT_TRUE(ticked(location));
  EXPECT_EQ(window->selectedText(), "Selected: " + formatted(window->devFiles()->selectedSize()));

  // Space toggles the selection once: on -> off, not back on.
  selection->setCurrentIndex(locationRow(Location::archives), QItemSelectionModel::NoUpdate);
  outline->setFocus();
  QTest::keyClick(outline, Qt::Key_Space);
  for (Location location : chosen) EXPECT_FALSE(ticked(location)) << DevFiles::label(location);
  QTest::keyClick(outline, Qt::Key_Space);
  for (Location location : chosen) EXPECT_TRUE(ticked(location)) << DevFiles::label(location);
}

TEST_F(MainWindowTest, TheCleanFlowConfirmsRaisesTheTotalDeletesAndRescans) {
  writeHome();
  start();
  waitForScans(1);
  struct Case {
    const char* name;
    bool dryRun;
    Alerts::Response answer;
  };
  int scans = 1;
  for (const Case& c : {Case{"cancel", false, Alerts::Response::second}, Case{"dry run", true, Alerts::Response::first},
                        Case{"real", false, Alerts::Response::first}}) {
    SCOPED_TRACE(c.name);
    Preferences::shared().setDryRunEnabled(c.dryRun);
    window->model().applyCheckState({window->devFiles()->entry(Location::derivedData).get()}, true);
    const int64_t selected = window->devFiles()->selectedSize();
    const int64_t savedBefore = Preferences::shared().totalBytesCleaned();
    alerts.shown.clear();
    alerts.answers = {c.answer};
    log.clear();
    const int playsBefore = sound.plays;

    window->startCleaning();
    ASSERT_EQ(alerts.shown.size(), 1u);
    EXPECT_EQ(alerts.shown[0].message, "Clean selected files");
    EXPECT_EQ(alerts.shown[0].style, Alerts::Style::critical);
    EXPECT_EQ(alerts.shown[0].firstButton, "Clean");
    EXPECT_EQ(alerts.shown[0].secondButton, "Cancel");
    EXPECT_EQ(alerts.shown[0].informativeText.startsWith("Tidewell is running in \"dry run\" mode."), c.dryRun);
    if (c.answer != Alerts::Response::first) {
      EXPECT_EQ(window->cleaningSheet(), nullptr);
      EXPECT_EQ(Preferences::shared().totalBytesCleaned(), savedBefore);
      continue;
    }
    CleaningSheet* sheet = window->cleaningSheet();
    ASSERT_NE(sheet, nullptr);
    EXPECT_EQ(sheet->headingText().startsWith("(Dry run) "), c.dryRun);
    // Raised at confirmation, before the deletion, and never in dry run.
    EXPECT_EQ(Preferences::shared().totalBytesCleaned(), savedBefore + (c.dryRun ? 0 : selected));
    const auto lines = log.lines();
    EXPECT_NE(std::find(lines.begin(), lines.end(),
                        "❕ MainViewController: Total bytes cleaned - " +
                            formatByteCount(Preferences::shared().totalBytesCleaned())),
              lines.end());

    waitForScans(++scans);
    EXPECT_EQ(sound.plays, playsBefore + 1);
    for (const auto& folder : home.derivedDataProjects) EXPECT_EQ(fs::exists(folder), c.dryRun) << folder;
    for (const auto& kept : home.keep) EXPECT_TRUE(fs::exists(kept)) << kept;
  }
}

TEST_F(MainWindowTest, WarningStripCasesAndTheVanishedCustomFolder) {
  // No developer folder at all.
  start();
  EXPECT_TRUE(window->warningVisible());
  EXPECT_EQ(window->warningTitle(), "\"~/Developer\" folder cannot be found");
  EXPECT_EQ(window->warningButtonText(), "Download Xcode");
  EXPECT_EQ(window->devFiles(), nullptr);

  // A developer folder without Xcode's caches cannot be scanned: the access case.
  fs::create_directories(machine.developerFolder());
  window->checkDeveloperFolder();
  EXPECT_EQ(window->warningTitle(), "Access to \"~/Developer\" folder is needed");
  EXPECT_EQ(window->warningBody(),
            "Tidewell needs permission to your Developer folder to scan Xcode cache files & archives");
  EXPECT_EQ(window->warningButtonText(), "Give Access");
  const auto lines = log.lines();
  EXPECT_NE(std::find(lines.begin(), lines.end(),
                      "⚠️ MainViewController: Cannot acquire \"Developer\" folder access! Showing access warning!"),
            lines.end());

  // Give Access after the folders exist; a custom folder that vanished is cleared first.
  writeHome();
  Preferences::shared().setCustomDerivedDataFolder(machine.home() / "Gone/DerivedData");
  window->pressWarningButton();
  EXPECT_FALSE(window->warningVisible());
  EXPECT_EQ(Preferences::shared().customDerivedDataFolder(), std::nullopt);
  const auto after = log.lines();
  EXPECT_NE(std::find(after.begin(), after.end(),
                      "⚠️ Custom derived data folder no longer exists, resetting to default!"),
            after.end());
  waitForScans(1);
  EXPECT_TRUE(window->windowTitle().endsWith(" available to clean"));
}

}  // namespace
}  // namespace tw
