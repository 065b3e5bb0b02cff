#include "ui/MainWindow.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QFrame>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QProgressBar>
#include <QPushButton>
#include <QSettings>
#include <QTimer>
#include <QTreeView>
#include <QVBoxLayout>
#include <algorithm>
#include <filesystem>

#include "app/Logger.h"
#include "app/Preferences.h"
#include "clean/DeletionEngine.h"
#include "fs/Files.h"
#include "platform/ByteCountFormatter.h"
#include "ui/Alerts.h"
#include "ui/BackgroundWork.h"
#include "ui/CleaningSheet.h"
#include "ui/CleanupTreeModel.h"
#include "ui/CompletionSound.h"
#include "ui/EntryDelegates.h"
#include "ui/FileManagerReveal.h"
#include "ui/GuiTaskQueue.h"
#include "ui/Links.h"

namespace tw {
namespace {

QString formatted(int64_t bytes) { return QString::fromStdString(formatByteCount(bytes)); }

constexpr const char* kNotFoundTitle = "\"~/Developer\" folder cannot be found";
constexpr const char* kNotFoundBody =
    "Tidewell main function is to clean unnecessary files in this folder. Without it, it won't be very useful. This "
    "folder is usually created by Xcode during work. Make sure you've installed it.";
constexpr const char* kAccessTitle = "Access to \"~/Developer\" folder is needed";
constexpr const char* kAccessBody =
    "Tidewell needs permission to your Developer folder to scan Xcode cache files & archives";
constexpr const char* kCleanMessage = "Clean selected files";
constexpr const char* kCleanText = "Are you sure to proceed? This can't be undone.";
constexpr const char* kDryRunCleanText =
    "Tidewell is running in \"dry run\" mode. It means that files won't be deleted and nothing will change. If you "
    "want to clean files for real, go to \"Preferences\" and disable dry run mode.";

// The whole scan, on a worker thread. The driver is held by the job, so closing the window
// while it runs frees nothing under it.
void runScan(const std::shared_ptr<DevFiles>& devFiles, std::stop_token stop) {
  const auto& all = DevFiles::allLocations();
  devFiles->scan(std::vector<DevFiles::Location>(all.begin(), all.end()), std::move(stop));
}

void runDeletion(const std::shared_ptr<DevFiles>& devFiles, bool dryRun, std::stop_token stop) {
  deleteSelected(*devFiles, dryRun, std::move(stop));
}

}  // namespace

// Scan notifications arrive through the executor, on the GUI thread.
class MainWindow::ScanRelay : public DevFilesScanDelegate {
 public:
  explicit ScanRelay(MainWindow& window) : window_(window) {}
  void scanStarted(DevFiles& devFiles) override { window_.scanStarted(devFiles); }
  void locationScanned(DevFiles& devFiles, DevFiles::Location location) override {
    window_.locationScanned(devFiles, location);
  }
  void scanFinished(DevFiles& devFiles) override { window_.scanFinished(devFiles); }

 private:
  MainWindow& window_;
};

class MainWindow::PreferencesRelay : public PreferencesObserver {
 public:
  explicit PreferencesRelay(MainWindow& window) : window_(&window) {}
  void preferenceDidChange(const std::string& key) override {
    // Settings written on another thread are answered on the GUI thread.
    QMetaObject::invokeMethod(
        window_, [window = window_, key] { window->preferenceDidChange(key); }, Qt::AutoConnection);
  }

