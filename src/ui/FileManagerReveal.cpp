#include "ui/FileManagerReveal.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDesktopServices>
#include <QStringList>

#include "app/Logger.h"

namespace tw {

RevealRoute revealInFileManager(const std::vector<std::filesystem::path>& paths) {
  if (paths.empty()) return RevealRoute::nothing;
  QStringList uris;
  for (const auto& path : paths) uris << QUrl::fromLocalFile(QString::fromStdString(path.string())).toString();

  static constexpr const char* kService = "org.freedesktop.FileManager1";
  QDBusConnection bus = QDBusConnection::sessionBus();
  // Asked only when a file manager is there or can be started for the name; otherwise the call
  // would wait for the bus's activation timeout.
  if (bus.isConnected() && bus.interface()) {
    const auto registered = bus.interface()->isServiceRegistered(kService);
    const auto activatable = bus.interface()->activatableServiceNames();
    if ((registered.isValid() && registered.value()) ||
        (activatable.isValid() && activatable.value().contains(kService))) {
      QDBusMessage call = QDBusMessage::createMethodCall(kService, "/org/freedesktop/FileManager1",
                                                         "org.freedesktop.FileManager1", "ShowItems");
      call << uris << QString();
      const QDBusMessage reply = bus.call(call, QDBus::Block, 5000);
      if (reply.type() == QDBusMessage::ReplyMessage) return RevealRoute::fileManager;
      log::warning("MainViewController: File manager did not show the items: " + reply.errorMessage().toStdString());
    }
  }
  openInDesktop(QUrl::fromLocalFile(QString::fromStdString(paths.front().parent_path().string())));
  return RevealRoute::openedParentFolder;
}

void openInDesktop(const QUrl& url) {
  if (!QDesktopServices::openUrl(url)) log::warning("MainViewController: Cannot open " + url.toString().toStdString());
}

}  // namespace tw
