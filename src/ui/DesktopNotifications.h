// Freedesktop notifications over the session bus (org.freedesktop.Notifications): whether a
// notification server is there, and posting one notification with its actions and waiting for
// the user's answer. Used by the reminder helper and, for the authorisation question, by the
// window.
#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QString>
#include <QStringList>
#include <vector>

#include "platform/NotificationCenter.h"

namespace tw::ui {

// True when a notification server owns its name on the session bus or can be started by it.
bool notificationServerPresent(const QDBusConnection& bus = QDBusConnection::sessionBus());

class FreedesktopNotifier : public QObject {
  Q_OBJECT

 public:
  explicit FreedesktopNotifier(QDBusConnection bus = QDBusConnection::sessionBus(), QObject* parent = nullptr);

  // Posts the notification; its id, or 0 with `error` set when the server refused or is missing.
  // The sound is asked for only from a server that says it plays sounds.
  uint post(const QString& applicationName, const NotificationContent& content,
            const std::vector<NotificationAction>& actions, QString* error);

 signals:
  // The user chose the action with this identifier on notification `id`.
  void actionInvoked(uint id, const QString& actionIdentifier);
  // Notification `id` went away (expired, dismissed or closed after an action).
  void closed(uint id, uint reason);

 private slots:
  void onActionInvoked(uint id, const QString& actionKey);
  void onNotificationClosed(uint id, uint reason);

 private:
  QDBusConnection bus_;
};

}  // namespace tw::ui