 private:
  MainWindow* window_;
};

MainWindow::MainWindow(Alerts& alerts, CompletionSound& sound, QWidget* parent)
    : QMainWindow(parent), alerts_(alerts), sound_(sound), closeDelay_(CleaningSheet::kDefaultCloseDelay) {
  GuiTaskQueue::shared();  // made here, on the GUI thread, before any worker posts to it
  buildInterface();
  preferencesRelay_ = std::make_shared<PreferencesRelay>(*this);
  Preferences::shared().addObserver(preferencesRelay_);
  warningStrip_->hide();
  refreshSummary();
}

MainWindow::~MainWindow() {
  Preferences::shared().removeObserver(preferencesRelay_);
  dropScanDriver();
}

void MainWindow::buildInterface() {
  setWindowTitle(QStringLiteral("Tidewell"));
  setObjectName(QStringLiteral("MainWindow"));

  // Warning strip: title, body and one action button.
  warningStrip_ = new QFrame(this);
  warningStrip_->setObjectName(QStringLiteral("WarningStrip"));
  warningStrip_->setFrameShape(QFrame::StyledPanel);
  warningStrip_->setBackgroundRole(QPalette::AlternateBase);
  warningStrip_->setAutoFillBackground(true);
  warningTitle_ = new QLabel(warningStrip_);
  QFont titleFont = warningTitle_->font();
  titleFont.setBold(true);
  warningTitle_->setFont(titleFont);
  warningBody_ = new QLabel(warningStrip_);
  warningBody_->setWordWrap(true);
  warningButton_ = new QPushButton(warningStrip_);
  connect(warningButton_, &QPushButton::clicked, this, &MainWindow::pressWarningButton);
  auto* warningText = new QVBoxLayout;
  warningText->addWidget(warningTitle_);
  warningText->addWidget(warningBody_);
  auto* warningLayout = new QHBoxLayout(warningStrip_);
  warningLayout->setContentsMargins(14, 10, 14, 10);
  warningLayout->addLayout(warningText, 1);
  warningLayout->addWidget(warningButton_, 0, Qt::AlignVCenter);

  // The outline: two columns, the tree's own order, several rows selectable.
  model_ = new CleanupTreeModel(this);
  outline_ = new QTreeView(this);
  outline_->setObjectName(QStringLiteral("Outline"));
  outline_->setAccessibleName(QStringLiteral("Cleanable items"));
  outline_->setModel(model_);
  outline_->setItemDelegateForColumn(CleanupTreeModel::itemColumn, new EntryItemDelegate(outline_));
  outline_->setItemDelegateForColumn(CleanupTreeModel::sizeColumn, new SizeDelegate(outline_));
  outline_->setSelectionMode(QAbstractItemView::ExtendedSelection);
  outline_->setSelectionBehavior(QAbstractItemView::SelectRows);
  outline_->setSortingEnabled(false);
  outline_->setUniformRowHeights(true);
  outline_->setAlternatingRowColors(true);
  outline_->setEditTriggers(QAbstractItemView::NoEditTriggers);
  outline_->setIconSize(QSize(18, 18));
  outline_->header()->setStretchLastSection(false);
  outline_->header()->setSectionResizeMode(CleanupTreeModel::itemColumn, QHeaderView::Stretch);
  outline_->header()->setSectionResizeMode(CleanupTreeModel::sizeColumn, QHeaderView::Interactive);
  outline_->header()->resizeSection(CleanupTreeModel::sizeColumn, 110);
  outline_->setContextMenuPolicy(Qt::CustomContextMenu);
  outline_->installEventFilter(this);
  connect(outline_, &QWidget::customContextMenuRequested, this, &MainWindow::showContextMenu);
  connect(model_, &CleanupTreeModel::checkRequested, this, &MainWindow::setRowChecked);

  contextMenu_ = new QMenu(this);
  revealAction_ = contextMenu_->addAction(QIcon::fromTheme(QStringLiteral("system-file-manager")),
                                          QStringLiteral("Show in &Files"));
  connect(revealAction_, &QAction::triggered, this, [this] { revealRow(contextIndex_); });

  // The spinner of scanning rows turns while anything is scanned.
  auto* spinnerTimer = new QTimer(this);
  spinnerTimer->setInterval(60);
  connect(spinnerTimer, &QTimer::timeout, this, [this] {
    if (scanRunning_) outline_->viewport()->update();
  });
  spinnerTimer->start();

  // Bottom bar: totals on the left, the reclaimed total and donation in the middle, actions right.
  totalLabel_ = new QLabel(this);
  totalLabel_->setObjectName(QStringLiteral("TotalLine"));
  selectedLabel_ = new QLabel(this);
  selectedLabel_->setObjectName(QStringLiteral("SelectedLine"));
  savedLabel_ = new QLabel(this);
  savedLabel_->setObjectName(QStringLiteral("SavedLine"));
  savedLabel_->setForegroundRole(QPalette::PlaceholderText);
  donationButton_ = new QPushButton(QStringLiteral("Buy Me a &Coffee"), this);
  donationButton_->setFlat(true);
  donationButton_->setToolTip(QStringLiteral("Support Tidewell's development"));
  connect(donationButton_, &QPushButton::clicked, this,
          [] { openInDesktop(QUrl(QString::fromLatin1(links::donationPage))); });
  loadingIndicator_ = new QProgressBar(this);
  loadingIndicator_->setRange(0, 0);
  loadingIndicator_->setMaximumWidth(120);
  loadingIndicator_->setTextVisible(false);
  loadingIndicator_->setAccessibleName(QStringLiteral("Starting scan"));
  rescanButton_ = new QPushButton(QStringLiteral("&Rescan"), this);
  rescanButton_->setToolTip(QStringLiteral("Scan everything again (Ctrl+R)"));
  cleanButton_ = new QPushButton(QStringLiteral("C&lean…"), this);
  cleanButton_->setObjectName(QStringLiteral("CleanButton"));
  cleanButton_->setDefault(true);
  cleanButton_->setToolTip(QStringLiteral("Delete the ticked items"));
  connect(cleanButton_, &QPushButton::clicked, this, &MainWindow::startCleaning);

  auto* totals = new QVBoxLayout;
  totals->setSpacing(2);
  totals->addWidget(totalLabel_);
  totals->addWidget(selectedLabel_);
  auto* bottom = new QHBoxLayout;
  bottom->setContentsMargins(12, 8, 12, 10);
  bottom->addLayout(totals);
  bottom->addStretch(1);
  bottom->addWidget(savedLabel_);
  bottom->addWidget(donationButton_);
  bottom->addStretch(1);
  bottom->addWidget(loadingIndicator_);
  bottom->addWidget(rescanButton_);
  bottom->addWidget(cleanButton_);

  auto* central = new QWidget(this);
  auto* layout = new QVBoxLayout(central);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  layout->addWidget(warningStrip_);
  layout->addWidget(outline_, 1);
  layout->addLayout(bottom);
  setCentralWidget(central);

  // Menu commands of the window itself (the application menu is AppDelegate's).
  QMenu* scanMenu = menuBar()->addMenu(QStringLiteral("&Scan"));
  rescanAction_ = scanMenu->addAction(QStringLiteral("&Rescan"), this, &MainWindow::startScan);
  rescanAction_->setShortcut(QKeySequence::Refresh);
  rescanAction_->setShortcuts({QKeySequence(Qt::CTRL | Qt::Key_R), QKeySequence(Qt::Key_F5)});
  connect(rescanButton_, &QPushButton::clicked, rescanAction_, &QAction::trigger);
  cleanAction_ = scanMenu->addAction(QStringLiteral("&Clean Selected…"), this, &MainWindow::startCleaning);
  cleanAction_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Backspace));
  scanMenu->addSeparator();
  QAction* expand = scanMenu->addAction(QStringLiteral("&Expand All"), outline_, &QTreeView::expandAll);
  expand->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Plus));
  QAction* collapse = scanMenu->addAction(QStringLiteral("C&ollapse All"), outline_, &QTreeView::collapseAll);
  collapse->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Minus));

  // The dry-run badge, at the trailing end of the menu bar (the window's title area).
  dryRunBadge_ = new QLabel(QStringLiteral("DRY MODE"), this);
  dryRunBadge_->setObjectName(QStringLiteral("DryRunBadge"));
  dryRunBadge_->setAlignment(Qt::AlignCenter);
  dryRunBadge_->setAccessibleName(QStringLiteral("Dry run mode is on"));
  dryRunBadge_->setToolTip(QStringLiteral("Dry run: cleaning only logs what it would delete"));
  QFont badgeFont = dryRunBadge_->font();
  badgeFont.setBold(true);
  badgeFont.setPointSizeF(badgeFont.pointSizeF() * 0.75);
  dryRunBadge_->setFont(badgeFont);
  // The one fixed colour of the window: the badge must read as a warning in any palette.
  dryRunBadge_->setStyleSheet(
      QStringLiteral("QLabel#DryRunBadge { background: #f0860e; color: white; border-radius: 4px; padding: 1px 8px; "
                     "margin: 4px 8px; }"));
  menuBar()->setCornerWidget(dryRunBadge_, Qt::TopRightCorner);

  for (QWidget* widget : std::initializer_list<QWidget*>{totalLabel_, selectedLabel_, savedLabel_}) {
    widget->setAccessibleName(QStringLiteral("Summary"));
  }
  warningButton_->setAccessibleName(QStringLiteral("Warning action"));
  cleanButton_->setAccessibleName(QStringLiteral("Clean selected items"));
  rescanButton_->setAccessibleName(QStringLiteral("Rescan"));
  donationButton_->setAccessibleName(QStringLiteral("Donate"));

  // Size and column widths as the user left them.
  QSettings settings;
  resize(820, 560);
  restoreGeometry(settings.value(QStringLiteral("MainWindow/geometry")).toByteArray());
  const QByteArray header = settings.value(QStringLiteral("MainWindow/columns")).toByteArray();
  if (!header.isEmpty()) outline_->header()->restoreState(header);
}

