#include "ui/ApplicationServices.h"

#include <QAction>
#include <QMessageBox>
#include <QWidget>

#include "platform/Host.h"
#include "ui/DesktopNotifications.h"
#include "ui/PreferencesWindow.h"

namespace tw::ui {
namespace {

// The helper the reminder timer runs sits beside the main executable in the bundle.
std::filesystem::path reminderHelper() {
  const auto& host = Host::current();
  if (!host.bundle.empty()) return host.bundle / "Contents" / "MacOS" / "tidewell-remind";
  return executablePath().parent_path() / "tidewell-remind";
}

}  // namespace

void MessageBoxFeedbackAlerts::showInformational(const std::string& message, const std::string& informativeText,
                                                 const std::string& button) {
  QMessageBox box(QMessageBox::Information, QString::fromStdString(message), QString::fromStdString(message),
                  QMessageBox::NoButton, parent_);
  box.setInformativeText(QString::fromStdString(informativeText));
  box.addButton(QString::fromStdString(button), QMessageBox::AcceptRole);
  box.exec();
}

void finishLaunchingReminders(ScanReminders& reminders, const Preferences& preferences) {
  reminders.applySettingsInBackground(preferences.notificationsEnabled(), preferences.notificationsPeriod());
  // Reports what the centre knew before the change above is applied, as on the Mac, where the
  // answers arrive later on the notification framework's queue.
  reminders.logNextReminder();
}

ApplicationServices::ApplicationServices(QWidget* window, QObject* parent)
    : QObject(parent),
      window_(window),
      reminders_(std::make_unique<ScanReminders>(
          makeDesktopNotificationCenter(Host::current(), reminderHelper(), [] { return notificationServerPresent(); }),
          TIDEWELL_BUNDLE_IDENTIFIER)),
      feedbackAlerts_(window),
      mailer_(std::make_unique<FeedbackMailer>(Host::current(), feedbackAlerts_)),
      updateDialogs_(window),
      updater_(
          std::make_unique<UpdateController>(UpdateController::readBundle(), updateDialogs_, Preferences::shared())) {}

ApplicationServices::~ApplicationServices() {
  delete preferencesWindow_.data();
  // The last reminder change the user made is applied before the process ends.
  reminders_->waitUntilIdle();
}

void ApplicationServices::setDialogParent(QWidget* window) {
  window_ = window;
  feedbackAlerts_ = MessageBoxFeedbackAlerts(window);
  updateDialogs_ = MessageBoxUpdateDialogs(window);
}

void ApplicationServices::connectMenu(QAction* checkForUpdates, QAction* preferences, QAction* sendFeedback,
                                      QAction* reportIssue) {
  updater_->connectAction(checkForUpdates);
  if (preferences) connect(preferences, &QAction::triggered, this, &ApplicationServices::showPreferences);
  if (sendFeedback) connect(sendFeedback, &QAction::triggered, this, [this] { mailer_->sendFeedback(); });
  if (reportIssue) connect(reportIssue, &QAction::triggered, this, [this] { mailer_->reportAnIssue(); });
}

void ApplicationServices::finishLaunching() {
  finishLaunchingReminders(*reminders_, Preferences::shared());
  updater_->applicationDidFinishLaunching();
}

void ApplicationServices::showPreferences() {
  if (!preferencesWindow_) {
    preferencesWindow_ = new PreferencesWindow(
        Preferences::shared(),
        [this](bool enabled, Preferences::Period period) { reminders_->applySettingsInBackground(enabled, period); },
        window_);
    preferencesWindow_->setAttribute(Qt::WA_DeleteOnClose);
  }
  preferencesWindow_->show();
  preferencesWindow_->raise();
  preferencesWindow_->activateWindow();
}

}  // namespace tw::ui
