#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTcpServer>
#include <QTcpSocket>
#include <functional>

#include "QtWait.h"
#include "support/TempDir.h"
#include "ui/UpdateController.h"

namespace tw {
namespace {

using ui::UpdateController;
using Outcome = UpdateController::Outcome;
using namespace std::chrono_literals;

using test::waitUntil;

// An HTTP server on the loopback address that answers every request with `response`, or never
// answers at all when it is empty.
class FeedServer : public QObject {
 public:
  FeedServer() {
    server_.listen(QHostAddress::LocalHost);
    connect(&server_, &QTcpServer::newConnection, this, [this] {
      while (QTcpSocket* socket = server_.nextPendingConnection()) {
        connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
          ++requests;
          if (response.isEmpty()) return;  // a stuck server
          socket->write(response);
          socket->disconnectFromHost();
        });
      }
    });
  }
  void serve(int status, const QByteArray& body) {
    response = "HTTP/1.1 " + QByteArray::number(status) + (status == 200 ? " OK" : " Not Found") +
               "\r\nContent-Type: application/rss+xml\r\nContent-Length: " + QByteArray::number(body.size()) +
               "\r\nConnection: close\r\n\r\n" + body;
  }
  QUrl url() const { return QUrl(QStringLiteral("http://127.0.0.1:%1/appcast.xml").arg(server_.serverPort())); }

  QByteArray response;
  int requests = 0;

 private:
  QTcpServer server_;
};

struct RecordingDialogs : ui::UpdateDialogs {
  void showUpToDate(const QString& version) override { shown << "up to date: " + version; }
  void showUpdateAvailable(const AppcastItem& item, const QString& version) override {
    shown << QString::fromStdString("available: " + item.shortVersion + " notes " + item.releaseNotesLink +
                                    " download " + item.downloadLink + " over ") +
                 version;
  }
  void showCheckFailed(const QString& reason) override { shown << "failed: " + reason; }
  bool askForAutomaticChecks() override {
    ++asked;
    return answer;
  }
  QStringList shown;
  int asked = 0;
  bool answer = true;
};

QByteArray feedWithVersion(const char* version, const char* shortVersion) {
  return QByteArray(R"(<?xml version="1.0"?>
<rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle"><channel><item>
<title>Tidewell</title><sparkle:releaseNotesLink>https://tidewell.dev/notes.html</sparkle:releaseNotesLink>
<link>https://tidewell.dev/download</link>
<enclosure url="https://tidewell.dev/Tidewell.tar.xz" sparkle:version=")") +
         version + "\" sparkle:shortVersionString=\"" + shortVersion + "\"/></item></channel></rss>";
}

class UpdateControllerTest : public ::testing::Test {
 protected:
  UpdateController makeController(QUrl url = {}) {
    return UpdateController({url.isEmpty() ? server.url() : url, "110", "1.10"}, dialogs, preferences);
  }

  std::optional<Outcome> run(UpdateController& controller, const std::function<void()>& start) {
    std::optional<Outcome> outcome;
    QObject::connect(&controller, &UpdateController::checkFinished, [&](Outcome o) { outcome = o; });
    start();
    waitUntil([&] { return outcome.has_value(); });
    return outcome;
  }

  test::TempDir folder;
  Preferences preferences{folder / "settings.plist"};
  FeedServer server;
  RecordingDialogs dialogs;
};

