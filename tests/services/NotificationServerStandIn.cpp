// Notification server for tests: logs each Notify to file argv[1] as JSON, then invokes action argv[2] (empty: closes).
#include <QCoreApplication>
#include <QDBusConnection>
#include <QFile>
#include <QJsonDocument>
#include <QTimer>

class StandInServer : public QObject {
  Q_OBJECT
  Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

 public slots:
  QStringList GetCapabilities() { return {"body", "actions", "sound"}; }

  uint Notify(const QString& application, uint, const QString&, const QString& summary, const QString& body,
              const QStringList& actions, const QVariantMap& hints, int) {
    const QVariantMap call{
        {"application", application}, {"summary", summary}, {"body", body}, {"actions", actions}, {"hints", hints}};
    QFile record(recordPath);
    if (record.open(QIODevice::Append))
      record.write(QJsonDocument::fromVariant(call).toJson(QJsonDocument::Compact) + "\n");
    QTimer::singleShot(100, this, [this, id = ++lastId] {
      if (!answer.isEmpty()) emit ActionInvoked(id, answer);
      emit NotificationClosed(id, answer.isEmpty() ? 2 : 3);
    });
    return lastId;
  }

 signals:
  void ActionInvoked(uint id, const QString& actionKey);
  void NotificationClosed(uint id, uint reason);

 public:
  const QString recordPath = QCoreApplication::arguments().value(1), answer = QCoreApplication::arguments().value(2);
  uint lastId = 0;
};

int main(int argc, char** argv) {
  QCoreApplication application(argc, argv);
  StandInServer server;
  QDBusConnection bus = QDBusConnection::sessionBus();
  if (!bus.registerObject("/org/freedesktop/Notifications", &server,
                          QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals) ||
      !bus.registerService("org.freedesktop.Notifications") || !QFile(server.recordPath).open(QIODevice::Append))
    return 1;
  return application.exec();
}

#include "NotificationServerStandIn.moc"
