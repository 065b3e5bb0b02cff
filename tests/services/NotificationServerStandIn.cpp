// A notification server for tests on a private session bus: once it owns org.freedesktop.Notifications it creates
// the file named by its first argument and appends each Notify call to it as one JSON line; a tenth of a second
// later it answers with the action named by its second argument (when empty, by closing).
#include <QCoreApplication>
#include <QDBusConnection>
#include <QFile>
#include <QJsonDocument>
#include <QTimer>
#include <QVariantMap>

class StandInServer : public QObject {
  Q_OBJECT
  Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

 public:
  StandInServer(QString recordPath, QString answer) : recordPath_(std::move(recordPath)), answer_(std::move(answer)) {}

 public slots:
  QStringList GetCapabilities() { return {"body", "actions", "sound"}; }

  uint Notify(const QString& application, uint, const QString&, const QString& summary, const QString& body,
              const QStringList& actions, const QVariantMap& hints, int) {
    const QVariantMap call{
        {"application", application}, {"summary", summary}, {"body", body}, {"actions", actions}, {"hints", hints}};
    QFile record(recordPath_);
    if (record.open(QIODevice::Append))
      record.write(QJsonDocument::fromVariant(call).toJson(QJsonDocument::Compact) + "\n");
    QTimer::singleShot(100, this, [this, id = ++lastId_] {
      if (!answer_.isEmpty()) emit ActionInvoked(id, answer_);
      emit NotificationClosed(id, answer_.isEmpty() ? 2 : 3);
    });
    return lastId_;
  }

 signals:
  void ActionInvoked(uint id, const QString& actionKey);
  void NotificationClosed(uint id, uint reason);

 private:
  QString recordPath_, answer_;
  uint lastId_ = 0;
};

int main(int argc, char** argv) {
  QCoreApplication application(argc, argv);
  StandInServer server(application.arguments().value(1), application.arguments().value(2));
  QDBusConnection bus = QDBusConnection::sessionBus();
  if (!bus.registerObject("/org/freedesktop/Notifications", &server,
                          QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals) ||
      !bus.registerService("org.freedesktop.Notifications") ||
      !QFile(application.arguments().value(1)).open(QIODevice::Append))
    return 1;
  return application.exec();
}

#include "NotificationServerStandIn.moc"
