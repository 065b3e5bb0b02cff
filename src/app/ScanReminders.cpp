#include "app/ScanReminders.h"

#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>
#include <thread>

#include "app/Logger.h"
#include "fs/Shell.h"
#include "platform/Host.h"
#include "platform/UserTimerNotificationCenter.h"

namespace tw {

// One thread that runs the handed-over changes in order; started on first use.
class ScanReminders::Worker {
 public:
  ~Worker() {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    changed_.notify_all();
    if (thread_.joinable()) thread_.join();
  }

  void post(std::function<void()> task) {
    std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(task));
    if (!thread_.joinable()) thread_ = std::thread([this] { run(); });
    changed_.notify_all();
  }

  void waitUntilIdle() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return tasks_.empty() && !busy_; });
  }

 private:
  void run() {
    std::unique_lock lock(mutex_);
    for (;;) {
      changed_.wait(lock, [this] { return stopping_ || !tasks_.empty(); });
      // Pending changes are still applied at exit: the last setting the user chose must hold.
      if (tasks_.empty()) return;
      auto task = std::move(tasks_.front());
      tasks_.pop_front();
      busy_ = true;
      lock.unlock();
      try {
        task();
      } catch (const std::exception& error) {
        log::error(std::string("ScanReminders: ") + error.what());
      }
      lock.lock();
      busy_ = false;
      changed_.notify_all();
    }
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> tasks_;
  bool busy_ = false;
  bool stopping_ = false;
  std::thread thread_;
};

ScanReminders::ScanReminders(std::shared_ptr<NotificationCenter> center, std::string applicationIdentifier, Clock clock)
    : center_(std::move(center)),
      prefix_(std::move(applicationIdentifier) + ".scanReminder"),
      clock_(clock ? std::move(clock) : Clock([] { return std::chrono::system_clock::now(); })),
      worker_(std::make_unique<Worker>()) {}

ScanReminders::~ScanReminders() = default;

namespace {

bool hasPrefix(const std::string& identifier, const std::string& prefix) {
  return identifier.compare(0, prefix.size(), prefix) == 0;
}

std::vector<std::string> identifiersWithPrefix(const std::vector<NotificationRequest>& requests,
                                               const std::string& prefix) {
  std::vector<std::string> identifiers;
  for (const auto& request : requests) {
    if (hasPrefix(request.identifier, prefix)) identifiers.push_back(request.identifier);
  }
  return identifiers;
}

}  // namespace

void ScanReminders::scheduleReminders(AuthorizationStatus status, Period period) {
  switch (status) {
    case AuthorizationStatus::authorized:
    case AuthorizationStatus::provisional:
      break;
    case AuthorizationStatus::notDetermined:
      if (!center_->requestAuthorization()) return;
      break;
    default:
      return;
  }

  withdrawReminders(center_->pendingRequests());

  center_->setNotificationCategories(
      {NotificationCategory{categoryIdentifier(),
                            {NotificationAction{scanActionIdentifier(), kScanActionTitle, true},
                             NotificationAction{dismissActionIdentifier(), kCloseActionTitle, false}}}});

  const NotificationContent content{kTitle, kBody, true, categoryIdentifier()};
  std::vector<NotificationRequest> requests;
  int index = 0;
  for (auto date : reminderDates(period, kSeriesLength)) {
    requests.push_back({requestIdentifier(index++), content, CalendarTrigger{dateComponents(date), false}});
  }
  center_->addRequests(requests);
}

void ScanReminders::withdrawReminders(const std::vector<NotificationRequest>& pending) {
  auto identifiers = identifiersWithPrefix(pending, prefix_);
  if (!identifiers.empty()) center_->removePendingRequests(identifiers);
}

std::vector<CalendarTime> ScanReminders::reminderDates(Period period, int count) const {
  const bool weeks = period == Period::everyWeek || period == Period::every2weeks;
  const int step = period == Period::everyWeek     ? 7
                   : period == Period::every2weeks ? 14
                   : period == Period::everyMonth  ? 1
                                                   : 2;
  std::vector<CalendarTime> dates;
  CalendarTime last = clock_();
  for (int i = 0; i < count; ++i) {
    auto next = addingToDate(last, weeks ? CalendarUnit::day : CalendarUnit::month, step);
    if (!next) break;
    dates.push_back(*next);
    last = *next;
  }
  return dates;
}

std::optional<CalendarTime> ScanReminders::nextReminderDate() const {
  // The centre answers on a thread of its own; a centre that is stuck must not hold up start-up,
  // so the thread is left to finish on its own and its late answer is dropped.
  auto answer = std::make_shared<std::promise<std::vector<NotificationRequest>>>();
  auto pending = answer->get_future();
  std::thread([center = center_, answer] {
    try {
      answer->set_value(center->pendingRequests());
    } catch (...) {
      answer->set_exception(std::current_exception());
    }
  }).detach();
  if (pending.wait_for(kPendingRequestsTimeout) != std::future_status::ready) return std::nullopt;

  std::vector<NotificationRequest> requests;
  try {
    requests = pending.get();
  } catch (const std::exception& error) {
    log::warning(std::string("ScanReminders: Cannot read pending reminders: ") + error.what());
    return std::nullopt;
  }

  const CalendarTime now = clock_();
  std::optional<CalendarTime> earliest;
  for (const auto& request : requests) {
    if (!hasPrefix(request.identifier, prefix_)) continue;
    std::optional<CalendarTime> date;
    if (auto calendar = std::get_if<CalendarTrigger>(&request.trigger)) {
      date = nextTriggerDate(*calendar, now);
    } else if (auto interval = std::get_if<TimeIntervalTrigger>(&request.trigger)) {
      date = now + std::chrono::duration_cast<CalendarTime::duration>(std::chrono::duration<double>(interval->seconds));
    }
    if (date && (!earliest || *date < *earliest)) earliest = date;
  }
  return earliest;
}

void ScanReminders::applySettings(bool enabled, Period period) {
  if (enabled) {
    scheduleReminders(center_->authorizationStatus(), period);
  } else {
    withdrawReminders(center_->pendingRequests());
  }
}

void ScanReminders::applySettingsInBackground(bool enabled, Period period) {
  worker_->post([this, enabled, period] { applySettings(enabled, period); });
}

void ScanReminders::waitUntilIdle() { worker_->waitUntilIdle(); }

void ScanReminders::logNextReminder() const {
  if (auto date = nextReminderDate()) {
    log::info("Next reminder: " + formatFullDateTime(*date));
  } else {
    log::info("No reminder scheduled!");
  }
}

std::shared_ptr<NotificationCenter> makeDesktopNotificationCenter(const Host& host,
                                                                  std::filesystem::path deliveryHelper,
                                                                  std::function<bool()> serverPresent) {
  UserTimerNotificationCenter::Services services;
  services.deliveryHelper = std::move(deliveryHelper);
  services.serverPresent = std::move(serverPresent);
  services.systemctl = [](const std::vector<std::string>& arguments) {
    std::vector<std::string> all{"--user"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    auto result = Shell::run("/usr/bin/systemctl", all);
    return UserTimerNotificationCenter::CommandResult{result.status, std::move(result.output)};
  };
  services.warning = [](const std::string& message) { log::warning(message); };
  return std::make_shared<UserTimerNotificationCenter>(host, std::move(services));
}

}  // namespace tw
