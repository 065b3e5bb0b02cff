// The application services, offscreen: the update check against a feed server on 127.0.0.1, feedback and issue mails,
// and scan reminders (dates, scheduling, the user-timer centre, the preferences window, launch and the delivery
// helper).
#include <gmock/gmock.h>

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>
#include <QTimer>
#include <thread>

#include "app/FeedbackMailer.h"
#include "app/ScanReminders.h"
#include "platform/Error.h"
#include "platform/TextLocale.h"
#include "platform/UserTimerNotificationCenter.h"
#include "support/RunProcess.h"
#include "support/StandInEnvironment.h"
#include "support/StandInTools.h"
#include "support/TempDir.h"
#include "ui/ApplicationServices.h"
#include "ui/DesktopNotifications.h"
#include "ui/PreferencesWindow.h"
#include "ui/UpdateController.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using ui::UpdateController;
using Strings = std::vector<std::string>;
using Outcome = UpdateController::Outcome;
using namespace std::chrono_literals;
using Period = Preferences::Period;
using Requests = std::vector<NotificationRequest>;
using testing::AllOf, testing::Contains, testing::HasSubstr, testing::StartsWith;

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
          ++requests;
          if (response.isEmpty()) return;  // a stuck server
          // A late last byte comes after Qt has reported the progress of the rest.
          socket->write(lateLastByte ? response.chopped(1) : response);
          QTimer::singleShot(lateLastByte ? 300 : 0, socket, [this, socket] {
            if (lateLastByte) socket->write(response.right(1));
            socket->disconnectFromHost();
          });
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
  bool lateLastByte = true;
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
  // Sent at once, a feed can arrive whole between two progress reports: it is measured when it is in.
  server.lateLastByte = false;
  server.serve(200, older.leftJustified((4 << 20) + 1));
  shown.clear();
  EXPECT_EQ(check(&UpdateController::checkForUpdates), failed);
  EXPECT_EQ(shown, QStringList{"failed: The update feed is too large."});
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

const NotificationRequest other{"org.example.Other.0", {"Other", "Body", false, ""}, TimeIntervalTrigger{60}};

struct MemoryCenter : NotificationCenter {  // in memory, recording what the reminders did to it
  AuthorizationStatus authorizationStatus() override { return AuthorizationStatus::authorized; }
  bool requestAuthorization() override { return ++authorizationRequests, grantOnRequest; }
  Requests pendingRequests() override { return std::this_thread::sleep_for(delay), pending; }
  void removePendingRequests(const Strings& ids) override {
    std::erase_if(pending, [&](const auto& request) { return std::ranges::count(ids, request.identifier) > 0; });
  }
  void setNotificationCategories(const std::vector<NotificationCategory>& all) override { categories = all; }
  void addRequests(const Requests& all) override { pending.insert(pending.end(), all.begin(), all.end()); }

  bool grantOnRequest = true;
  int authorizationRequests = 0;
  std::chrono::milliseconds delay{0};  // before the centre answers
  Requests pending;
  std::vector<NotificationCategory> categories;
};

class ScanRemindersTest : public ::testing::Test {
 protected:
  ScopedTextLocale locale{"en_US", "Europe/Zurich"};  // with summer time
  std::shared_ptr<MemoryCenter> center = std::make_shared<MemoryCenter>();
  CalendarTime now = *dateFromComponents({2026, 3, 2, 10, 15, 30});  // a Monday
  ScanReminders reminders{center, "dev.tidewell.Tidewell", [this] { return now; }};
};

