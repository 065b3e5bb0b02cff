// "Show in Files" asks the session bus's file manager to show the entry's paths. A stand-in
// file manager registered on a private bus (the test runs under dbus-run-session) records what
// it was asked.
#include <gtest/gtest.h>

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QObject>
#include <QStringList>
#include <QTest>

#include "ui/FileManagerReveal.h"

namespace tw {
namespace {

class StandInFileManager : public QObject {
  Q_OBJECT
  Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")

 public slots:
  void ShowItems(const QStringList& uris, const QString& startupId) {
    shown = uris;
    startup = startupId;
  }

 public:
  QStringList shown;
  QString startup;
};

TEST(ShowInFiles, AsksTheFileManagerOnTheSessionBusForEveryPath) {
  QDBusConnection bus = QDBusConnection::sessionBus();
  if (!bus.isConnected()) GTEST_SKIP() << "no session bus: run through ctest (dbus-run-session)";
  StandInFileManager fileManager;
  ASSERT_TRUE(bus.registerObject("/org/freedesktop/FileManager1", &fileManager, QDBusConnection::ExportAllSlots));
  ASSERT_TRUE(bus.registerService("org.freedesktop.FileManager1"));

  revealInFileManager({"/Users/dev/Library/Developer/Xcode/DerivedData/Sea Lion-abc", "/tmp/other"});
  ASSERT_TRUE(QTest::qWaitFor([&] { return !fileManager.shown.isEmpty(); }, 5000));
  EXPECT_EQ(fileManager.shown,
            (QStringList{"file:///Users/dev/Library/Developer/Xcode/DerivedData/Sea%20Lion-abc", "file:///tmp/other"}));

  bus.unregisterService("org.freedesktop.FileManager1");
  bus.unregisterObject("/org/freedesktop/FileManager1");
}

}  // namespace
}  // namespace tw

#include "ShowInFilesTest.moc"