void MainWindow::saveLayout() {
  QSettings settings;
  settings.setValue(QStringLiteral("MainWindow/geometry"), saveGeometry());
  settings.setValue(QStringLiteral("MainWindow/columns"), outline_->header()->saveState());
}

void MainWindow::scheduleDeveloperFolderCheck() {
  // After the window is on screen: the check may open the folder panel over it.
  QTimer::singleShot(0, this, &MainWindow::checkDeveloperFolder);
}

void MainWindow::checkDeveloperFolder() {
  std::error_code error;
  if (!std::filesystem::exists(Files::developerFolder(), error)) {
    showWarning(WarningCase::notFound);
    return;
  }
  setUpScanDriver();
}

void MainWindow::showWarning(WarningCase which) {
  warningCase_ = which;
  const bool notFound = which == WarningCase::notFound;
  warningTitle_->setText(QString::fromUtf8(notFound ? kNotFoundTitle : kAccessTitle));
  warningBody_->setText(QString::fromUtf8(notFound ? kNotFoundBody : kAccessBody));
  warningButton_->setText(notFound ? QStringLiteral("Download Xcode") : QStringLiteral("Give Access"));
  warningStrip_->setAccessibleName(warningTitle_->text());
  warningStrip_->show();
  loadingIndicator_->hide();  // no scan follows until the warning is resolved
}