TEST_F(ScanRemindersTest, SeriesStepsFromThePreviousReminderInTheLocalCalendarAndFollowsTheAuthorisation) {
  using Day = std::array<int, 3>;
  using enum Period;
  const std::tuple<Period, DateComponents, std::vector<Day>, Day> cases[] = {
      // Weekly across the summer-time change (29 March) keeps the time of day.
      {everyWeek, {2026, 3, 2, 10, 15, 30}, {{2026, 3, 9}, {2026, 3, 16}, {2026, 3, 23}, {2026, 3, 30}}, {2027, 3, 1}},
      // From 31 January: end of February, then the 28th (the 29th until the next short February).
      {everyMonth, {2027, 1, 31, 9, 0, 0}, {{2027, 2, 28}, {2027, 3, 28}, {2027, 4, 28}}, {2031, 5, 28}},
      {every2Months, {2026, 12, 31, 7, 30, 0}, {{2027, 2, 28}, {2027, 4, 28}}, {2035, 8, 28}},
  };
  for (const auto& [period, start, first, last] : cases) {
    now = *dateFromComponents(start);
    auto dates = reminders.reminderDates(period, 52);
    ASSERT_EQ(dates.size(), 52u);
    auto at = [&](Day day) { return DateComponents{day[0], day[1], day[2], start.hour, start.minute, start.second}; };
    for (size_t i = 0; i < first.size(); ++i) EXPECT_EQ(dateComponents(dates[i]), at(first[i])) << i;
    EXPECT_EQ(dateComponents(dates.back()), at(last));
  }

  using enum AuthorizationStatus;
  // The status and what the centre grants when asked: the requests scheduled and the times it was asked.
  const std::tuple<AuthorizationStatus, bool, size_t, int> authorisations[] = {
      {authorized, false, 52, 0},   {provisional, false, 52, 0}, {notDetermined, true, 52, 1},
      {notDetermined, false, 0, 1}, {denied, true, 0, 0},
  };
  for (const auto& [status, grant, scheduled, asked] : authorisations) {
    *center = {};
    center->grantOnRequest = grant;
    reminders.scheduleReminders(status, Period::everyWeek);
    EXPECT_EQ(std::pair(center->pending.size(), center->authorizationRequests), std::pair(scheduled, asked));
  }
}

TEST_F(ScanRemindersTest, SchedulingReplacesTheSeriesAndTheNextReminderIsTheEarliestOfItsOwn) {
  center->pending.push_back(other);
  reminders.scheduleReminders(AuthorizationStatus::authorized, Period::everyMonth);
  now += 24h;
  reminders.scheduleReminders(AuthorizationStatus::authorized, Period::everyWeek);
  ASSERT_EQ(center->pending.size(), 53u);
  EXPECT_EQ(center->pending[0], other);
  auto dates = reminders.reminderDates(Period::everyWeek, 52);
  const std::string prefix = "dev.tidewell.Tidewell.scanReminder.";
  // The same content in each (what it says is checked where the helper shows it), a date from the previous one.
  for (size_t i = 0; i < 52; ++i)
    EXPECT_EQ(center->pending[i + 1], (NotificationRequest{prefix + std::to_string(i), center->pending[1].content,
                                                           CalendarTrigger{dateComponents(dates[i])}}));
  EXPECT_FALSE(center->categories.at(0).actions.at(1).foreground);  // "Close" leaves the window closed
  reminders.applySettings(false, Period::everyWeek);
  EXPECT_EQ(center->pending, std::vector{other});

  reminders.applySettingsInBackground(true, Period::everyMonth);  // background changes apply in the order made
  reminders.applySettingsInBackground(false, Period::everyMonth);
  reminders.applySettingsInBackground(true, Period::every2weeks);
  reminders.waitUntilIdle();
  ASSERT_EQ(center->pending.size(), 53u);
  // The next reminder is the application's earliest still to come: not `other`, due in a minute, nor one past.
  center->pending.push_back({prefix + "past", {}, CalendarTrigger{{2026, 3, 1}}});
  EXPECT_EQ(dateComponents(*reminders.nextReminderDate()), (DateComponents{2026, 3, 17, 10, 15, 30}));
  center->pending.push_back({prefix + "9", {}, TimeIntervalTrigger{3600}});
  EXPECT_EQ(reminders.nextReminderDate(), now + 1h);
  test::LogCapture log;
  reminders.logNextReminder();
  EXPECT_EQ(log.lines(), Strings{"❕ Next reminder: Tuesday, March 3, 2026 at 11:15:30\u202fAM GMT+1"});

  // A centre that does not answer within the second counts as having nothing pending.
  center->delay = 1500ms;
  auto started = std::chrono::steady_clock::now();
  EXPECT_EQ(reminders.nextReminderDate(), std::nullopt);
  EXPECT_LT(std::chrono::steady_clock::now() - started, 1400ms);
}