TEST_F(UpdateControllerTest, TellsTheUserWhatTheFeedSays) {
  struct Case {
    const char* name;
    int status;
    QByteArray body;
    Outcome outcome;
    QString shown;
  };
  const Case cases[] = {
      {"newer", 200, feedWithVersion("111", "1.11"), Outcome::updateAvailable,
       "available: 1.11 notes https://tidewell.dev/notes.html download https://tidewell.dev/download over 1.10"},
      {"equal", 200, feedWithVersion("110", "1.10"), Outcome::upToDate, "up to date: 1.10"},
      {"older: 1.9 is below 1.10", 200, feedWithVersion("19", "1.9"), Outcome::upToDate, "up to date: 1.10"},
      {"malformed", 200, "<rss><channel><item>", Outcome::failed,
       "failed: The update feed is not valid XML (<item> is not closed at byte 20)."},
      {"empty", 200, "", Outcome::failed, "failed: The update feed is empty."},
      {"missing", 404, "gone", Outcome::failed, "failed: Error transferring %1 - server replied: Not Found"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    server.serve(c.status, c.body);
    dialogs.shown.clear();
    auto controller = makeController();
    EXPECT_EQ(run(controller, [&] { controller.checkForUpdates(); }), c.outcome);
    EXPECT_EQ(dialogs.shown, QStringList{QString(c.shown).replace("%1", server.url().toString())});
  }
}

TEST_F(UpdateControllerTest, SlowServerAndBadAddressesEndInAMessage) {
  server.response.clear();
  auto controller = makeController();
  controller.setTimeout(300ms);
  QElapsedTimer timer;
  timer.start();
  EXPECT_EQ(run(controller, [&] { controller.checkForUpdates(); }), Outcome::failed);
  EXPECT_LT(timer.elapsed(), 3000);
  EXPECT_EQ(dialogs.shown, QStringList{"failed: The update server did not answer within 0.3 seconds."});

  const std::pair<QUrl, QString> addresses[] = {
      {QUrl("http://tidewell.dev/appcast.xml"),
       "failed: The update feed address is not secure: http://tidewell.dev/appcast.xml"},
      {QUrl("http://127.0.0.1:1/appcast.xml"), "failed: Connection refused"},
  };
  for (const auto& [url, message] : addresses) {
    dialogs.shown.clear();
    auto refused = makeController(url);
    EXPECT_EQ(run(refused, [&] { refused.checkForUpdates(); }), Outcome::failed);
    EXPECT_EQ(dialogs.shown, QStringList{message});
  }
}

TEST_F(UpdateControllerTest, AutomaticChecksOnlyAfterConsentAskedOnTheSecondStart) {
  server.serve(200, feedWithVersion("19", "1.9"));
  {
    auto first = makeController();
    first.applicationDidFinishLaunching();
    EXPECT_FALSE(waitUntil([&] { return server.requests > 0; }, 300));
    EXPECT_EQ(dialogs.asked, 0);
  }
  auto second = makeController();
  EXPECT_EQ(run(second, [&] { second.applicationDidFinishLaunching(); }), Outcome::upToDate);
  EXPECT_EQ(dialogs.asked, 1);
  EXPECT_EQ(preferences.automaticUpdateChecks(), true);
  EXPECT_TRUE(dialogs.shown.isEmpty());  // a quiet check says nothing when there is nothing new

  // A quiet check that fails says nothing either; a newer version is announced.
  server.serve(404, "gone");
  auto third = makeController();
  EXPECT_EQ(run(third, [&] { third.applicationDidFinishLaunching(); }), Outcome::failed);
  server.serve(200, feedWithVersion("200", "2.0"));
  auto fourth = makeController();
  EXPECT_EQ(run(fourth, [&] { fourth.applicationDidFinishLaunching(); }), Outcome::updateAvailable);
  EXPECT_EQ(dialogs.asked, 1);
  EXPECT_EQ(dialogs.shown.size(), 1);

  preferences.setAutomaticUpdateChecks(false);
  const int requestsBefore = server.requests;
  auto declined = makeController();
  declined.applicationDidFinishLaunching();
  EXPECT_FALSE(waitUntil([&] { return server.requests > requestsBefore; }, 300));
  EXPECT_EQ(preferences.launchCount(), 5);
}

TEST(UpdateAnnouncement, OffersTheDownloadAndALiveReleaseNotesLink) {
  AppcastItem item{"Tidewell 1.1",
                   "110",
                   "1.1.0",
                   "https://tidewell.dev/notes/1.1.html?a=1&b=2",
                   "https://tidewell.dev/download",
                   ""};
  auto box = ui::MessageBoxUpdateDialogs::updateAvailableBox(item, "1.0.0", nullptr);
  EXPECT_EQ(box->defaultButton()->objectName(), "download");
  QLabel* notes = nullptr;
  for (auto* label : box->findChildren<QLabel*>()) {
    if (label->text().contains("Release notes")) notes = label;
  }
  ASSERT_TRUE(notes);
  EXPECT_TRUE(notes->openExternalLinks());
  EXPECT_TRUE(notes->text().contains("Tidewell 1.1.0 is now available. You have 1.0.0."));
  EXPECT_TRUE(notes->text().contains("href=\"https://tidewell.dev/notes/1.1.html?a=1&amp;b=2\""));
}

}  // namespace
}  // namespace tw