void MainWindow::pressWarningButton() {
  if (warningCase_ == WarningCase::notFound) {
    openInDesktop(QUrl(QString::fromLatin1(links::xcodeDownloadPage)));
  } else {
    setUpScanDriver();
  }
}

DevFiles::Executor MainWindow::guiExecutor() {
  // A task whose window is gone does nothing (the driver also checks that its delegate is still
  // there).
  return [window = QPointer<MainWindow>(this)](std::function<void()> task) {
    GuiTaskQueue::shared().post([window, task = std::move(task)] {
      if (window) task();
    });
  };
}

void MainWindow::setUpScanDriver() {
  if (devFiles_) return;
  Preferences& preferences = Preferences::shared();
  std::error_code error;
  if (auto folder = preferences.customDerivedDataFolder(); folder && !std::filesystem::exists(*folder, error)) {
    log::warning("Custom derived data folder no longer exists, resetting to default!");
    preferences.setCustomDerivedDataFolder(std::nullopt);
  }
  if (auto folder = preferences.customArchivesFolder(); folder && !std::filesystem::exists(*folder, error)) {
    log::warning("Custom archives folder no longer exists, resetting to default!");
    preferences.setCustomArchivesFolder(std::nullopt);
  }

  FolderAccessPanel panel(alerts_, this);
  std::shared_ptr<DevFiles> created;
  if (auto developer = Files::developerFolderGrant(Preferences::shared(), &panel)) {
    auto derivedData = Files::customDerivedDataFolderGrant(Preferences::shared(), &panel);
    auto archives = Files::customArchivesFolderGrant(Preferences::shared(), &panel);
    auto made = DevFiles::create(*developer, derivedData, archives, guiExecutor());
    if (made) created = *made;  // a refusal has been logged by the driver
  }
  if (created) {
    scanRelay_ = std::make_shared<ScanRelay>(*this);
    created->setScanDelegate(scanRelay_);
    devFiles_ = created;
    model_->setDevFiles(devFiles_);
    warningStrip_->hide();
    startScan();
    return;
  }
  log::warning("MainViewController: Cannot acquire \"Developer\" folder access! Showing access warning!");
  showWarning(WarningCase::access);
}

void MainWindow::startScan() {
  // One scan at a time: the running one refills the same tree. Nor while a deletion reads the
  // tree: the sheet asks for the rescan once the engine has finished.
  if (!devFiles_ || scanRunning_ || cleaning_) return;
  model_->prepareScan();
  scanRunning_ = true;
  rescanAction_->setEnabled(false);
  rescanButton_->setEnabled(false);
  refreshSummary();
  scanStop_ = BackgroundWork::shared().start([devFiles = devFiles_](std::stop_token stop) { runScan(devFiles, stop); });
}

