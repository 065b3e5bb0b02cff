// Scan reminders: dates, scheduling, the user-timer centre, the preferences window, launch and the delivery helper.
#include <gmock/gmock.h>

#include <QCheckBox>
#include <QComboBox>
#include <QProcess>
#include <QTest>
#include <thread>

#include "app/ScanReminders.h"
#include "platform/TextLocale.h"
#include "platform/UserTimerNotificationCenter.h"
#include "support/RunProcess.h"
#include "support/StandInEnvironment.h"
#include "support/StandInTools.h"
#include "support/TempDir.h"
#include "ui/ApplicationServices.h"
#include "ui/DesktopNotifications.h"
#include "ui/PreferencesWindow.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using Period = Preferences::Period;
using Strings = std::vector<std::string>;
using Requests = std::vector<NotificationRequest>;
using namespace std::chrono_literals;
using testing::AllOf, testing::Contains, testing::HasSubstr, testing::StartsWith;

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
