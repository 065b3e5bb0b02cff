// The menu's services, offscreen: the update check against a feed server on 127.0.0.1, feedback and issue mails.
#include <gmock/gmock.h>

#include <QApplication>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>
#include <QTimer>

#include "app/FeedbackMailer.h"
#include "platform/Error.h"
#include "support/StandInEnvironment.h"
#include "support/StandInTools.h"
#include "support/TempDir.h"
#include "ui/UpdateController.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using ui::UpdateController;
using Strings = std::vector<std::string>;
using Outcome = UpdateController::Outcome;
using namespace std::chrono_literals;

TEST(AppcastVersions, CompareNumericallyWithPreReleasesBeforeTheirRelease) {
  const std::tuple<const char*, const char*, int> cases[] = {
      {"1.9", "1.10", -1},     {"1.0", "1.0.1", -1}, {"1.0b2", "1.0", -1},    {"1.0a1", "1.0b1", -1},
      {"1.0b2", "1.0b10", -1}, {"2", "10", -1},      {"1.0rc1", "1.0.0", -1}, {"99", "100", -1},
      {"1.2.3", "1.3", -1},    {"0009", "10", -1},   {"1.10", "1.10", 0},     {"010", "10", 0},
  };
  for (const auto& [a, b, order] : cases) {
    EXPECT_EQ(compareVersions(a, b), order) << a << " against " << b;
    EXPECT_EQ(compareVersions(b, a), -order) << b << " against " << a;
  }
}

TEST(AppcastParsing, ReadsItemsAndPicksTheNewestForThisPlatform) {
  auto items = parseAppcast(R"(<?xml version="1.0" encoding="utf-8"?><!-- published by the release script -->
<rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle"><channel><title>Tidewell</title>
  <item><title>Version 1.9</title><sparkle:releaseNotesLink>https://tidewell.dev/1.9.html</sparkle:releaseNotesLink>
    <enclosure url="https://tidewell.dev/1.9.zip" sparkle:version="19" sparkle:shortVersionString="1.9" length="1"/></item>
  <item><title><![CDATA[Version 1.10 & more]]></title><sparkle:version>110</sparkle:version>
    <sparkle:shortVersionString>1.10</sparkle:shortVersionString><link>https://tidewell.dev/download</link>
    <sparkle:releaseNotesLink>https://tidewell.dev/1.10.html?a=1&amp;b=2</sparkle:releaseNotesLink>
    <enclosure url="https://tidewell.dev/1.10.tar.xz" sparkle:os="linux" length="1" type="application/x-xz"/></item>
  <item><title>Version 2.0 for Mac</title><enclosure sparkle:version="200" sparkle:os="macos"/></item>
</channel></rss>)");
  ASSERT_EQ(items.size(), 3u);
  EXPECT_EQ(items[0].version + " " + items[0].shortVersion + " " + items[0].downloadLink,
            "19 1.9 https://tidewell.dev/1.9.zip");
  EXPECT_EQ(items[1].title + " " + items[1].releaseNotesLink + " " + items[1].downloadLink,
            "Version 1.10 & more https://tidewell.dev/1.10.html?a=1&b=2 https://tidewell.dev/download");
  EXPECT_EQ(newestItem(items).value().shortVersion, "1.10");
  EXPECT_EQ(newestItem(items, "macos").value().version, "200");
}

TEST(AppcastParsing, BadFeedsGiveAReadableError) {
  const std::pair<std::string, std::string> cases[] = {
      {"", "is empty"},
      {"  \n", "is empty"},
      {"<html><body>Not found</body></html>", "is not an RSS feed (its root is <html>)"},
      {"<rss><channel><item><title>x</title>", "is not valid XML (<item> is not closed at byte 36)"},
      {"<rss><channel></item></channel></rss>", "is not valid XML (</...> does not match <channel> at byte 20)"},
      {"<rss version=2.0></rss>", "is not valid XML (an unquoted attribute at byte 13)"},
      {"<rss></rss>", "has no channel"},
      {"<rss><channel><item><title>Beta</title></item></channel></rss>", "has an item without a version (Beta)"},
      {"<rss><channel>&nbsp;</channel></rss>", "is not valid XML (an unknown entity &nbsp; at byte 20)"},
      {"<rss><channel>" + QByteArray("<a>").repeated(100000).toStdString(),
       "is not valid XML (elements nested too deeply at byte 203)"},
  };
  for (const auto& [feed, message] : cases)
    EXPECT_THAT([&] { parseAppcast(feed); }, testing::ThrowsMessage<Error>("The update feed " + message)) << feed;
}

