// The application services of the window, created once at start: scan reminders on the
// desktop's notification centre, the preferences window, the feedback mails and the update
// check. The application delegate hands it the menu commands and calls finishLaunching() from
// its did-finish-launching step, right after the update item is in the menu.
#pragma once

#include <QObject>
#include <QPointer>
#include <memory>

#include "app/FeedbackMailer.h"
#include "app/ScanReminders.h"
#include "ui/UpdateController.h"

class QAction;
class QWidget;

namespace tw::ui {

class PreferencesWindow;

// The informational alert as a message box.
class MessageBoxFeedbackAlerts : public FeedbackAlerts {
 public:
  explicit MessageBoxFeedbackAlerts(QWidget* parent = nullptr) : parent_(parent) {}
  void showInformational(const std::string& message, const std::string& informativeText,
                         const std::string& button) override;

 private:
  QPointer<QWidget> parent_;
};

class ApplicationServices : public QObject {
  Q_OBJECT

 public:
  // `window` parents the dialogs; it may be set later with setDialogParent.
  explicit ApplicationServices(QWidget* window = nullptr, QObject* parent = nullptr);
  ~ApplicationServices() override;

  void setDialogParent(QWidget* window);

  // Wires the menu commands (any of them may be null): check for updates (enabled here),
  // preferences, send feedback, report an issue.
  void connectMenu(QAction* checkForUpdates, QAction* preferences, QAction* sendFeedback, QAction* reportIssue);

  // The launch steps after the update item: reminders brought in line with the settings
  // (scheduled when on, withdrawn when off, on the reminders' worker), then the log line
  // "Next reminder: …" or "No reminder scheduled!", then the quiet update check when agreed.
  void finishLaunching();

  void showPreferences();
  ScanReminders& reminders() { return *reminders_; }
  UpdateController& updater() { return *updater_; }
  FeedbackMailer& mailer() { return *mailer_; }

 private:
  QPointer<QWidget> window_;
  std::unique_ptr<ScanReminders> reminders_;
  MessageBoxFeedbackAlerts feedbackAlerts_;
  std::unique_ptr<FeedbackMailer> mailer_;
  MessageBoxUpdateDialogs updateDialogs_;
  std::unique_ptr<UpdateController> updater_;
  QPointer<PreferencesWindow> preferencesWindow_;
};

// The launch steps for a delegate that keeps its services elsewhere: reminders in line with the
// settings, then the log line.
void finishLaunchingReminders(ScanReminders& reminders, const Preferences& preferences);

}  // namespace tw::ui
