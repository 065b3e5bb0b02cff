#include "ui/TestDriver.h"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDateTime>
#include <QFile>
#include <QItemSelectionModel>
#include <QMessageBox>
#include <QPainter>
#include <QStyleFactory>
#include <QTimer>
#include <QTreeView>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>

#include "app/Preferences.h"
#include "ui/AppDelegate.h"
#include "ui/CleaningSheet.h"
#include "ui/CleanupTreeModel.h"
#include "ui/InstallSheet.h"
#include "ui/MainWindow.h"
#include "ui/PreferencesWindow.h"

namespace tw {
namespace {

constexpr qint64 kStepTimeoutMs = 120000;

QModelIndex findLabel(const CleanupTreeModel& model, const QString& label, const QModelIndex& parent = {}) {
  for (int row = 0; row < model.rowCount(parent); ++row) {
    const QModelIndex index = model.index(row, CleanupTreeModel::itemColumn, parent);
    if (index.data(Qt::DisplayRole).toString() == label) return index;
    const QModelIndex below = findLabel(model, label, index);
    if (below.isValid()) return below;
  }
  return {};
}

QPalette darkPalette() {
  // Fusion outlines check boxes with the window colour darkened, so the views' base is kept
  // lighter than the window for the boxes to show.
  QPalette palette;
  const QColor window(0x26, 0x28, 0x2b), base(0x33, 0x35, 0x39), text(0xe8, 0xe8, 0xea), dim(0x70, 0x73, 0x79);
  palette.setColor(QPalette::Window, window);
  palette.setColor(QPalette::WindowText, text);
  palette.setColor(QPalette::Base, base);
  palette.setColor(QPalette::AlternateBase, QColor(0x39, 0x3b, 0x40));
  palette.setColor(QPalette::Text, text);
  palette.setColor(QPalette::Button, QColor(0x3a, 0x3d, 0x42));
  palette.setColor(QPalette::ButtonText, text);
  palette.setColor(QPalette::Highlight, QColor(0x2f, 0x6f, 0xcf));
  palette.setColor(QPalette::HighlightedText, Qt::white);
  palette.setColor(QPalette::PlaceholderText, QColor(0x9a, 0x9d, 0xa3));
  palette.setColor(QPalette::ToolTipBase, window);
  palette.setColor(QPalette::ToolTipText, text);
  for (auto role : {QPalette::Text, QPalette::WindowText, QPalette::ButtonText}) {
    palette.setColor(QPalette::Disabled, role, dim);
  }
  return palette;
}

// The preferences window once the menu command has shown it.
ui::PreferencesWindow* shownPreferences() {
  for (QWidget* widget : QApplication::topLevelWidgets()) {
    if (auto* preferences = qobject_cast<ui::PreferencesWindow*>(widget); preferences && preferences->isVisible())
      return preferences;
  }
  return nullptr;
}

bool save(const QPixmap& pixmap, const QString& file) { return pixmap.save(file, "PNG"); }

// A sheet as it sits on its window: the window's picture with the sheet below its title area.
QPixmap withSheet(QWidget& window, QWidget& sheet) {
  QPixmap picture = window.grab();
  QPainter painter(&picture);
  painter.fillRect(picture.rect(), QColor(0, 0, 0, 60));
  const QPixmap sheetPicture = sheet.grab();
  const int x = (picture.width() - sheetPicture.width()) / 2;
  painter.setPen(QColor(0, 0, 0, 90));
  painter.drawRect(QRect(QPoint(x - 1, 27), sheetPicture.size() + QSize(1, 1)));
  painter.drawPixmap(x, 28, sheetPicture);
  return picture;
}

}  // namespace

std::unique_ptr<TestDriver> TestDriver::fromEnvironment(MainWindow& window, AppDelegate& delegate) {
  const char* script = std::getenv("TIDEWELL_TEST_WINDOW_SCRIPT");
  if (!script || !*script) return nullptr;
  QFile file(QString::fromLocal8Bit(script));
  if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
    std::fprintf(stderr, "TestDriver: cannot read %s\n", script);
    return nullptr;
  }
  QStringList steps;
  for (const QString& line : QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'))) {
    if (!line.trimmed().isEmpty() && !line.startsWith(QLatin1Char('#'))) steps << line.trimmed();
  }
  return std::make_unique<TestDriver>(window, delegate, steps);
}