void MainWindow::scanStarted(DevFiles&) {
  model_->scanStarted();
  loadingIndicator_->hide();
  cleanButton_->setEnabled(false);
  refreshSummary();
}

void MainWindow::locationScanned(DevFiles&, DevFiles::Location location) {
  model_->locationScanned(location);
  refreshSummary();
}

void MainWindow::scanFinished(DevFiles&) {
  model_->scanFinished();
  scanRunning_ = false;
  rescanAction_->setEnabled(true);
  rescanButton_->setEnabled(true);
  loadingIndicator_->hide();
  cleanButton_->setEnabled(true);
  refreshSummary();
  emit scanCompleted();
}

void MainWindow::refreshSummary() {
  Preferences& preferences = Preferences::shared();
  dryRunBadge_->setVisible(preferences.dryRunEnabled());

  if (devFiles_ && devFiles_->state() == DevFiles::State::scanComplete && !scanRunning_) {
    const QString total = formatted(devFiles_->totalSize());
    totalLabel_->setText(QStringLiteral("Total: ") + total);
    setWindowTitle(QStringLiteral("Tidewell - ") + total + QStringLiteral(" available to clean"));
  } else {
    totalLabel_->setText(QStringLiteral("Total: ") + formatted(0));
    setWindowTitle(QStringLiteral("Tidewell"));
  }

  const int64_t selected = devFiles_ ? devFiles_->selectedSize() : 0;
  selectedLabel_->setText(QStringLiteral("Selected: ") + formatted(selected));
  const bool idle = devFiles_ && !scanRunning_ && !cleaning_;
  rescanAction_->setEnabled(idle);
  rescanButton_->setEnabled(idle);
  const bool canClean = selected >= 1 && idle;
  cleanButton_->setEnabled(canClean);
  cleanAction_->setEnabled(canClean);

  const int64_t saved = preferences.totalBytesCleaned();
  savedLabel_->setVisible(saved >= 1);
  donationButton_->setVisible(saved >= 1);
  if (saved >= 1) savedLabel_->setText(QStringLiteral("You saved ") + formatted(saved) + QStringLiteral(" in total!"));
}

void MainWindow::setRowChecked(const QModelIndex& index, bool on) {
  CleanupEntry* entry = model_->entry(index);
  if (!entry) return;
  // The row alone first, then, when it is part of the selection, every selected row.
  model_->applyCheckState({entry}, on);
  QModelIndexList selected = outline_->selectionModel()->selectedRows(CleanupTreeModel::itemColumn);
  std::sort(selected.begin(), selected.end(), [this](const QModelIndex& a, const QModelIndex& b) {
    return outline_->visualRect(a).top() < outline_->visualRect(b).top();
  });
  std::vector<CleanupEntry*> rows;
  bool among = false;
  for (const QModelIndex& row : selected) {
    CleanupEntry* rowEntry = model_->entry(row);
    if (!rowEntry || !isTickable(*rowEntry)) continue;
    rows.push_back(rowEntry);
    among = among || rowEntry == entry;
  }
  if (among) model_->applyCheckState(rows, on);
  refreshSummary();
}

void MainWindow::toggleSelectedRow() {
  QModelIndex row = outline_->currentIndex().siblingAtColumn(CleanupTreeModel::itemColumn);
  if (!row.isValid() || !outline_->selectionModel()->isRowSelected(row.row(), row.parent())) {
    const QModelIndexList selected = outline_->selectionModel()->selectedRows(CleanupTreeModel::itemColumn);
    if (selected.isEmpty()) return;
    row = selected.constFirst();
  }
  CleanupEntry* entry = model_->entry(row);
  if (!entry || !isTickable(*entry)) return;
  setRowChecked(row, entry->selection() != CleanupEntry::Selection::on);
}

bool MainWindow::eventFilter(QObject* watched, QEvent* event) {
  if (watched == outline_ && event->type() == QEvent::KeyPress) {
    auto* key = static_cast<QKeyEvent*>(event);
    if (key->key() == Qt::Key_Space && key->modifiers() == Qt::NoModifier) {
      // Handled here and consumed, so the view's own space handling cannot toggle it again.
      if (!key->isAutoRepeat()) toggleSelectedRow();
      return true;
    }
  }
  return QMainWindow::eventFilter(watched, event);
}

