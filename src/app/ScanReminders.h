// The series of reminders to scan again: 52 one-shot notifications spaced by the chosen period,
// replaced as a whole whenever it is scheduled, withdrawn when reminders are switched off, and
// the date of the next one for the start-up log. The notification centre is passed in, so the
// logic (dates, identifiers, texts, which requests to replace) is the same on every platform.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/Preferences.h"
#include "platform/NotificationCenter.h"

namespace tw {

struct Host;

class ScanReminders {
 public:
  using Period = Preferences::Period;
  using Clock = std::function<CalendarTime()>;

  static constexpr int kSeriesLength = 52;
  static constexpr const char* kTitle = "Scan Xcode cache?";
  static constexpr const char* kBody = "It's been a while since your last scan, check if you can reclaim some storage.";
  static constexpr const char* kScanActionTitle = "Scan";
  static constexpr const char* kCloseActionTitle = "Close";
  // How long nextReminderDate() waits for the centre before it answers "none".
  static constexpr std::chrono::milliseconds kPendingRequestsTimeout{1000};

  // `applicationIdentifier` is the reverse-domain bundle identifier; `clock` gives the present
  // moment (tests fix it).
  ScanReminders(std::shared_ptr<NotificationCenter> center, std::string applicationIdentifier, Clock clock = {});
  ~ScanReminders();
  ScanReminders(const ScanReminders&) = delete;
  ScanReminders& operator=(const ScanReminders&) = delete;

  // application identifier + ".scanReminder": every reminder request's identifier starts with it.
  const std::string& prefix() const { return prefix_; }
  std::string requestIdentifier(int index) const { return prefix_ + "." + std::to_string(index); }
  std::string categoryIdentifier() const { return prefix_ + ".category"; }
  std::string scanActionIdentifier() const { return prefix_ + ".scan"; }
  std::string dismissActionIdentifier() const { return prefix_ + ".dismiss"; }

  // Schedules a fresh series when the status allows it: authorised or provisional at once, not
  // yet determined after asking (and nothing when the answer is no), otherwise nothing.
  void scheduleReminders(AuthorizationStatus status, Period period);
  // Removes the application's requests among `pending`; other requests stay.
  void withdrawReminders(const std::vector<NotificationRequest>& pending);
  // The earliest trigger date among the application's pending requests; none when there is none
  // or the centre did not answer within kPendingRequestsTimeout.
  std::optional<CalendarTime> nextReminderDate() const;
  // `count` dates, each one period after the previous one, starting from the present moment.
  std::vector<CalendarTime> reminderDates(Period period, int count) const;

  // The settings applied: when enabled a fresh series for `period` with the centre's current
  // authorisation, otherwise the application's pending requests withdrawn.
  void applySettings(bool enabled, Period period);
  // The same on the reminders' own worker thread, in the order of the calls, so that the
  // interface never waits for the centre (or for systemctl behind it).
  void applySettingsInBackground(bool enabled, Period period);
  // Blocks until every change handed to the worker so far has been applied.
  void waitUntilIdle();

  // "Next reminder: " + the date in the current locale, or "No reminder scheduled!", at info level.
  void logNextReminder() const;

 private:
  class Worker;

  std::shared_ptr<NotificationCenter> center_;
  std::string prefix_;
  Clock clock_;
  std::unique_ptr<Worker> worker_;
};

// The notification centre of this desktop for `host`: pending requests in the host's state folder,
// delivered by a user systemd timer that runs `deliveryHelper`, the host's systemctl, warnings
// to the main log. `serverPresent` tells whether a notification server is on the session bus.
std::shared_ptr<NotificationCenter> makeDesktopNotificationCenter(const Host& host,
                                                                  std::filesystem::path deliveryHelper,
                                                                  std::function<bool()> serverPresent);

}  // namespace tw
