// The main window's controller on a generated home, offscreen: scan, summary, ticks, the clean
// flow and the warning strip.
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
  bool logged(const std::string& line) { return std::ranges::count(log.lines(), line) > 0; }

  test::TestMachine machine;
  test::FixtureHome home;
  test::ScriptedAlerts alerts;
  test::CountingSound sound;
  test::LogCapture log;
  std::unique_ptr<MainWindow> window;
  std::unique_ptr<QSignalSpy> spy;
};

TEST_F(MainWindowTest, AScanFillsTheOutlineAndTheSummaryAndTicksFollowTheUser) {
  writeHome();
  start();
  EXPECT_EQ(window->windowTitle(), "Tidewell");
  waitForScans(1);
  const auto& devFiles = window->devFiles();
  const QString total = formatted(devFiles->totalSize());
  EXPECT_EQ(window->windowTitle(), "Tidewell - " + total + " available to clean");
  EXPECT_EQ(window->totalText(), "Total: " + total);
  EXPECT_FALSE(window->warningVisible());
  EXPECT_EQ(alerts.panels, 0) << "an accessible developer folder needs no panel";
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
    EXPECT_EQ(window->savedLineVisible(), saved > 0) << saved;
    EXPECT_EQ(window->donationButtonVisible(), saved > 0) << saved;
    EXPECT_TRUE(saved == 0 || window->savedText() == savedText) << window->savedText().toStdString();
    EXPECT_EQ(window->dryRunBadgeVisible(), dryRun);
  }

  // Ticking a selected row ticks every selected row; the space bar toggles them once.
  QTreeView* outline = window->outline();
  outline->expandAll();
  QItemSelectionModel* selection = outline->selectionModel();
  const Location chosen[] = {Location::archives, Location::derivedData, Location::documentationCache};
  for (Location location : chosen)
    selection->select(locationRow(location), QItemSelectionModel::Select | QItemSelectionModel::Rows);

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
  int scans = 1;
  // Cancelled, confirmed in dry run, confirmed for real.
  for (const auto& [dryRun, answer] :
       {std::pair{false, Alerts::Response::second}, std::pair{true, Alerts::Response::first},
        std::pair{false, Alerts::Response::first}}) {
    SCOPED_TRACE(scans);
    Preferences::shared().setDryRunEnabled(dryRun);
    window->model().applyCheckState({window->devFiles()->entry(Location::derivedData).get()}, true);
    const int64_t selected = window->devFiles()->selectedSize();
    const int64_t savedBefore = Preferences::shared().totalBytesCleaned();
    alerts.shown.clear();
    alerts.answers = {answer};
    log.clear();
    const int playsBefore = sound.plays;

    window->startCleaning();
    ASSERT_EQ(alerts.shown.size(), 1u);
    const auto& shown = alerts.shown[0];
    EXPECT_EQ(QStringList({shown.message, shown.firstButton, shown.secondButton}),
              QStringList({"Clean selected files", "Clean", "Cancel"}));
    EXPECT_EQ(shown.style, Alerts::Style::critical);
    EXPECT_EQ(shown.informativeText.startsWith("Tidewell is running in \"dry run\" mode."), dryRun);
    if (answer != Alerts::Response::first) {
      EXPECT_EQ(window->cleaningSheet(), nullptr);
      EXPECT_EQ(Preferences::shared().totalBytesCleaned(), savedBefore);
      continue;
    }
    CleaningSheet* sheet = window->cleaningSheet();
    ASSERT_NE(sheet, nullptr);
    EXPECT_EQ(sheet->headingText().startsWith("(Dry run) "), dryRun);
    // Raised at confirmation, before the deletion, and never in dry run.
    EXPECT_EQ(Preferences::shared().totalBytesCleaned(), savedBefore + (dryRun ? 0 : selected));
    EXPECT_TRUE(logged("❕ MainViewController: Total bytes cleaned - " +
                       formatByteCount(Preferences::shared().totalBytesCleaned())));

    waitForScans(++scans);
    EXPECT_EQ(sound.plays, playsBefore + 1);
    for (const auto& folder : home.derivedDataProjects) EXPECT_EQ(fs::exists(folder), dryRun) << folder;
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
  EXPECT_TRUE(logged("⚠️ MainViewController: Cannot acquire \"Developer\" folder access! Showing access warning!"));

  // Give Access after the folders exist; a custom folder that vanished is cleared first.
  writeHome();
  Preferences::shared().setCustomDerivedDataFolder(machine.home() / "Gone/DerivedData");
  window->pressWarningButton();
  EXPECT_FALSE(window->warningVisible());
  EXPECT_EQ(Preferences::shared().customDerivedDataFolder(), std::nullopt);
  EXPECT_TRUE(logged("⚠️ Custom derived data folder no longer exists, resetting to default!"));
  waitForScans(1);
  EXPECT_TRUE(window->windowTitle().endsWith(" available to clean"));
}

}  // namespace
}  // namespace tw
