#include "ui/FileManagerReveal.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDesktopServices>
#include <QStringList>

#include "app/Logger.h"

namespace tw {

void revealInFileManager(const std::vector<std::filesystem::path>& paths) {
  if (paths.empty()) return;
  QStringList uris;
  for (const auto& path : paths)
    uris << QUrl::fromLocalFile(QString::fromStdString(path.string())).toString(QUrl::FullyEncoded);
  const QUrl parentFolder = QUrl::fromLocalFile(QString::fromStdString(paths.front().parent_path().string()));

  static constexpr const char* kService = "org.freedesktop.FileManager1";
  QDBusConnection bus = QDBusConnection::sessionBus();
  // Asked only when a file manager is there or can be started for the name; otherwise the call
  // would wait for the bus's activation timeout.
  bool available = false;
  if (bus.isConnected() && bus.interface()) {
    const auto registered = bus.interface()->isServiceRegistered(kService);
    const auto activatable = bus.interface()->activatableServiceNames();
    available = (registered.isValid() && registered.value()) ||
                (activatable.isValid() && activatable.value().contains(kService));
  }
  if (!available) {
    openInDesktop(parentFolder);
    return;
  }
  QDBusMessage call = QDBusMessage::createMethodCall(kService, "/org/freedesktop/FileManager1",
                                                     "org.freedesktop.FileManager1", "ShowItems");
  call << uris << QString();
  // Answered later, so a slow file manager never freezes the window.
  auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, 10000));
  QObject::connect(watcher, &QDBusPendingCallWatcher::finished, [parentFolder](QDBusPendingCallWatcher* finished) {
    if (finished->isError()) {
      log::warning("MainViewController: File manager did not show the items: " +
                   finished->error().message().toStdString());
      openInDesktop(parentFolder);
    }
    finished->deleteLater();
  });
}

void openInDesktop(const QUrl& url) {
  if (!QDesktopServices::openUrl(url)) log::warning("MainViewController: Cannot open " + url.toString().toStdString());
}

}  // namespace tw