TestDriver::TestDriver(MainWindow& window, AppDelegate& delegate, QStringList steps)
    : window_(window), delegate_(delegate), steps_(std::move(steps)) {
  connect(&window_, &MainWindow::scanCompleted, this, [this] { ++scansCompleted_; });
  timer_ = new QTimer(this);
  timer_->setInterval(20);
  connect(timer_, &QTimer::timeout, this, &TestDriver::poll);
  timer_->start();
  stepStarted_ = QDateTime::currentMSecsSinceEpoch();
}

void TestDriver::say(const QString& line) {
  std::fputs((line + QLatin1Char('\n')).toUtf8().constData(), stdout);
  std::fflush(stdout);
}

void TestDriver::poll() {
  // Steps run one by one; a step that waits is asked again on the next tick, also while a
  // modal dialog runs its own event loop.
  while (next_ < steps_.size()) {
    if (!run(steps_[next_])) {
      if (QDateTime::currentMSecsSinceEpoch() - stepStarted_ > kStepTimeoutMs) {
        say(QStringLiteral("timeout: ") + steps_[next_]);
        std::fflush(stdout);
        std::_Exit(3);
      }
      return;
    }
    ++next_;
    stepStarted_ = QDateTime::currentMSecsSinceEpoch();
  }
  timer_->stop();
}

