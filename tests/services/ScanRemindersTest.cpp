#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <mutex>
#include <thread>

#include "MemoryNotificationCenter.h"
#include "app/ScanReminders.h"
#include "platform/TextLocale.h"
#include "support/LogCapture.h"

namespace tw {
namespace {

using Period = Preferences::Period;
using namespace std::chrono_literals;

using FakeCenter = test::MemoryNotificationCenter;

CalendarTime localTime(const DateComponents& components) { return *dateFromComponents(components); }

class ScanRemindersTest : public ::testing::Test {
 protected:
  // A zone with summer time, so that a week step across the change must keep the time of day.
  ScopedTextLocale locale{"en_US", "Europe/Zurich"};
  std::shared_ptr<FakeCenter> center = std::make_shared<FakeCenter>();
  CalendarTime now = localTime({2026, 3, 2, 10, 15, 30});  // a Monday
  ScanReminders reminders{center, "dev.tidewell.Tidewell", [this] { return now; }};
};

struct SeriesCase {
  const char* name;
  Period period;
  DateComponents start;
  std::vector<DateComponents> firstDates;
  DateComponents lastDate;
};

TEST_F(ScanRemindersTest, SeriesStepsFromThePreviousReminderInTheLocalCalendar) {
  const SeriesCase cases[] = {
      {"weekly from a Monday at 10:15:30, across the summer-time change",
       Period::everyWeek,
       {2026, 3, 2, 10, 15, 30},
       {{2026, 3, 9, 10, 15, 30}, {2026, 3, 16, 10, 15, 30}, {2026, 3, 23, 10, 15, 30}, {2026, 3, 30, 10, 15, 30}},
       {2027, 3, 1, 10, 15, 30}},
      {"every two weeks", Period::every2weeks, {2026, 3, 2, 8, 0, 0}, {{2026, 3, 16, 8, 0, 0}}, {2028, 2, 28, 8, 0, 0}},
      {"monthly from 31 January: end of February, then the 28th",
       Period::everyMonth,
       {2027, 1, 31, 9, 0, 0},
       {{2027, 2, 28, 9, 0, 0}, {2027, 3, 28, 9, 0, 0}, {2027, 4, 28, 9, 0, 0}},
       {2031, 5, 28, 9, 0, 0}},
      {"monthly from 31 January of a leap year: 29th until the next short February",
       Period::everyMonth,
       {2028, 1, 31, 23, 59, 59},
       {{2028, 2, 29, 23, 59, 59}, {2028, 3, 29, 23, 59, 59}},
       {2032, 5, 28, 23, 59, 59}},
      {"every two months from 31 December",
       Period::every2Months,
       {2026, 12, 31, 7, 30, 0},
       {{2027, 2, 28, 7, 30, 0}, {2027, 4, 28, 7, 30, 0}},
       {2035, 8, 28, 7, 30, 0}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    now = localTime(c.start);
    auto dates = reminders.reminderDates(c.period, 52);
    ASSERT_EQ(dates.size(), 52u);
    for (size_t i = 0; i < c.firstDates.size(); ++i) EXPECT_EQ(dateComponents(dates[i]), c.firstDates[i]) << i;
    EXPECT_EQ(dateComponents(dates.back()), c.lastDate);
    if (c.period == Period::everyWeek) {
      for (auto date : dates) {
        auto components = dateComponents(date);
        EXPECT_EQ(std::tie(components.hour, components.minute, components.second), std::make_tuple(10, 15, 30));
      }
    }
  }
  EXPECT_TRUE(reminders.reminderDates(Period::everyWeek, 0).empty());
}

TEST_F(ScanRemindersTest, SchedulingFollowsTheAuthorisation) {
  struct Case {
    AuthorizationStatus status;
    bool grant;
    size_t scheduled;
    int asked;
  };
  const Case cases[] = {
      {AuthorizationStatus::authorized, false, 52, 0},   {AuthorizationStatus::provisional, false, 52, 0},
      {AuthorizationStatus::notDetermined, true, 52, 1}, {AuthorizationStatus::notDetermined, false, 0, 1},
      {AuthorizationStatus::denied, true, 0, 0},
  };
  for (const auto& c : cases) {
    center->pending.clear();
    center->authorizationRequests = 0;
    center->grantOnRequest = c.grant;
    reminders.scheduleReminders(c.status, Period::everyWeek);
    EXPECT_EQ(center->pending.size(), c.scheduled) << static_cast<int>(c.status);
    EXPECT_EQ(center->authorizationRequests, c.asked) << static_cast<int>(c.status);
  }
}

TEST_F(ScanRemindersTest, SchedulingReplacesTheSeriesAndKeepsOtherRequests) {
  center->pending.push_back({"org.example.Other.0", {"Other", "", false, ""}, TimeIntervalTrigger{60, false}});
  reminders.scheduleReminders(AuthorizationStatus::authorized, Period::everyMonth);
  now += 24h;
  reminders.scheduleReminders(AuthorizationStatus::authorized, Period::everyWeek);

  ASSERT_EQ(center->pending.size(), 53u);
  EXPECT_EQ(center->pending[0].identifier, "org.example.Other.0");
  auto dates = reminders.reminderDates(Period::everyWeek, 52);
  for (int i = 0; i < 52; ++i) {
    const auto& request = center->pending[static_cast<size_t>(i) + 1];
    EXPECT_EQ(request.identifier, "dev.tidewell.Tidewell.scanReminder." + std::to_string(i));
    EXPECT_EQ(request.content, (NotificationContent{"Scan Xcode cache?",
                                                    "It's been a while since your last scan, check if you can "
                                                    "reclaim some storage.",
                                                    true, "dev.tidewell.Tidewell.scanReminder.category"}));
    EXPECT_EQ(request.trigger,
              NotificationTrigger(CalendarTrigger{dateComponents(dates[static_cast<size_t>(i)]), false}));
  }
  EXPECT_EQ(center->categories,
            (std::vector<NotificationCategory>{{"dev.tidewell.Tidewell.scanReminder.category",
                                                {{"dev.tidewell.Tidewell.scanReminder.scan", "Scan", true},
                                                 {"dev.tidewell.Tidewell.scanReminder.dismiss", "Close", false}}}}));

  reminders.applySettings(false, Period::everyWeek);
  ASSERT_EQ(center->pending.size(), 1u);
  EXPECT_EQ(center->pending[0].identifier, "org.example.Other.0");
}

TEST_F(ScanRemindersTest, NextReminderIsTheEarliestOfTheApplicationsOwn) {
  test::LogCapture log;
  reminders.logNextReminder();

  auto calendarRequest = [](std::string identifier, DateComponents when) {
    return NotificationRequest{std::move(identifier), {}, CalendarTrigger{when, false}};
  };
  center->pending = {
      calendarRequest("org.example.Other.0", {2026, 3, 3, 0, 0, 0}),                   // not ours
      calendarRequest("dev.tidewell.Tidewell.scanReminder.0", {2026, 3, 1, 0, 0, 0}),  // past
      calendarRequest("dev.tidewell.Tidewell.scanReminder.2", {2026, 4, 1, 12, 0, 0}),
      calendarRequest("dev.tidewell.Tidewell.scanReminder.1", {2026, 3, 20, 12, 0, 0}),
  };
  EXPECT_EQ(dateComponents(*reminders.nextReminderDate()), (DateComponents{2026, 3, 20, 12, 0, 0}));
  center->pending.push_back({"dev.tidewell.Tidewell.scanReminder.9", {}, TimeIntervalTrigger{3600, false}});
  EXPECT_EQ(reminders.nextReminderDate(), now + 1h);

  reminders.logNextReminder();
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{"❕ No reminder scheduled!",
                                      "❕ Next reminder: Monday, March 2, 2026 at 11:15:30\u202fAM GMT+1"}));

  // A centre that does not answer within the second counts as having nothing pending.
  center->answerDelay = 1500ms;
  auto started = std::chrono::steady_clock::now();
  EXPECT_EQ(reminders.nextReminderDate(), std::nullopt);
  EXPECT_LT(std::chrono::steady_clock::now() - started, 1400ms);
}

TEST_F(ScanRemindersTest, BackgroundChangesApplyInOrder) {
  reminders.applySettingsInBackground(true, Period::everyMonth);
  reminders.applySettingsInBackground(false, Period::everyMonth);
  reminders.applySettingsInBackground(true, Period::every2weeks);
  reminders.waitUntilIdle();
  ASSERT_EQ(center->pending.size(), 52u);
  EXPECT_EQ(std::get<CalendarTrigger>(center->pending[0].trigger).components,
            (DateComponents{2026, 3, 16, 10, 15, 30}));
}

}  // namespace
}  // namespace tw