TEST_F(ScanRemindersTest, PreferencesWindowShowsTheStoredSettingsAndStoresEveryChangeAtOnce) {
  test::TempDir folder;
  Preferences preferences{folder / "settings.plist"};
  ui::PreferencesWindow window(preferences,
                               [this](bool enabled, Period period) { reminders.applySettings(enabled, period); });
  window.show();
  auto* periods = window.notificationsPeriodPopUpButton();
  // The reminders box, the pop-up's period and whether it is enabled, the dry-run box, then what is stored.
  const auto shown = [&] {
    std::string text = periods->currentText().toStdString();
    for (bool on :
         {window.notificationsEnabledButton()->isChecked(), periods->isEnabled(),
          window.dryRunEnabledButton()->isChecked(), preferences.notificationsEnabled(), preferences.dryRunEnabled()})
      text += on ? " on" : " off";
    return text;
  };
  using enum Period;
  for (int i = 0; auto period : {everyWeek, every2weeks, everyMonth, every2Months})
    EXPECT_EQ(ui::PreferencesWindow::periodOf(periods->itemText(i++)), period);
  EXPECT_EQ(ui::PreferencesWindow::periodOf("Every day"), std::nullopt);
  preferences.setNotificationsEnabled(false);
  preferences.setDryRunEnabled(true);
  preferences.setNotificationsPeriod(every2Months);
  window.hide();
  window.show();  // shown again, the window reads what another process may have changed meanwhile
  EXPECT_EQ(shown(), "Every 2 months off off on off on");

  QTest::mouseClick(window.notificationsEnabledButton(), Qt::LeftButton);  // every change is stored and applied at once
  EXPECT_EQ(shown(), "Every 2 months on on on on on");
  EXPECT_EQ(center->pending.at(0).trigger, NotificationTrigger(CalendarTrigger{{2026, 5, 2, 10, 15, 30}}));
  QTest::mouseClick(window.dryRunEnabledButton(), Qt::LeftButton);
  QTest::mouseClick(window.notificationsEnabledButton(), Qt::LeftButton);
  EXPECT_EQ(shown(), "Every 2 months off off off off off");
  EXPECT_TRUE(center->pending.empty());
}

// The Linux centre on a machine of its own whose stand-in systemctl logs each call's arguments.
class UserTimerCenterTest : public ::testing::Test {
 protected:
  void SetUp() override { useSystemctl("exit 0"); }
  void useSystemctl(const std::string& behaviour) {
    test::writeStandInTool(root.path(), "/usr/bin/systemctl",
                           "echo \"$*\" >> " + test::shellQuoted(calls.string()) + "\n" + behaviour);
  }
  Strings timer() { return test::readCallLog(center->timerPath()); }
  static auto calendarLines(size_t count) { return Contains(StartsWith("OnCalendar=")).Times(count); }

  test::TempDir root;
  Host host = test::hostWithRoot(root.path());
  ScopedHost scopedHost{host};
  fs::path calls = root / "systemctl-calls";
  const fs::path helper = root / "My Apps/Tidewell.app/Contents/MacOS/tidewell-remind";
  std::function<bool()> serverPresent = [] { return true; };
  std::shared_ptr<UserTimerNotificationCenter> center = std::static_pointer_cast<UserTimerNotificationCenter>(
      makeDesktopNotificationCenter(host, helper, [this] { return serverPresent(); }));
  ScanReminders reminders{center, "dev.tidewell.Tidewell"};
};