// An HTTP server on the loopback address answering every request with `response` (never when empty).
struct FeedServer : QTcpServer {
  FeedServer() {
    listen(QHostAddress::LocalHost);
    connect(this, &QTcpServer::newConnection, this, [this] {
      while (QTcpSocket* socket = nextPendingConnection()) {
        connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
          if (++requests, response.isEmpty()) return;  // a stuck server
          // The last byte comes late, after Qt has reported the progress of the rest.
          socket->write(response.chopped(1));
          QTimer::singleShot(300, socket,
                             [this, socket] { socket->write(response.right(1)), socket->disconnectFromHost(); });
        });
      }
    });
  }
  void serve(int status, const QByteArray& body) {
    response = "HTTP/1.1 " + QByteArray::number(status) + (status == 200 ? " OK" : " Not Found") +
               "\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" + body;
  }
  QUrl url() const { return QUrl(QStringLiteral("http://127.0.0.1:%1/appcast.xml").arg(serverPort())); }
  QByteArray response;
  int requests = 0;
};

QByteArray feedWithVersion(const char* version) {
  return "<rss><channel><item><link>https://tidewell.dev/download</link><sparkle:version>" + QByteArray(version) +
         "</sparkle:version></item></channel></rss>";
}

class UpdateControllerTest : public ::testing::Test, public ui::UpdateDialogs {  // recording what the dialogs show
 protected:
  void showUpToDate(const QString& version) override { shown << "up to date: " + version; }
  void showUpdateAvailable(const AppcastItem& item, const QString& version) override {
    shown << QString::fromStdString("available: " + item.shortVersion + " " + item.downloadLink) + " over " + version;
  }
  void showCheckFailed(const QString& reason) override { shown << "failed: " + reason; }
  bool askForAutomaticChecks() override { return ++asked, true; }
  // The outcome of a check that `start` begins on a controller of the bundle 1.10 (110) with a time limit of 1 s.
  std::optional<Outcome> check(void (UpdateController::*start)(), int waitMs = 5000, QUrl url = {}) {
    UpdateController controller({url.isEmpty() ? server.url() : url, "110", "1.10"}, *this, preferences);
    controller.setTimeout(1s);
    std::optional<Outcome> outcome;
    QObject::connect(&controller, &UpdateController::checkFinished, [&](Outcome o) { outcome = o; });
    (controller.*start)();
    (void)QTest::qWaitFor([&] { return outcome.has_value(); }, waitMs);
    return outcome;
  }

  test::TempDir folder;
  Preferences preferences{folder / "settings.plist"};
  FeedServer server;
  QStringList shown;
  int asked = 0;
};

TEST_F(UpdateControllerTest, TellsTheUserWhatTheFeedSays) {
  using enum Outcome;
  const QByteArray older = feedWithVersion("19");  // 1.9 is below 1.10
  // Served with this status (0: the server never answers) from the feed server or the address given.
  const std::tuple<int, QByteArray, const char*, Outcome, QString> cases[] = {
      {200, feedWithVersion("111"), nullptr, updateAvailable, "available: 111 https://tidewell.dev/download over 1.10"},
      {200, feedWithVersion("110"), nullptr, upToDate, "up to date: 1.10"},
      {200, older.leftJustified(4 << 20), nullptr, upToDate, "up to date: 1.10"},  // 4 MiB, the largest feed read
      {200, older.leftJustified((4 << 20) + 1), nullptr, failed, "failed: The update feed is too large."},
      {200, "<rss><channel><item>", nullptr, failed,
       "failed: The update feed is not valid XML (<item> is not closed at byte 20)."},
      {404, "gone", nullptr, failed, "failed: Error transferring %1 - server replied: Not Found"},
      {0, "", nullptr, failed, "failed: The update server did not answer within 1 seconds."},
      {200, "", "http://tidewell.dev/appcast.xml", failed,
       "failed: The update feed address is not secure: http://tidewell.dev/appcast.xml"},
  };
  for (const auto& [status, body, url, outcome, shown] : cases) {
    status ? server.serve(status, body) : server.response.clear();
    this->shown.clear();
    EXPECT_EQ(check(&UpdateController::checkForUpdates, 5000, QUrl(url)), outcome) << shown.toStdString();
    EXPECT_EQ(this->shown, QStringList{QString(shown).replace("%1", server.url().toString())});
  }
}

