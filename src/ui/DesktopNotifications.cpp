#include "ui/DesktopNotifications.h"

#include <QDBusConnectionInterface>
#include <QDBusInterface>
#include <QDBusReply>
#include <QVariantMap>

namespace tw::ui {
namespace {

const QString kService = QStringLiteral("org.freedesktop.Notifications");
const QString kPath = QStringLiteral("/org/freedesktop/Notifications");
const QString kInterface = QStringLiteral("org.freedesktop.Notifications");
// The freedesktop sound theme's name for a new message.
const QString kSoundName = QStringLiteral("message-new-instant");

}  // namespace

bool notificationServerPresent(const QDBusConnection& bus) {
  if (!bus.isConnected() || !bus.interface()) return false;
  if (bus.interface()->isServiceRegistered(kService)) return true;
  QDBusReply<QStringList> activatable = bus.interface()->call(QStringLiteral("ListActivatableNames"));
  return activatable.isValid() && activatable.value().contains(kService);
}

FreedesktopNotifier::FreedesktopNotifier(QDBusConnection bus, QObject* parent) : QObject(parent), bus_(std::move(bus)) {
  bus_.connect(kService, kPath, kInterface, QStringLiteral("ActionInvoked"), this,
               SLOT(onActionInvoked(uint, QString)));
  bus_.connect(kService, kPath, kInterface, QStringLiteral("NotificationClosed"), this,
               SLOT(onNotificationClosed(uint, uint)));
}

uint FreedesktopNotifier::post(const QString& applicationName, const NotificationContent& content,
                               const std::vector<NotificationAction>& actions, QString* error) {
  if (!bus_.isConnected()) {
    if (error) *error = QStringLiteral("No session bus");
    return 0;
  }
  QDBusInterface server(kService, kPath, kInterface, bus_);
  QDBusReply<QStringList> capabilities = server.call(QStringLiteral("GetCapabilities"));
  const QStringList supported = capabilities.isValid() ? capabilities.value() : QStringList();

  QStringList actionList;
  if (supported.contains(QStringLiteral("actions"))) {
    for (const auto& action : actions) {
      actionList << QString::fromStdString(action.identifier) << QString::fromStdString(action.title);
    }
  }
  QVariantMap hints;
  hints.insert(QStringLiteral("urgency"), QVariant::fromValue<uchar>(1));
  hints.insert(QStringLiteral("desktop-entry"), QStringLiteral("tidewell"));
  if (content.defaultSound && supported.contains(QStringLiteral("sound"))) {
    hints.insert(QStringLiteral("sound-name"), kSoundName);
  }

  QDBusReply<uint> reply = server.call(QStringLiteral("Notify"), applicationName, uint(0), QStringLiteral("tidewell"),
                                       QString::fromStdString(content.title), QString::fromStdString(content.body),
                                       actionList, hints, int(-1));
  if (!reply.isValid()) {
    if (error) *error = reply.error().message();
    return 0;
  }
  return reply.value();
}

void FreedesktopNotifier::onActionInvoked(uint id, const QString& actionKey) { emit actionInvoked(id, actionKey); }

void FreedesktopNotifier::onNotificationClosed(uint id, uint reason) { emit closed(id, reason); }

}  // namespace tw::ui
