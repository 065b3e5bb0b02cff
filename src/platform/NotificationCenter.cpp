#include "platform/NotificationCenter.h"

namespace tw {

std::optional<CalendarTime> nextTriggerDate(const CalendarTrigger& trigger, CalendarTime now) {
  auto date = dateFromComponents(trigger.components);
  if (!date || *date <= now) return std::nullopt;
  return date;
}

}  // namespace tw