TEST_F(UserTimerCenterTest, SeriesIsTimedByAUserTimerOrChecksAtEveryLoginAndWithdrawnWithTheLastRequest) {
  reminders.applySettings(true, Period::everyWeek);
  fs::remove(calls);
  center->addRequests({other});
  EXPECT_THAT(test::readFile(center->servicePath()), HasSubstr("ExecStart=\"" + helper.string() + "\" --deliver"));
  EXPECT_THAT(timer(), calendarLines(53));  // the other request's date too: the centre delivers every request
  EXPECT_EQ(test::readCallLog(calls), (Strings{"--user daemon-reload", "--user enable tidewell-scan-reminder.timer",
                                               "--user restart tidewell-scan-reminder.timer"}));

  // Withdrawing removes only the application's requests, and the timer with the last one.
  reminders.applySettings(false, Period::everyWeek);
  EXPECT_EQ(center->pendingRequests(), std::vector{other});
  EXPECT_THAT(timer(), calendarLines(1));
  fs::remove(calls);
  center->removePendingRequests({other.identifier});
  EXPECT_FALSE(fs::exists(center->timerPath()) || fs::exists(center->servicePath()));
  EXPECT_EQ(test::readCallLog(calls),
            (Strings{"--user disable --now tidewell-scan-reminder.timer", "--user daemon-reload"}));

  // Without a user systemd the log says so and every login checks the dates.
  useSystemctl("echo 'Failed to connect to bus: No medium found' >&2; exit 1");
  test::LogCapture log;
  reminders.applySettings(true, Period::everyWeek);
  EXPECT_EQ(center->pendingRequests().size(), 52u);
  EXPECT_EQ(log.lines(),
            (Strings{"⚠️ ScanReminders: No user systemd to time the reminders (Failed to connect to bus: "
                     "No medium found); they are checked at every login instead"}));
  EXPECT_THAT(test::readFile(center->autostartPath()), HasSubstr("Exec=\"" + helper.string() + "\" --deliver"));
  reminders.applySettings(false, Period::everyWeek);
  EXPECT_FALSE(fs::exists(center->autostartPath()));
}

TEST_F(UserTimerCenterTest, DueRequestsAreTakenInDateOrderAndAnUnreadableStoreIsSetAside) {
  ScopedTextLocale locale{"en_US", "UTC"};
  const auto at = [](const char* id, int year) { return NotificationRequest{id, {}, CalendarTrigger{{year, 1, 1}}}; };
  center->addRequests({at("a", 2020), at("b", 2099), at("c", 2019)});
  EXPECT_EQ(center->takeDueRequests(std::chrono::system_clock::now()), (std::vector{at("c", 2019), at("a", 2020)}));
  EXPECT_THAT(timer(), AllOf(calendarLines(1), Contains("OnCalendar=2099-01-01 00:00:00 UTC")));

  test::writeFile(center->storePath(), "{\"requests\": [");
  test::LogCapture log;
  EXPECT_TRUE(center->pendingRequests().empty());
  EXPECT_TRUE(fs::exists(center->storePath().string() + ".corrupt"));
  EXPECT_TRUE(log.lines().size() == 1 && log.lines()[0].starts_with("⚠️ ScanReminders: Pending reminders in "));
}

TEST_F(UserTimerCenterTest, LaunchWithRemindersOffWithdrawsThemAfterLoggingWhatWasPending) {
  ScanReminders(center, TIDEWELL_BUNDLE_IDENTIFIER).applySettings(true, Period::everyWeek);  // left by an earlier run
  Preferences::shared().setNotificationsEnabled(false);
  Preferences::shared().setAutomaticUpdateChecks(false);  // answered already: no modal question at the second start
  for (const std::string logged : {"❕ Next reminder: ", "❕ No reminder scheduled!"}) {
    test::LogCapture log;
    ui::ApplicationServices().finishLaunching();  // the services wait for the reminders' worker as they end
    EXPECT_TRUE(log.lines().at(0).starts_with(logged)) << log.lines()[0];
  }
  EXPECT_TRUE(center->pendingRequests().empty());
  EXPECT_EQ(Preferences::shared().launchCount(), 2);
}