TEST_F(UpdateControllerTest, AutomaticChecksOnlyAfterConsentAskedOnTheSecondStart) {
  using enum Outcome;
  // Each start against the feed served: what came of it (none: no check), the questions asked and the dialogs shown.
  const std::tuple<int, const char*, std::optional<Outcome>, int, int> starts[] = {
      {200, "19", std::nullopt, 0, 0},  // the first start neither checks nor asks
      {200, "19", upToDate, 1, 0},      // a quiet check says nothing when there is nothing new,
      {404, "19", failed, 1, 0},        // nor when it fails,
      {200, "200", updateAvailable, 1, 1},
  };
  for (const auto& [status, version, outcome, asked, shown] : starts) {
    server.serve(status, feedWithVersion(version));
    EXPECT_EQ(check(&UpdateController::applicationDidFinishLaunching, outcome ? 5000 : 300), outcome);
    EXPECT_EQ(std::pair(this->asked, this->shown.size()), std::pair(asked, qsizetype(shown))) << version;
    EXPECT_EQ(server.requests == 0, !outcome);
  }
  preferences.setAutomaticUpdateChecks(false);
  const int requestsBefore = server.requests;
  EXPECT_EQ(check(&UpdateController::applicationDidFinishLaunching, 300), std::nullopt);
  EXPECT_EQ(server.requests, requestsBefore);
  EXPECT_EQ(preferences.launchCount(), 5);
}

TEST(UpdateAnnouncement, OffersTheDownloadAndALiveReleaseNotesLink) {
  auto box = ui::MessageBoxUpdateDialogs::updateAvailableBox(
      {"Tidewell 1.1", "110", "1.1.0", "https://tidewell.dev/notes/1.1.html?a=1&b=2", ""}, "1.0.0", nullptr);
  EXPECT_EQ(box->defaultButton()->objectName(), "download");
  const auto labels = box->findChildren<QLabel*>();
  const auto notes = std::ranges::find_if(labels, [](QLabel* label) { return label->text().contains("<a href"); });
  ASSERT_NE(notes, labels.end());
  EXPECT_TRUE((*notes)->openExternalLinks());
  EXPECT_EQ((*notes)->text(),
            "Tidewell 1.1.0 is now available. You have 1.0.0. Would you like to download it now?"
            "<br><br><a href=\"https://tidewell.dev/notes/1.1.html?a=1&amp;b=2\">Release notes</a>");
}

class FeedbackMailerTest : public ::testing::Test, public FeedbackAlerts {  // recording what the alerts show
 protected:
  void showInformational(const std::string& message, const std::string& text, const std::string& button) override {
    shown.push_back(message + "|" + text + "|" + button);
  }
  void SetUp() override {
    test::writeStandInTool(root.path(), "/usr/bin/xdg-email",
                           "printf '%s\\n' \"$@\" >> " + test::shellQuoted(mailed.string()));
    useMailtoHandler("thunderbird.desktop");
    host.bundle = root / "Tidewell.app";
  }
  void useMailtoHandler(const std::string& handler) {
    test::writeStandInTool(
        root.path(), "/usr/bin/xdg-mime",
        "[ \"$*\" = 'query default x-scheme-handler/mailto' ] && echo " + test::shellQuoted(handler));
  }
  FeedbackMailer mailer() {
    return {host, *this, {}, [](auto task) { task(); }};
  }

  test::TempDir root;
  Host host = test::hostWithRoot(root.path());
  ScopedHost scopedHost{host};
  fs::path mailed = root / "mailed";
  Strings shown;
};

