// The preferences window: scan reminders on or off, their period, and dry run. Every change is
// written to the settings store at once (the store tells its observers, so the main window's
// dry-run badge follows immediately) and the reminders are rescheduled or withdrawn on each
// reminder change. There is no apply or cancel step.
#pragma once

#include <QWidget>
#include <functional>
#include <optional>

#include "app/Preferences.h"

class QCheckBox;
class QComboBox;

namespace tw::ui {

class PreferencesWindow : public QWidget {
  Q_OBJECT

 public:
  using Period = Preferences::Period;
  // Brings the pending reminders in line: a fresh series for the period when enabled, withdrawn
  // otherwise. The window calls it after every reminder change has been stored.
  using ApplyReminders = std::function<void(bool enabled, Period period)>;

  PreferencesWindow(Preferences& preferences, ApplyReminders applyReminders, QWidget* parent = nullptr);

  // The pop-up's titles, in menu order, and their periods.
  static QString titleOf(Period period);
  static std::optional<Period> periodOf(const QString& title);

  QCheckBox* notificationsEnabledButton() const { return notificationsEnabledButton_; }
  QComboBox* notificationsPeriodPopUpButton() const { return notificationsPeriodPopUpButton_; }
  QCheckBox* dryRunEnabledButton() const { return dryRunEnabledButton_; }

  // The controls show the stored settings (called when the window is built and each time it is shown).
  void loadSettings();

 protected:
  void showEvent(QShowEvent* event) override;

 private:
  void updateNotificationsEnabled();
  void updatePeriod();
  void updateDryRun();

  Preferences& preferences_;
  ApplyReminders applyReminders_;
  QCheckBox* notificationsEnabledButton_;
  QComboBox* notificationsPeriodPopUpButton_;
  QCheckBox* dryRunEnabledButton_;
};

}  // namespace tw::ui
