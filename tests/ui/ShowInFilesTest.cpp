// "Show in Files" asks a stand-in file manager on a private session bus (dbus-run-session).
#include <gtest/gtest.h>

#include <QDBusConnection>
#include <QTest>

#include "ui/FileManagerReveal.h"

namespace tw {
namespace {

class StandInFileManager : public QObject {
  Q_OBJECT
  Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")

 public slots:
  void ShowItems(const QStringList& uris, const QString&) { shown = uris; }

 public:
  QStringList shown;
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
