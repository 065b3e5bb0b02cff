// Calendar arithmetic and date texts in the user's calendar and time zone (ICU's Gregorian
// calendar, the zone of TextLocale.h): adding days or months as a calendar does it (31 January
// plus one month is the last day of February), splitting a moment into its local date and time
// of day and back, and the long description of a moment used in log lines.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace tw {

using CalendarTime = std::chrono::system_clock::time_point;

// A local date and time of day in the current calendar (month and day count from 1).
struct DateComponents {
  int year = 0;
  int month = 0;
  int day = 0;
  int hour = 0;
  int minute = 0;
  int second = 0;
  friend bool operator==(const DateComponents&, const DateComponents&) = default;
};

enum class CalendarUnit { day, month };

// `time` moved by `amount` units in the current calendar, keeping the time of day; a month step
// that lands beyond the end of a month stays on its last day. Absent when the calendar cannot
// form the date.
std::optional<CalendarTime> addingToDate(CalendarTime time, CalendarUnit unit, int amount);

// The local components of `time` (whole seconds).
DateComponents dateComponents(CalendarTime time);
// The moment that the local components stand for; absent when they form no date.
std::optional<CalendarTime> dateFromComponents(const DateComponents& components);

// Full date with long time in the user's locale ("Monday, November 30, 2026 at 10:15:30 AM
// GMT+1" in English).
std::string formatFullDateTime(CalendarTime time);

}  // namespace tw
