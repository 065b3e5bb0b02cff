#include "ui/PreferencesWindow.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QLabel>
#include <QShortcut>
#include <QSignalBlocker>
#include <QVBoxLayout>
#include <array>
#include <utility>

namespace tw::ui {
namespace {

const std::array<std::pair<const char*, Preferences::Period>, 4> kPeriodTitles{{
    {"Every week", Preferences::Period::everyWeek},
    {"Every 2 weeks", Preferences::Period::every2weeks},
    {"Every month", Preferences::Period::everyMonth},
    {"Every 2 months", Preferences::Period::every2Months},
}};

QLabel* explanation(const QString& text, QWidget* parent) {
  auto* label = new QLabel(text, parent);
  label->setWordWrap(true);
  // Wide enough that each sentence keeps to one or two lines.
  label->setMinimumWidth(label->fontMetrics().averageCharWidth() * 52);
  label->setForegroundRole(QPalette::PlaceholderText);
  return label;
}

}  // namespace

QString PreferencesWindow::titleOf(Period period) {
  for (const auto& [title, mapped] : kPeriodTitles) {
    if (mapped == period) return QString::fromUtf8(title);
  }
  return QString::fromUtf8(kPeriodTitles[2].first);
}

std::optional<Preferences::Period> PreferencesWindow::periodOf(const QString& title) {
  for (const auto& [known, period] : kPeriodTitles) {
    if (title == QLatin1String(known)) return period;
  }
  return std::nullopt;
}

PreferencesWindow::PreferencesWindow(Preferences& preferences, ApplyReminders applyReminders, QWidget* parent)
    : QWidget(parent, Qt::Window),
      preferences_(preferences),
      applyReminders_(std::move(applyReminders)),
      notificationsEnabledButton_(new QCheckBox(tr("&Remind me to scan for files to clean"), this)),
      notificationsPeriodPopUpButton_(new QComboBox(this)),
      dryRunEnabledButton_(new QCheckBox(tr("&Dry run: only log what would be deleted"), this)) {
  setWindowTitle(tr("Tidewell Preferences"));
  setObjectName(QStringLiteral("PreferencesWindow"));

  for (const auto& [title, period] : kPeriodTitles) notificationsPeriodPopUpButton_->addItem(QString::fromUtf8(title));
  notificationsEnabledButton_->setAccessibleName(tr("Scan reminders"));
  notificationsPeriodPopUpButton_->setAccessibleName(tr("Reminder period"));
  dryRunEnabledButton_->setAccessibleName(tr("Dry run"));

  auto* periodRow = new QFormLayout;
  periodRow->setContentsMargins(24, 0, 0, 0);
  auto* periodLabel = new QLabel(tr("&Period:"), this);
  periodLabel->setBuddy(notificationsPeriodPopUpButton_);
  periodRow->addRow(periodLabel, notificationsPeriodPopUpButton_);

  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(20, 20, 20, 20);
  layout->addWidget(notificationsEnabledButton_);
  layout->addLayout(periodRow);
  layout->addWidget(
      explanation(tr("A desktop notification reminds you to scan again, even while Tidewell is closed."), this));
  layout->addSpacing(12);
  layout->addWidget(dryRunEnabledButton_);
  layout->addWidget(explanation(tr("Cleaning only logs and pauses instead of deleting anything."), this));
  layout->addStretch(1);
  layout->setSizeConstraint(QLayout::SetFixedSize);

  loadSettings();

  // No apply or cancel: Escape and the standard close keys just close the window.
  for (auto key : {QKeySequence(QKeySequence::Close), QKeySequence(Qt::Key_Escape)}) {
    connect(new QShortcut(key, this), &QShortcut::activated, this, &QWidget::close);
  }

  connect(notificationsEnabledButton_, &QCheckBox::clicked, this, &PreferencesWindow::updateNotificationsEnabled);
  connect(notificationsPeriodPopUpButton_, &QComboBox::activated, this, &PreferencesWindow::updatePeriod);
  connect(dryRunEnabledButton_, &QCheckBox::clicked, this, &PreferencesWindow::updateDryRun);
}

void PreferencesWindow::loadSettings() {
  const QSignalBlocker blockEnabled(notificationsEnabledButton_);
  const QSignalBlocker blockPeriod(notificationsPeriodPopUpButton_);
  const QSignalBlocker blockDryRun(dryRunEnabledButton_);
  const bool remindersOn = preferences_.notificationsEnabled();
  notificationsEnabledButton_->setChecked(remindersOn);
  notificationsPeriodPopUpButton_->setEnabled(remindersOn);
  notificationsPeriodPopUpButton_->setCurrentText(titleOf(preferences_.notificationsPeriod()));
  dryRunEnabledButton_->setChecked(preferences_.dryRunEnabled());
}

void PreferencesWindow::showEvent(QShowEvent* event) {
  // Another process (the command line) may have changed the settings since the window was built.
  loadSettings();
  QWidget::showEvent(event);
}

void PreferencesWindow::updateNotificationsEnabled() {
  const bool on = notificationsEnabledButton_->isChecked();
  notificationsEnabledButton_->setChecked(on);
  notificationsPeriodPopUpButton_->setEnabled(on);
  preferences_.setNotificationsEnabled(on);
  if (applyReminders_) applyReminders_(on, preferences_.notificationsPeriod());
}

void PreferencesWindow::updatePeriod() {
  auto period = periodOf(notificationsPeriodPopUpButton_->currentText());
  if (!period) return;
  preferences_.setNotificationsPeriod(*period);
  if (applyReminders_) applyReminders_(true, preferences_.notificationsPeriod());
}

void PreferencesWindow::updateDryRun() {
  const bool on = dryRunEnabledButton_->isChecked();
  dryRunEnabledButton_->setChecked(on);
  preferences_.setDryRunEnabled(on);
}

}  // namespace tw::ui
