// The user-notification centre as the reminders see it: pending one-shot requests with their
// content and trigger, the categories of actions a notification offers, and the user's
// authorisation. Each platform supplies one implementation (UserTimerNotificationCenter.h on
// Linux); the scheduling logic above it does not change between them.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/CalendarDates.h"

namespace tw {

struct NotificationAction {
  std::string identifier;
  std::string title;
  // Opens the application in the foreground when chosen.
  bool foreground = false;
  friend bool operator==(const NotificationAction&, const NotificationAction&) = default;
};

struct NotificationCategory {
  std::string identifier;
  std::vector<NotificationAction> actions;
  friend bool operator==(const NotificationCategory&, const NotificationCategory&) = default;
};

struct NotificationContent {
  std::string title;
  std::string body;
  bool defaultSound = false;
  std::string categoryIdentifier;
  friend bool operator==(const NotificationContent&, const NotificationContent&) = default;
};

// Fires when the local date and time match the components.
struct CalendarTrigger {
  DateComponents components;
  bool repeats = false;
  friend bool operator==(const CalendarTrigger&, const CalendarTrigger&) = default;
};

// Fires `seconds` after the request was added.
struct TimeIntervalTrigger {
  double seconds = 0;
  bool repeats = false;
  friend bool operator==(const TimeIntervalTrigger&, const TimeIntervalTrigger&) = default;
};

using NotificationTrigger = std::variant<std::monostate, CalendarTrigger, TimeIntervalTrigger>;

struct NotificationRequest {
  std::string identifier;
  NotificationContent content;
  NotificationTrigger trigger;
  friend bool operator==(const NotificationRequest&, const NotificationRequest&) = default;
};

enum class AuthorizationStatus { notDetermined, denied, authorized, provisional };

// The next moment after `now` at which a one-shot calendar trigger fires; absent when it lies
// in the past or its components form no date. (A repeating trigger is never scheduled here.)
std::optional<CalendarTime> nextTriggerDate(const CalendarTrigger& trigger, CalendarTime now);

class NotificationCenter {
 public:
  virtual ~NotificationCenter() = default;

  virtual AuthorizationStatus authorizationStatus() = 0;
  // Asks the user (or the desktop) for permission to show alerts with sound; true when granted.
  virtual bool requestAuthorization() = 0;
  // Every pending request, of this application and of others sharing the centre.
  virtual std::vector<NotificationRequest> pendingRequests() = 0;
  virtual void removePendingRequests(const std::vector<std::string>& identifiers) = 0;
  virtual void setNotificationCategories(const std::vector<NotificationCategory>& categories) = 0;
  // Adds the requests in order; a request replaces a pending one of the same identifier.
  virtual void addRequests(const std::vector<NotificationRequest>& requests) = 0;
};

}  // namespace tw
