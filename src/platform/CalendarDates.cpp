#include "platform/CalendarDates.h"

#include <unicode/calendar.h>
#include <unicode/datefmt.h>
#include <unicode/gregocal.h>
#include <unicode/locid.h>
#include <unicode/timezone.h>
#include <unicode/unistr.h>

#include <cmath>
#include <memory>

namespace tw {
namespace {

UDate toUDate(CalendarTime time) {
  return static_cast<UDate>(std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count());
}

CalendarTime fromUDate(UDate date) {
  return CalendarTime(std::chrono::duration_cast<CalendarTime::duration>(
      std::chrono::milliseconds(static_cast<int64_t>(std::llround(date)))));
}

// A fresh Gregorian calendar in the zone of the moment (TZ may change while the program runs).
// Lenient off: components that name no date are refused instead of rolled over.
std::unique_ptr<icu::Calendar> currentCalendar() {
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::Calendar> calendar(
      new icu::GregorianCalendar(icu::TimeZone::createDefault(), icu::Locale::getDefault(), status));
  if (U_FAILURE(status)) return nullptr;
  return calendar;
}

}  // namespace

std::optional<CalendarTime> addingToDate(CalendarTime time, CalendarUnit unit, int amount) {
  auto calendar = currentCalendar();
  if (!calendar) return std::nullopt;
  UErrorCode status = U_ZERO_ERROR;
  calendar->setTime(toUDate(time), status);
  calendar->add(unit == CalendarUnit::day ? UCAL_DATE : UCAL_MONTH, amount, status);
  UDate result = calendar->getTime(status);
  if (U_FAILURE(status)) return std::nullopt;
  return fromUDate(result);
}

DateComponents dateComponents(CalendarTime time) {
  DateComponents components;
  auto calendar = currentCalendar();
  if (!calendar) return components;
  UErrorCode status = U_ZERO_ERROR;
  calendar->setTime(toUDate(time), status);
  components.year = calendar->get(UCAL_EXTENDED_YEAR, status);
  components.month = calendar->get(UCAL_MONTH, status) + 1;
  components.day = calendar->get(UCAL_DATE, status);
  components.hour = calendar->get(UCAL_HOUR_OF_DAY, status);
  components.minute = calendar->get(UCAL_MINUTE, status);
  components.second = calendar->get(UCAL_SECOND, status);
  return U_FAILURE(status) ? DateComponents{} : components;
}

std::optional<CalendarTime> dateFromComponents(const DateComponents& components) {
  auto calendar = currentCalendar();
  if (!calendar) return std::nullopt;
  calendar->setLenient(false);
  calendar->clear();
  calendar->set(UCAL_EXTENDED_YEAR, components.year);
  calendar->set(UCAL_MONTH, components.month - 1);
  calendar->set(UCAL_DATE, components.day);
  calendar->set(UCAL_HOUR_OF_DAY, components.hour);
  calendar->set(UCAL_MINUTE, components.minute);
  calendar->set(UCAL_SECOND, components.second);
  UErrorCode status = U_ZERO_ERROR;
  UDate result = calendar->getTime(status);
  if (U_FAILURE(status)) return std::nullopt;
  return fromUDate(result);
}

std::string formatFullDateTime(CalendarTime time) {
  std::unique_ptr<icu::DateFormat> format(icu::DateFormat::createDateTimeInstance(
      icu::DateFormat::kFull, icu::DateFormat::kLong, icu::Locale::getDefault()));
  if (!format) return {};
  format->adoptTimeZone(icu::TimeZone::createDefault());
  icu::UnicodeString text;
  format->format(toUDate(time), text);
  std::string utf8;
  text.toUTF8String(utf8);
  return utf8;
}

}  // namespace tw