// The reminder helper against the stand-in notification server on the test's private session bus.
class ReminderDeliveryTest : public UserTimerCenterTest {
 protected:
  void SetUp() override {
    // The window, as the helper starts it: it records whether the command-line marker reached it.
    test::writeStandInTool(root.path(), "/My Apps/Tidewell.app/Contents/MacOS/tidewell",
                           "echo \"window marker=[$TIDEWELL_FROM_COMMAND_LINE]\" > " +
                               test::shellQuoted((root / "window-started").string()));
    fs::copy_file(TIDEWELL_REMIND_HELPER, helper);
    UserTimerCenterTest::SetUp();
    const auto eightDaysAgo = [] { return std::chrono::system_clock::now() - 192h; };  // the first reminder is overdue
    ScanReminders(center, "dev.tidewell.Tidewell", eightDaysAgo).applySettings(true, Period::everyWeek);
  }
  void TearDown() override { server.kill(), server.waitForFinished(); }

  void startServer(const QString& answer) {
    server.start(TIDEWELL_NOTIFICATION_SERVER, {QString::fromStdString(record.string()), answer});
    ASSERT_TRUE(QTest::qWaitFor([] { return ui::notificationServerPresent(); }))
        << "the stand-in server did not start: run under dbus-run-session";
  }
  test::ProcessResult deliver() {
    return test::runProcess(helper.string(), {"--deliver", "--wait", "10"},
                            {.environment = {{"TIDEWELL_TEST_ROOT", root.path().string()},
                                             {"TIDEWELL_TEST_HOME", (root / "home").string()},
                                             {"XDG_STATE_HOME", host.stateDirectory.string()},
                                             {"XDG_CONFIG_HOME", host.configDirectory.string()},
                                             {"TIDEWELL_FROM_COMMAND_LINE", "1"}}});
  }

  fs::path record = root / "notify-calls";
  QProcess server;
};

TEST_F(ReminderDeliveryTest, DueReminderIsPostedAndScanStartsTheWindow) {
  startServer("dev.tidewell.Tidewell.scanReminder.scan");
  auto result = deliver();
  EXPECT_EQ(result.exitStatus, 0) << result.standardError;
  EXPECT_EQ(test::readCallLog(record),
            Strings{R"({"actions":["dev.tidewell.Tidewell.scanReminder.scan","Scan",)"
                    R"("dev.tidewell.Tidewell.scanReminder.dismiss","Close"],"application":"Tidewell",)"
                    R"("body":"It's been a while since your last scan, check if you can reclaim some storage.",)"
                    R"("hints":{"desktop-entry":"tidewell","sound-name":"message-new-instant","urgency":"\u0001"},)"
                    R"("summary":"Scan Xcode cache?"})"});
  EXPECT_TRUE(QTest::qWaitFor([&] { return test::readFile(root / "window-started") == "window marker=[]\n"; }));
  EXPECT_EQ(center->pendingRequests().size(), 51u);
}

// Without a server, asked on the real bus from the worker, nothing is scheduled and the helper keeps the reminder.
TEST_F(ReminderDeliveryTest, WithoutAServerNothingChangesAndCloseLeavesTheWindowClosed) {
  serverPresent = [] { return ui::notificationServerPresent(); };
  const auto pending = center->pendingRequests();
  reminders.applySettingsInBackground(true, Period::everyMonth);
  reminders.waitUntilIdle();
  EXPECT_EQ(center->pendingRequests(), pending);
  auto missing = deliver();
  EXPECT_EQ(missing.exitStatus, 1);
  EXPECT_THAT(missing.standardError, HasSubstr("tidewell-remind: Cannot show the scan reminder"));
  EXPECT_EQ(center->pendingRequests().size(), 52u);  // kept for the next delivery

  startServer("");
  auto closed = deliver();
  EXPECT_EQ(closed.exitStatus, 0) << closed.standardError;
  EXPECT_FALSE(fs::exists(root / "window-started"));
  EXPECT_EQ(center->pendingRequests().size(), 51u);
  EXPECT_EQ(deliver().exitStatus, 0);  // nothing else is due: the next start posts nothing
  EXPECT_EQ(test::readCallLog(record).size(), 1u);
  reminders.applySettingsInBackground(true, Period::everyMonth);
  reminders.waitUntilIdle();
  EXPECT_EQ(center->pendingRequests().size(), 52u);
}

}  // namespace
}  // namespace tw

int main(int argc, char** argv) {
  qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication application(argc, argv);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