TEST_F(FeedbackMailerTest, FeedbackGoesToTheDecodedAddressOrTheAlertTellsIt) {
  const std::pair<const char*, std::optional<std::string>> decoded[] = {
      {"YQ==", "a"}, {"YWI=", "ab"}, {"YWJj", "abc"}, {"YWJ", std::nullopt}, {"Y!==", std::nullopt}};
  for (const auto& [text, plain] : decoded) EXPECT_EQ(FeedbackMailer::decodeBase64(text), plain) << text;
  mailer().sendFeedback();
  const Strings mail{"--utf8", "--subject", "Tidewell Feedback", "support@tidewell.dev"};
  EXPECT_EQ(test::readCallLog(mailed), mail);

  useMailtoHandler("");
  mailer().sendFeedback();
  EXPECT_EQ(test::readCallLog(mailed), mail);  // not sent again
  EXPECT_EQ(shown, (Strings{"Can't send e-mail|It seems your system doesn't have e-mail configured. You can "
                            "send your feedback manually to support@tidewell.dev|OK"}));
  fs::remove(root / "usr/bin/xdg-email");
  test::LogCapture log;
  mailer().sendFeedback();
  EXPECT_EQ(log.lines(), (Strings{"⚠️ FeedbackMailer: Can't create compose e-mail NSSharingService"}));
}

TEST_F(FeedbackMailerTest, IssueReportAttachesTheLogsThatExist) {
  test::TempDir logs;
  const auto attached = [&](const Logger& logger) {
    fs::remove(mailed);
    mailer().reportAnIssue(logger);
    auto arguments = test::readCallLog(mailed);
    EXPECT_EQ(arguments.at(2) + " | " + arguments.at(4), "Tidewell Issue Report | Write your report here");
    Strings files;
    for (size_t i = 0; i + 1 < arguments.size(); ++i)
      if (arguments[i] == "--attach") files.push_back(fs::relative(arguments[i + 1], logs.path()));
    return files;
  };
  for (const Strings& files :
       {Strings{"id-Log-LogFile-latest.log"}, {"id-Log-LogFile-latest.log", "id-Log-LogFile-previous.log"}})
    EXPECT_EQ(attached(Logger("Log", Logger::Level::info, Logger::FileLogging::on, logs.path(), "id")), files);
  EXPECT_EQ(attached(Logger("Log", Logger::Level::info, Logger::FileLogging::off)), Strings{});
}

TEST_F(FeedbackMailerTest, SystemReportTellsVersionFoldersSystemAndModel) {
  test::writeFile(root / "etc/os-release", "NAME='Arch Linux'\nVERSION=\"rolling\"\n");
  EXPECT_EQ(mailer().systemReport(),
            "Tidewell - (-)\nDoes '~/Library/Developer' folder exists: NO\nCan read '~/Library/Developer' folder: "
            "NO\nCan write '~/Library/Developer' folder: NO\n\nCustom derived data folder: -\nCustom archives folder: "
            "-\n\nSystem: Arch Linux rolling\nMac model: -\n");

  test::writeFile(host.bundle / "Contents/Info.plist",
                  "<plist><dict><key>CFBundleShortVersionString</key>"
                  "<string>1.4.2</string><key>CFBundleVersion</key><string>87</string></dict></plist>");
  test::writeFile(root / "etc/os-release", "PRETTY_NAME=\"Debian 12 (bookworm)\"\nVERSION=\"12 (bookworm)\"\n");
  test::writeFile(root / "sys/class/dmi/id/product_name", "ThinkPad X1 Carbon Gen 11\n");
  fs::create_directories(host.developerFolder());
  Preferences::shared().setCustomDerivedDataFolder("/Volumes/Fast/DerivedData");
  EXPECT_EQ(mailer().systemReport(),
            "Tidewell 1.4.2 (87)\nDoes '~/Library/Developer' folder exists: YES\nCan read '~/Library/Developer' "
            "folder: YES\nCan write '~/Library/Developer' folder: YES\n\nCustom derived data folder: "
            "/Volumes/Fast/DerivedData\nCustom archives folder: -\n\nSystem: Debian 12 (bookworm)\nMac "
            "model: ThinkPad X1 Carbon Gen 11\n");
}

}  // namespace
}  // namespace tw

int main(int argc, char** argv) {
  qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication application(argc, argv);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
