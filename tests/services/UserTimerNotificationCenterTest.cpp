#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>

#include "app/ScanReminders.h"
#include "fs/Shell.h"
#include "platform/TextLocale.h"
#include "platform/UserTimerNotificationCenter.h"
#include "support/LogCapture.h"
#include "support/StandInEnvironment.h"
#include "support/StandInTools.h"
#include "support/TempDir.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using Period = Preferences::Period;

std::vector<std::string> onCalendarDates(const fs::path& timer) {
  std::vector<std::string> dates;
  std::ifstream in(timer);
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("OnCalendar=", 0) == 0) dates.push_back(line.substr(11));
  }
  return dates;
}

class UserTimerCenterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    useSystemctl("exit 0");
    center = std::static_pointer_cast<UserTimerNotificationCenter>(makeDesktopNotificationCenter(
        host, "/opt/My Apps/Tidewell.app/Contents/MacOS/tidewell-remind", [this] { return serverPresent; }));
    reminders = std::make_unique<ScanReminders>(center, "dev.tidewell.Tidewell");
  }

  // The stand-in logs each call's arguments as one line, then runs `behaviour`.
  void useSystemctl(const std::string& behaviour) {
    test::writeStandInTool(root.path(), "/usr/bin/systemctl",
                           "echo \"$*\" >> " + test::shellQuoted(calls.string()) + "\n" + behaviour);
  }

  test::TempDir root;
  Host host = test::hostWithRoot(root.path());
  ScopedHost scopedHost{host};
  fs::path calls = root / "systemctl-calls";
  bool serverPresent = true;
  std::shared_ptr<UserTimerNotificationCenter> center;
  std::unique_ptr<ScanReminders> reminders;
};

TEST_F(UserTimerCenterTest, ScheduledSeriesIsStoredAndTimedByAUserTimer) {
  center->addRequests({{"org.example.Other.0", {"Other", "Body", false, ""}, TimeIntervalTrigger{86400, false}}});
  reminders->applySettings(true, Period::everyWeek);
  reminders->applySettings(true, Period::everyMonth);

  EXPECT_EQ(center->storePath(), root / "home/.local/state/tidewell/pending-notifications.json");
  auto pending = center->pendingRequests();
  ASSERT_EQ(pending.size(), 53u);
  EXPECT_EQ(pending[0].identifier, "org.example.Other.0");
  EXPECT_EQ(pending[52].identifier, "dev.tidewell.Tidewell.scanReminder.51");
  EXPECT_EQ(center->notificationCategories().at(0).actions.at(1).title, "Close");
  // A second reader sees the same requests: nothing lives only in memory.
  EXPECT_EQ(std::static_pointer_cast<UserTimerNotificationCenter>(makeDesktopNotificationCenter(host, "", {}))
                ->pendingRequests(),
            pending);

  std::string service = test::readFile(center->servicePath());
  EXPECT_NE(service.find("ExecStart=\"/opt/My Apps/Tidewell.app/Contents/MacOS/tidewell-remind\" --deliver"),
            std::string::npos);
  std::string timer = test::readFile(center->timerPath());
  EXPECT_NE(timer.find("Persistent=true\n"), std::string::npos);
  auto dates = onCalendarDates(center->timerPath());
  ASSERT_EQ(dates.size(), 53u);  // the other request's date too: the centre delivers every request
  EXPECT_TRUE(std::regex_match(dates[0], std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d UTC)"))) << dates[0];

  auto systemctlCalls = test::readCallLog(calls);
  ASSERT_GE(systemctlCalls.size(), 3u);
  EXPECT_EQ(std::vector<std::string>(systemctlCalls.end() - 3, systemctlCalls.end()),
            (std::vector<std::string>{"--user daemon-reload", "--user enable tidewell-scan-reminder.timer",
                                      "--user restart tidewell-scan-reminder.timer"}));

  if (fs::exists("/usr/bin/systemd-analyze")) {
    std::vector<std::string> arguments{"calendar"};
    arguments.insert(arguments.end(), dates.begin(), dates.end());
    ScopedHost realRoot{Host::fromProcess()};
    auto checked = Shell::run("/usr/bin/systemd-analyze", arguments);
    EXPECT_EQ(checked.status, 0) << checked.output;
  }
}

TEST_F(UserTimerCenterTest, WithdrawingRemovesOnlyTheApplicationsRequestsAndTheTimerWithTheLast) {
  reminders->applySettings(true, Period::everyWeek);
  center->addRequests({{"org.example.Other.0", {"Other", "", false, ""}, TimeIntervalTrigger{86400, false}}});
  reminders->applySettings(false, Period::everyWeek);
  ASSERT_EQ(center->pendingRequests().size(), 1u);
  EXPECT_EQ(onCalendarDates(center->timerPath()).size(), 1u);

  center->removePendingRequests({"org.example.Other.0"});
  EXPECT_FALSE(fs::exists(center->timerPath()));
  EXPECT_FALSE(fs::exists(center->servicePath()));
  auto systemctlCalls = test::readCallLog(calls);
  EXPECT_EQ(std::vector<std::string>(systemctlCalls.end() - 2, systemctlCalls.end()),
            (std::vector<std::string>{"--user disable --now tidewell-scan-reminder.timer", "--user daemon-reload"}));
}

TEST_F(UserTimerCenterTest, WithoutUserSystemdTheLogSaysSoAndLoginChecksTheDates) {
  useSystemctl("echo 'Failed to connect to bus: No medium found' >&2; exit 1");
  test::LogCapture log;
  reminders->applySettings(true, Period::everyWeek);
  EXPECT_EQ(center->pendingRequests().size(), 52u);
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{
                "⚠️ ScanReminders: No user systemd to time the reminders (Failed to connect to bus: No "
                "medium found); they are checked at every login instead"}));
  std::string entry = test::readFile(center->autostartPath());
  EXPECT_NE(entry.find("Exec=\"/opt/My Apps/Tidewell.app/Contents/MacOS/tidewell-remind\" --deliver"),
            std::string::npos);

  reminders->applySettings(false, Period::everyWeek);
  EXPECT_FALSE(fs::exists(center->autostartPath()));
}

