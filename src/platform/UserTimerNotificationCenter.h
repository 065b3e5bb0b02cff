// The notification centre on a Linux desktop, which keeps no scheduled notifications of its own.
//
// Pending requests live in one JSON file per user ($XDG_STATE_HOME/tidewell/), replaced
// atomically under a lock so that the application and the delivery helper never lose each
// other's changes. A per-user systemd timer with one OnCalendar= line per pending date
// (Persistent=true, so a date missed while the machine was off fires at the next start) runs the
// delivery helper, which posts the due reminders as freedesktop notifications and drops them
// from the file. Without a user systemd the log says so and an XDG autostart entry runs the same
// helper at every login instead. A notification server on the session bus counts as permission
// to notify; none means "not determined", asked again at the next scheduling.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "platform/Host.h"
#include "platform/NotificationCenter.h"

namespace tw {

class UserTimerNotificationCenter : public NotificationCenter {
 public:
  struct CommandResult {
    int status = -1;  // -1: the tool could not run
    std::string output;
  };

  // What the centre needs from the layers above it.
  struct Services {
    // The executable the timer runs (the bundle's tidewell-remind).
    std::filesystem::path deliveryHelper;
    // True when a freedesktop notification server is (or can be started) on the session bus.
    std::function<bool()> serverPresent;
    // Runs the host's "/usr/bin/systemctl" with "--user" and these arguments.
    std::function<CommandResult(const std::vector<std::string>& arguments)> systemctl;
    // Receives a warning line for the log.
    std::function<void(const std::string& message)> warning;
  };

  static constexpr const char* kUnitName = "tidewell-scan-reminder";

  UserTimerNotificationCenter(Host host, Services services);

  std::filesystem::path storePath() const;
  std::filesystem::path timerPath() const;
  std::filesystem::path servicePath() const;
  std::filesystem::path autostartPath() const;

  AuthorizationStatus authorizationStatus() override;
  bool requestAuthorization() override;
  std::vector<NotificationRequest> pendingRequests() override;
  void removePendingRequests(const std::vector<std::string>& identifiers) override;
  void setNotificationCategories(const std::vector<NotificationCategory>& categories) override;
  void addRequests(const std::vector<NotificationRequest>& requests) override;

  std::vector<NotificationCategory> notificationCategories();
  // Removes and returns the requests due at `now` (earliest first); the delivery helper posts them.
  std::vector<NotificationRequest> takeDueRequests(CalendarTime now);

  // The stored file: categories and requests (defined with the file format).
  struct Contents;

 private:
  Contents read() const;
  void change(const std::function<void(Contents&)>& edit);
  void write(const Contents& contents) const;
  void syncDelivery(const Contents& contents);
  void removeDelivery();
  void installTimer(const std::vector<CalendarTime>& dates);
  void installAutostart(const std::string& reason);

  CommandResult systemctl(const std::vector<std::string>& arguments) const;
  void warn(const std::string& message) const;

  Host host_;
  Services services_;
};

}  // namespace tw
