// The main window and its controller: the outline of cleanable items over CleanupTreeModel, the
// warning strip for a missing or inaccessible developer folder, the totals line, the window
// title, the dry-run badge and the clean button. It owns the scan driver, runs scans and
// deletions on worker threads (BackgroundWork) and receives the scan notifications through the
// driver's executor, which posts them into the Qt event loop. Modal questions go through Alerts.
#pragma once

#include <QMainWindow>
#include <QPersistentModelIndex>
#include <QString>
#include <chrono>
#include <memory>
#include <stop_token>

#include "scan/DevFiles.h"

class QLabel;
class QMenu;
class QProgressBar;
class QPushButton;
class QTreeView;
class QFrame;
class QAction;

namespace tw {

class Alerts;
class CleaningSheet;
class CleaningRelay;
class CleanupTreeModel;
class CompletionSound;

class MainWindow : public QMainWindow {
  Q_OBJECT

 public:
  enum class WarningCase { notFound, access };

  MainWindow(Alerts& alerts, CompletionSound& sound, QWidget* parent = nullptr);
  ~MainWindow() override;

  // Start-up: looks for the developer folder after the window is shown, on a later event.
  void scheduleDeveloperFolderCheck();
  void checkDeveloperFolder();
  void setUpScanDriver();
  void startScan();
  void refreshSummary();
  void startCleaning();
  void revealRow(const QModelIndex& index);
  // Ticks or unticks the row, and every selected row when it is one of them.
  void setRowChecked(const QModelIndex& index, bool on);
  // The space bar: toggles the current selected row's box once, as a click would.
  void toggleSelectedRow();

  // How long the cleaning sheet stays after "Finished!" (tests shorten it).
  void setCleaningCloseDelay(std::chrono::milliseconds delay) { closeDelay_ = delay; }

  // What the window shows, for tests and the test driver.
  CleanupTreeModel& model() const { return *model_; }
  QTreeView* outline() const { return outline_; }
  QString totalText() const;
  QString selectedText() const;
  QString savedText() const;
  bool savedLineVisible() const;
  bool donationButtonVisible() const;
  bool cleanButtonEnabled() const;
  bool dryRunBadgeVisible() const;
  bool warningVisible() const;
  QString warningTitle() const;
  QString warningBody() const;
  QString warningButtonText() const;
  void pressWarningButton();
  CleaningSheet* cleaningSheet() const;
  QAction* rescanAction() const { return rescanAction_; }
  const std::shared_ptr<DevFiles>& devFiles() const { return devFiles_; }
  bool isScanRunning() const { return scanRunning_; }

  // Warning strip cases.
  void showWarning(WarningCase which);

 signals:
  void scanCompleted();

 protected:
  void closeEvent(QCloseEvent* event) override;
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  class ScanRelay;
  class PreferencesRelay;
  friend class ScanRelay;
  friend class PreferencesRelay;

  void buildInterface();
  void scanStarted(DevFiles& devFiles);
  void locationScanned(DevFiles& devFiles, DevFiles::Location location);
  void scanFinished(DevFiles& devFiles);
  void preferenceDidChange(const std::string& key);
  void showContextMenu(const QPoint& position);
  DevFiles::Executor guiExecutor();
  void dropScanDriver();
  void saveLayout();

  Alerts& alerts_;
  CompletionSound& sound_;
  std::chrono::milliseconds closeDelay_;
  std::shared_ptr<DevFiles> devFiles_;
  std::shared_ptr<ScanRelay> scanRelay_;
  std::shared_ptr<PreferencesRelay> preferencesRelay_;
  std::shared_ptr<CleaningRelay> cleaningRelay_;
  std::stop_source scanStop_;
  bool scanRunning_ = false;
  bool cleaning_ = false;  // from the confirmation until the engine has finished
  WarningCase warningCase_ = WarningCase::access;

  CleanupTreeModel* model_ = nullptr;
  QTreeView* outline_ = nullptr;
  QFrame* warningStrip_ = nullptr;
  QLabel* warningTitle_ = nullptr;
  QLabel* warningBody_ = nullptr;
  QPushButton* warningButton_ = nullptr;
  QLabel* totalLabel_ = nullptr;
  QLabel* selectedLabel_ = nullptr;
  QLabel* savedLabel_ = nullptr;
  QPushButton* donationButton_ = nullptr;
  QPushButton* rescanButton_ = nullptr;
  QPushButton* cleanButton_ = nullptr;
  QProgressBar* loadingIndicator_ = nullptr;
  QLabel* dryRunBadge_ = nullptr;
  QMenu* contextMenu_ = nullptr;
  QAction* revealAction_ = nullptr;
  QAction* rescanAction_ = nullptr;
  QAction* cleanAction_ = nullptr;
  QPersistentModelIndex contextIndex_;
};

}  // namespace tw