TEST_F(UserTimerCenterTest, WithoutNotificationServerNothingIsScheduledAndItIsAskedAgain) {
  serverPresent = false;
  EXPECT_EQ(center->authorizationStatus(), AuthorizationStatus::notDetermined);
  reminders->applySettings(true, Period::everyWeek);
  EXPECT_TRUE(center->pendingRequests().empty());
  serverPresent = true;
  reminders->applySettings(true, Period::everyWeek);
  EXPECT_EQ(center->pendingRequests().size(), 52u);
}

TEST_F(UserTimerCenterTest, DueRequestsAreTakenOnceAndAnUnreadableStoreIsSetAside) {
  ScopedTextLocale locale{"en_US", "UTC"};
  center->addRequests({{"a", {}, CalendarTrigger{{2020, 1, 1, 0, 0, 0}, false}},
                       {"b", {}, CalendarTrigger{{2099, 1, 1, 0, 0, 0}, false}},
                       {"c", {}, CalendarTrigger{{2019, 6, 1, 0, 0, 0}, false}}});
  auto now = std::chrono::system_clock::now();
  auto due = center->takeDueRequests(now);
  ASSERT_EQ(due.size(), 2u);
  EXPECT_EQ(due[0].identifier, "c");
  EXPECT_EQ(due[1].identifier, "a");
  EXPECT_TRUE(center->takeDueRequests(now).empty());
  EXPECT_EQ(onCalendarDates(center->timerPath()), (std::vector<std::string>{"2099-01-01 00:00:00 UTC"}));

  test::writeFile(center->storePath(), "{\"requests\": [");
  test::LogCapture log;
  EXPECT_TRUE(center->pendingRequests().empty());
  EXPECT_TRUE(fs::exists(center->storePath().string() + ".corrupt"));
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.lines()[0].rfind("⚠️ ScanReminders: Pending reminders in ", 0), 0u);
}

}  // namespace
}  // namespace tw