bool TestDriver::run(const QString& step) {
  const QString verb = step.section(QLatin1Char(' '), 0, 0);
  const QString argument = step.section(QLatin1Char(' '), 1);
  if (verb == QLatin1String("wait-scans")) return scansCompleted_ >= argument.toInt();
  if (verb == QLatin1String("print")) {
    QString value;
    if (argument == QLatin1String("title")) value = window_.windowTitle();
    if (argument == QLatin1String("total")) value = window_.totalText();
    if (argument == QLatin1String("selected")) value = window_.selectedText();
    if (argument == QLatin1String("saved")) value = window_.savedLineVisible() ? window_.savedText() : QString();
    if (argument == QLatin1String("badge"))
      value = window_.dryRunBadgeVisible() ? QStringLiteral("shown") : QStringLiteral("hidden");
    if (argument == QLatin1String("warning")) value = window_.warningVisible() ? window_.warningTitle() : QString();
    if (argument == QLatin1String("preferences")) {
      ui::PreferencesWindow* preferences = shownPreferences();
      if (!preferences) return false;
      const bool on = preferences->notificationsEnabledButton()->isChecked();
      value = QStringLiteral("reminders %1 | %2 | pop-up %3 | dry run %4")
                  .arg(on ? QStringLiteral("on") : QStringLiteral("off"),
                       preferences->notificationsPeriodPopUpButton()->currentText(),
                       preferences->notificationsPeriodPopUpButton()->isEnabled() ? QStringLiteral("enabled")
                                                                                  : QStringLiteral("disabled"),
                       preferences->dryRunEnabledButton()->isChecked() ? QStringLiteral("on") : QStringLiteral("off"));
    }
    if (argument == QLatin1String("sheet")) {
      CleaningSheet* sheet = window_.cleaningSheet();
      value = sheet ? sheet->headingText() + QStringLiteral(" | ") + sheet->currentText() : QString();
    }
    say(argument + QStringLiteral(": ") + value);
    return true;
  }
  if (verb == QLatin1String("tick")) {
    const QModelIndex index = findLabel(window_.model(), argument);
    if (!index.isValid()) {
      say(QStringLiteral("no row: ") + argument);
      return true;
    }
    window_.model().setData(index, Qt::Checked, Qt::CheckStateRole);
    return true;
  }
  if (verb == QLatin1String("dry-run")) {
    Preferences::shared().setDryRunEnabled(argument == QLatin1String("on"));
    return true;
  }
  if (verb == QLatin1String("clean")) {
    // The confirmation is modal; it opens after this step so the driver keeps ticking.
    QTimer::singleShot(0, &window_, &MainWindow::startCleaning);
    return true;
  }
  if (verb == QLatin1String("answer")) {
    auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
    if (!box) return false;
    for (QAbstractButton* button : box->buttons()) {
      if (button->text() == argument) {
        say(QStringLiteral("alert: ") + box->text() + QStringLiteral(" | ") + box->informativeText());
        button->click();
        return true;
      }
    }
    return false;
  }
  if (verb == QLatin1String("wait-sheet")) {
    CleaningSheet* sheet = window_.cleaningSheet();
    return sheet && sheet->isVisible() && sheet->state().kind == CleaningState::Kind::working;
  }
  if (verb == QLatin1String("expand")) {
    window_.outline()->expandToDepth(argument.isEmpty() ? 0 : argument.toInt());
    return true;
  }
  if (verb == QLatin1String("palette")) {
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    QApplication::setPalette(argument == QLatin1String("dark") ? darkPalette()
                                                               : QApplication::style()->standardPalette());
    return true;
  }
  if (verb == QLatin1String("screenshot")) {
    say(QStringLiteral("screenshot: ") + (save(window_.grab(), argument) ? argument : QStringLiteral("failed")));
    return true;
  }
  if (verb == QLatin1String("screenshot-sheet")) {
    CleaningSheet* sheet = window_.cleaningSheet();
    if (!sheet || !sheet->isVisible()) return false;
    say(QStringLiteral("screenshot: ") +
        (save(withSheet(window_, *sheet), argument) ? argument : QStringLiteral("failed")));
    return true;
  }
  if (verb == QLatin1String("install-sheet")) {
    delegate_.installCommandLineTool();
    return true;
  }
  if (verb == QLatin1String("screenshot-install")) {
    auto* sheet = window_.findChild<InstallSheet*>(QStringLiteral("InstallSheet"));
    if (!sheet || !sheet->isVisible()) return false;
    say(QStringLiteral("install: ") + sheet->shownText());
    say(QStringLiteral("screenshot: ") +
        (save(withSheet(window_, *sheet), argument) ? argument : QStringLiteral("failed")));
    sheet->close();
    return true;
  }
  if (verb == QLatin1String("preferences")) {
    delegate_.preferencesAction()->trigger();
    return true;
  }
  if (verb == QLatin1String("reminders")) {
    // Clicked as a user would, so the window stores the change and reschedules.
    ui::PreferencesWindow* preferences = shownPreferences();
    if (!preferences) return false;
    QCheckBox* box = preferences->notificationsEnabledButton();
    if (box->isChecked() != (argument == QLatin1String("on"))) box->click();
    return true;
  }
  if (verb == QLatin1String("period")) {
    ui::PreferencesWindow* preferences = shownPreferences();
    if (!preferences) return false;
    QComboBox* popUp = preferences->notificationsPeriodPopUpButton();
    const int index = popUp->findText(argument);
    if (index < 0 || !popUp->isEnabled()) {
      say(QStringLiteral("no period: ") + argument);
      return true;
    }
    popUp->setCurrentIndex(index);
    emit popUp->activated(index);
    return true;
  }
  if (verb == QLatin1String("app-folder")) {
    Preferences::shared().setAppFolder(std::filesystem::path(argument.toStdString()));
    return true;
  }
  if (verb == QLatin1String("resize")) {
    window_.resize(argument.section(QLatin1Char(' '), 0, 0).toInt(), argument.section(QLatin1Char(' '), 1, 1).toInt());
    return true;
  }
  if (verb == QLatin1String("select")) {
    const QModelIndex index = findLabel(window_.model(), argument);
    if (index.isValid()) {
      window_.outline()->selectionModel()->select(index, QItemSelectionModel::Select | QItemSelectionModel::Rows);
    }
    return true;
  }
  if (verb == QLatin1String("stop")) {
    if (CleaningSheet* sheet = window_.cleaningSheet()) sheet->stop();
    return true;
  }
  if (verb == QLatin1String("rescan")) {
    window_.startScan();
    return true;
  }
  if (verb == QLatin1String("sleep")) return QDateTime::currentMSecsSinceEpoch() - stepStarted_ >= argument.toInt();
  if (verb == QLatin1String("quit")) {
    window_.close();
    return true;
  }
  say(QStringLiteral("unknown step: ") + step);
  return true;
}

}  // namespace tw
