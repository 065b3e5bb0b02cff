// tidewell-remind: started by the user's systemd timer (or at login) when a scan reminder is
// due. It takes the due reminders out of the pending store, posts one notification for them and
// waits for the answer: "Scan" starts Tidewell's window, "Close" just ends.
#include <QCoreApplication>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTimer>
#include <chrono>
#include <cstdio>
#include <memory>

#include "app/Logger.h"
#include "app/ScanReminders.h"
#include "platform/Host.h"
#include "platform/UserTimerNotificationCenter.h"
#include "ui/DesktopNotifications.h"

namespace {

using namespace tw;

constexpr int kDefaultWaitSeconds = 8 * 3600;

const NotificationAction* actionNamed(const std::vector<NotificationAction>& actions, const QString& identifier) {
  for (const auto& action : actions) {
    if (QString::fromStdString(action.identifier) == identifier) return &action;
  }
  return nullptr;
}

// The window, started as a desktop start: without the command-line marker the executable opens it.
bool startApplication(const Host& host) {
  if (host.bundle.empty()) return false;
  QProcess process;
  process.setProgram(QString::fromStdString((host.bundle / "Contents" / "MacOS" / "tidewell").string()));
  auto environment = QProcessEnvironment::systemEnvironment();
  environment.remove(QStringLiteral("TIDEWELL_FROM_COMMAND_LINE"));
  process.setProcessEnvironment(environment);
  process.setStandardInputFile(QProcess::nullDevice());
  return process.startDetached();
}

}  // namespace

int main(int argc, char** argv) {
  QCoreApplication application(argc, argv);
  const QStringList arguments = application.arguments();
  if (!arguments.contains(QStringLiteral("--deliver"))) {
    std::fputs("usage: tidewell-remind --deliver [--wait <seconds>]\n", stderr);
    return 64;
  }
  int waitSeconds = kDefaultWaitSeconds;
  if (int index = static_cast<int>(arguments.indexOf(QStringLiteral("--wait")));
      index >= 0 && index + 1 < arguments.size()) {
    waitSeconds = arguments.at(index + 1).toInt();
  }

  const Host& host = Host::current();
  auto center = std::static_pointer_cast<UserTimerNotificationCenter>(
      makeDesktopNotificationCenter(host, executablePath(), [] { return ui::notificationServerPresent(); }));

  std::vector<NotificationRequest> due;
  try {
    due = center->takeDueRequests(std::chrono::system_clock::now());
  } catch (const std::exception& error) {
    log::error(std::string("tidewell-remind: Cannot read the pending reminders: ") + error.what());
    return 1;
  }
  if (due.empty()) {
    log::info("tidewell-remind: No reminder is due");
    return 0;
  }
  // Missed reminders (the machine was off) all say the same: one notification stands for them.
  const NotificationRequest& request = due.back();
  std::vector<NotificationAction> actions;
  for (const auto& category : center->notificationCategories()) {
    if (category.identifier == request.content.categoryIdentifier) actions = category.actions;
  }

  ui::FreedesktopNotifier notifier;
  QString error;
  const uint id = notifier.post(QStringLiteral("Tidewell"), request.content, actions, &error);
  if (id == 0) {
    // Kept for the next delivery (the next timer date or the next login) instead of being lost.
    try {
      center->addRequests(due);
    } catch (const std::exception& keepError) {
      log::error(std::string("tidewell-remind: Cannot keep the reminder for later: ") + keepError.what());
    }
    log::error("tidewell-remind: Cannot show the scan reminder: " + error.toStdString());
    return 1;
  }
  log::info("tidewell-remind: Showed the scan reminder " + request.identifier);

  int status = 0;
  QObject::connect(&notifier, &ui::FreedesktopNotifier::actionInvoked, &application,
                   [&](uint invoked, const QString& identifier) {
                     if (invoked != id) return;
                     const NotificationAction* action = actionNamed(actions, identifier);
                     if (action && action->foreground && !startApplication(host)) {
                       log::error("tidewell-remind: Cannot start Tidewell from " + host.bundle.string());
                       status = 1;
                     }
                     application.quit();
                   });
  QObject::connect(&notifier, &ui::FreedesktopNotifier::closed, &application, [&](uint closed, uint) {
    if (closed == id) application.quit();
  });
  QTimer::singleShot(std::chrono::seconds(waitSeconds), &application, &QCoreApplication::quit);
  application.exec();
  return status;
}