void MainWindow::showContextMenu(const QPoint& position) {
  const QModelIndex index = outline_->indexAt(position);
  contextIndex_ = index;
  const CleanupEntry* entry = model_->entry(index);
  revealAction_->setEnabled(entry && !entry->displayPaths().empty());
  contextMenu_->popup(outline_->viewport()->mapToGlobal(position));
}

void MainWindow::revealRow(const QModelIndex& index) {
  const CleanupEntry* entry = model_->entry(index);
  if (!entry) return;
  revealInFileManager(entry->displayPaths());
}

void MainWindow::startCleaning() {
  if (!devFiles_ || scanRunning_ || cleaning_) return;
  Preferences& preferences = Preferences::shared();
  const bool dryRun = preferences.dryRunEnabled();
  const auto response = alerts_.run(this, Alerts::Style::critical, QString::fromUtf8(kCleanMessage),
                                    QString::fromUtf8(dryRun ? kDryRunCleanText : kCleanText), QStringLiteral("Clean"),
                                    QStringLiteral("Cancel"));
  if (response != Alerts::Response::first) return;

  auto* sheet = new CleaningSheet(this, alerts_, sound_, dryRun, closeDelay_);
  sheet->setObjectName(QStringLiteral("CleaningSheet"));
  sheet->setState(CleaningState::idle(QStringLiteral("Initialization..."), 0));
  connect(sheet, &CleaningSheet::rescanRequested, this, [this] {
    cleaning_ = false;
    startScan();
  });
  cleaning_ = true;
  cleaningRelay_ = std::make_shared<CleaningRelay>(sheet);
  devFiles_->setDeleteDelegate(cleaningRelay_);

  // The lifetime total grows by what is ticked when the user confirms, never in dry run.
  if (!dryRun) preferences.addToTotalBytesCleaned(devFiles_->selectedSize());
  log::info("MainViewController: Total bytes cleaned - " + formatByteCount(preferences.totalBytesCleaned()));

  cleanButton_->setEnabled(false);
  sheet->open();
  sheet->setStopSource(BackgroundWork::shared().start(
      [devFiles = devFiles_, dryRun](std::stop_token stop) { runDeletion(devFiles, dryRun, stop); }));
}

CleaningSheet* MainWindow::cleaningSheet() const { return findChild<CleaningSheet*>(QStringLiteral("CleaningSheet")); }

void MainWindow::preferenceDidChange(const std::string& key) {
  if (key == Preferences::Keys::customArchivesFolder || key == Preferences::Keys::customDerivedDataFolder) {
    if (devFiles_ && !scanRunning_ && !cleaning_) {
      FolderAccessPanel panel(alerts_, this);
      devFiles_->updateCustomFolders(Files::customDerivedDataFolderGrant(Preferences::shared(), &panel),
                                     Files::customArchivesFolderGrant(Preferences::shared(), &panel));
      startScan();
    }
  }
  refreshSummary();
}

void MainWindow::dropScanDriver() {
  // The worker keeps its own reference: stopping is only asked for, never waited on here.
  scanStop_.request_stop();
  model_->setDevFiles(nullptr);
  devFiles_.reset();
  scanRelay_.reset();
}

void MainWindow::closeEvent(QCloseEvent* event) {
  saveLayout();
  dropScanDriver();
  QMainWindow::closeEvent(event);
}

QString MainWindow::totalText() const { return totalLabel_->text(); }
QString MainWindow::selectedText() const { return selectedLabel_->text(); }
QString MainWindow::savedText() const { return savedLabel_->text(); }
bool MainWindow::savedLineVisible() const { return !savedLabel_->isHidden(); }
bool MainWindow::donationButtonVisible() const { return !donationButton_->isHidden(); }
bool MainWindow::cleanButtonEnabled() const { return cleanButton_->isEnabled(); }
bool MainWindow::dryRunBadgeVisible() const { return !dryRunBadge_->isHidden(); }
bool MainWindow::warningVisible() const { return !warningStrip_->isHidden(); }
QString MainWindow::warningTitle() const { return warningTitle_->text(); }
QString MainWindow::warningBody() const { return warningBody_->text(); }
QString MainWindow::warningButtonText() const { return warningButton_->text(); }

}  // namespace tw
