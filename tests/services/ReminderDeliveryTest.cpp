// The reminder helper against a stand-in notification server on a private session bus
// (the test runs under dbus-run-session).
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTest>

#include "app/ScanReminders.h"
#include "platform/UserTimerNotificationCenter.h"
#include "support/RunProcess.h"
#include "support/StandInEnvironment.h"
#include "support/StandInTools.h"
#include "support/TempDir.h"
#include "ui/DesktopNotifications.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

class ReminderDeliveryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(QDBusConnection::sessionBus().isConnected()) << "run under dbus-run-session";
    fs::create_directories(macos);
    fs::copy_file(TIDEWELL_REMIND_HELPER, macos / "tidewell-remind");
    // The window, as the helper starts it: it records whether the command-line marker reached it.
    test::writeStandInTool(root.path(), "/Tidewell.app/Contents/MacOS/tidewell",
                           "echo \"window marker=[$TIDEWELL_FROM_COMMAND_LINE]\" > " +
                               test::shellQuoted((root / "window-started").string()));
    test::writeStandInTool(root.path(), "/usr/bin/systemctl", "exit 0");
    // A weekly series scheduled eight days ago: its first reminder is a day overdue.
    ScanReminders reminders(center(), "dev.tidewell.Tidewell", [] { return std::chrono::system_clock::now() - 192h; });
    reminders.scheduleReminders(AuthorizationStatus::authorized, Preferences::Period::everyWeek);
  }

  void TearDown() override {
    server.kill();
    server.waitForFinished();
  }

  std::shared_ptr<NotificationCenter> center() {
    return makeDesktopNotificationCenter(host, macos / "tidewell-remind", [] { return true; });
  }

  void startServer(const QString& answer) {
    server.start(TIDEWELL_NOTIFICATION_SERVER, {QString::fromStdString(record.string()), answer});
    ASSERT_TRUE(QTest::qWaitFor([] { return ui::notificationServerPresent(); })) << "the stand-in server did not start";
  }

  test::ProcessResult deliver() {
    test::ProcessOptions options;
    options.environment = {{"TIDEWELL_TEST_ROOT", root.path().string()},
                           {"TIDEWELL_TEST_HOME", (root / "home").string()},
                           {"XDG_STATE_HOME", host.stateDirectory.string()},
                           {"XDG_CONFIG_HOME", host.configDirectory.string()},
                           {"TIDEWELL_FROM_COMMAND_LINE", "1"}};
    return test::runProcess((macos / "tidewell-remind").string(), {"--deliver", "--wait", "10"}, options);
  }

  test::TempDir root;
  fs::path macos = root / "Tidewell.app/Contents/MacOS";
  Host host = test::hostWithRoot(root.path());
  ScopedHost scopedHost{host};  // the test's own scheduling runs the stand-in systemctl too
  fs::path record = root / "notify-calls";
  QProcess server;
};

TEST_F(ReminderDeliveryTest, DueReminderIsPostedAndScanStartsTheWindow) {
  startServer("dev.tidewell.Tidewell.scanReminder.scan");
  auto result = deliver();
  EXPECT_EQ(result.exitStatus, 0) << result.standardError;

  auto calls = test::readCallLog(record);
  ASSERT_EQ(calls.size(), 1u);
  QJsonObject call = QJsonDocument::fromJson(QByteArray::fromStdString(calls[0])).object();
  EXPECT_EQ(QStringList({call["application"].toString(), call["summary"].toString(), call["body"].toString(),
                         call["hints"].toObject()["sound-name"].toString()}),
            QStringList({"Tidewell", "Scan Xcode cache?",
                         "It's been a while since your last scan, check if you can reclaim some storage.",
                         "message-new-instant"}));
  EXPECT_EQ(call["actions"].toArray().toVariantList(),
            (QVariantList{"dev.tidewell.Tidewell.scanReminder.scan", "Scan",
                          "dev.tidewell.Tidewell.scanReminder.dismiss", "Close"}));

  EXPECT_TRUE(QTest::qWaitFor([&] { return fs::exists(root / "window-started"); }));
  EXPECT_EQ(test::readFile(root / "window-started"), "window marker=[]\n");
  EXPECT_EQ(center()->pendingRequests().size(), 51u);
}

TEST_F(ReminderDeliveryTest, CloseLeavesTheWindowClosedAndNoServerKeepsTheReminder) {
  auto missing = deliver();
  EXPECT_EQ(missing.exitStatus, 1);
  EXPECT_NE(missing.standardError.find("tidewell-remind: Cannot show the scan reminder"), std::string::npos);
  EXPECT_EQ(center()->pendingRequests().size(), 52u);

  startServer("");
  auto closed = deliver();
  EXPECT_EQ(closed.exitStatus, 0) << closed.standardError;
  EXPECT_EQ(test::readCallLog(record).size(), 1u);
  EXPECT_FALSE(fs::exists(root / "window-started"));
  EXPECT_EQ(center()->pendingRequests().size(), 51u);

  // Nothing else is due: the next start posts nothing.
  EXPECT_EQ(deliver().exitStatus, 0);
  EXPECT_EQ(test::readCallLog(record).size(), 1u);
}

// The window's centre asks the bus itself, from the reminders' worker thread: no server means
// "not determined", so nothing is scheduled until a server runs.
TEST_F(ReminderDeliveryTest, SeriesIsScheduledOnlyWhileANotificationServerRuns) {
  auto desktop =
      makeDesktopNotificationCenter(host, macos / "tidewell-remind", [] { return ui::notificationServerPresent(); });
  ScanReminders reminders(desktop, "dev.tidewell.Tidewell");
  reminders.applySettingsInBackground(false, Preferences::Period::everyWeek);
  reminders.applySettingsInBackground(true, Preferences::Period::everyWeek);
  reminders.waitUntilIdle();
  EXPECT_TRUE(desktop->pendingRequests().empty());

  startServer("");
  reminders.applySettingsInBackground(true, Preferences::Period::everyWeek);
  reminders.waitUntilIdle();
  EXPECT_EQ(desktop->pendingRequests().size(), 52u);
}

}  // namespace
}  // namespace tw

int main(int argc, char** argv) {
  QCoreApplication application(argc, argv);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
