#include "platform/UserTimerNotificationCenter.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "platform/Error.h"

namespace tw {

namespace fs = std::filesystem;
using nlohmann::json;

struct UserTimerNotificationCenter::Contents {
  struct Stored {
    NotificationRequest request;
    int64_t addedAt = 0;  // seconds since 1970; a time-interval trigger counts from it
  };
  std::vector<NotificationCategory> categories;
  std::vector<Stored> requests;
};

namespace {

int64_t secondsSinceEpoch(CalendarTime time) {
  return std::chrono::duration_cast<std::chrono::seconds>(time.time_since_epoch()).count();
}

CalendarTime fromSecondsSinceEpoch(int64_t seconds) { return CalendarTime(std::chrono::seconds(seconds)); }

std::optional<CalendarTime> dueDateOf(const UserTimerNotificationCenter::Contents::Stored& stored) {
  if (auto calendar = std::get_if<CalendarTrigger>(&stored.request.trigger)) {
    return dateFromComponents(calendar->components);
  }
  if (auto interval = std::get_if<TimeIntervalTrigger>(&stored.request.trigger)) {
    return fromSecondsSinceEpoch(stored.addedAt) +
           std::chrono::duration_cast<CalendarTime::duration>(std::chrono::duration<double>(interval->seconds));
  }
  return std::nullopt;
}

json triggerToJson(const NotificationTrigger& trigger) {
  if (auto calendar = std::get_if<CalendarTrigger>(&trigger)) {
    const auto& c = calendar->components;
    return {{"type", "calendar"}, {"year", c.year},     {"month", c.month},   {"day", c.day},
            {"hour", c.hour},     {"minute", c.minute}, {"second", c.second}, {"repeats", calendar->repeats}};
  }
  if (auto interval = std::get_if<TimeIntervalTrigger>(&trigger)) {
    return {{"type", "interval"}, {"seconds", interval->seconds}, {"repeats", interval->repeats}};
  }
  return {{"type", "none"}};
}

NotificationTrigger triggerFromJson(const json& value) {
  const auto type = value.value("type", std::string());
  if (type == "calendar") {
    DateComponents c{value.at("year").get<int>(), value.at("month").get<int>(),  value.at("day").get<int>(),
                     value.at("hour").get<int>(), value.at("minute").get<int>(), value.at("second").get<int>()};
    return CalendarTrigger{c, value.value("repeats", false)};
  }
  if (type == "interval") return TimeIntervalTrigger{value.at("seconds").get<double>(), value.value("repeats", false)};
  return std::monostate{};
}

json contentsToJson(const UserTimerNotificationCenter::Contents& contents) {
  json categories = json::array();
  for (const auto& category : contents.categories) {
    json actions = json::array();
    for (const auto& action : category.actions) {
      actions.push_back(
          {{"identifier", action.identifier}, {"title", action.title}, {"foreground", action.foreground}});
    }
    categories.push_back({{"identifier", category.identifier}, {"actions", actions}});
  }
  json requests = json::array();
  for (const auto& stored : contents.requests) {
    const auto& request = stored.request;
    requests.push_back({{"identifier", request.identifier},
                        {"title", request.content.title},
                        {"body", request.content.body},
                        {"sound", request.content.defaultSound},
                        {"category", request.content.categoryIdentifier},
                        {"trigger", triggerToJson(request.trigger)},
                        {"added", stored.addedAt}});
  }
  return {{"version", 1}, {"categories", categories}, {"requests", requests}};
}

UserTimerNotificationCenter::Contents contentsFromJson(const json& document) {
  UserTimerNotificationCenter::Contents contents;
  for (const auto& category : document.at("categories")) {
    NotificationCategory parsed{category.at("identifier").get<std::string>(), {}};
    for (const auto& action : category.at("actions")) {
      parsed.actions.push_back({action.at("identifier").get<std::string>(), action.at("title").get<std::string>(),
                                action.value("foreground", false)});
    }
    contents.categories.push_back(std::move(parsed));
  }
  for (const auto& request : document.at("requests")) {
    NotificationRequest parsed;
    parsed.identifier = request.at("identifier").get<std::string>();
    parsed.content = {request.at("title").get<std::string>(), request.at("body").get<std::string>(),
                      request.value("sound", false), request.value("category", std::string())};
    parsed.trigger = triggerFromJson(request.at("trigger"));
    contents.requests.push_back({std::move(parsed), request.value("added", int64_t{0})});
  }
  return contents;
}

// An exclusive advisory lock on a file beside the store, held for one read-modify-write.
class StoreLock {
 public:
  explicit StoreLock(const fs::path& lockPath) {
    fd_ = ::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd_ < 0) throw Error("Cannot open " + lockPath.string() + ": " + std::strerror(errno));
    while (::flock(fd_, LOCK_EX) != 0) {
      if (errno != EINTR) throw Error("Cannot lock " + lockPath.string() + ": " + std::strerror(errno));
    }
  }
  ~StoreLock() { ::close(fd_); }
  StoreLock(const StoreLock&) = delete;
  StoreLock& operator=(const StoreLock&) = delete;

 private:
  int fd_ = -1;
};

// Replaces `path` by a file holding `text`: written beside it, synced, then renamed over it, so
// a reader sees the old or the new file, never a part of one.
void writeAtomically(const fs::path& path, const std::string& text) {
  fs::create_directories(path.parent_path());
  fs::path temporary = path;
  temporary += ".new";
  int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) throw Error("Cannot write " + temporary.string() + ": " + std::strerror(errno));
  size_t written = 0;
  while (written < text.size()) {
    ssize_t count = ::write(fd, text.data() + written, text.size() - written);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) {
      int code = errno;
      ::close(fd);
      throw Error("Cannot write " + temporary.string() + ": " + std::strerror(code));
    }
    written += static_cast<size_t>(count);
  }
  ::fsync(fd);
  ::close(fd);
  if (::rename(temporary.c_str(), path.c_str()) != 0) {
    throw Error("Cannot replace " + path.string() + ": " + std::strerror(errno));
  }
  if (int directory = ::open(path.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); directory >= 0) {
    ::fsync(directory);
    ::close(directory);
  }
}

std::string readWholeFile(const fs::path& path) {
  std::ifstream stream(path, std::ios::binary);
  std::ostringstream text;
  text << stream.rdbuf();
  return text.str();
}

// A path inside a unit file's ExecStart=: quoted, with systemd's specifiers and variables escaped.
std::string systemdQuoted(const std::string& text) {
  std::string quoted = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    if (c == '%') quoted += '%';
    if (c == '$') quoted += '$';
    quoted += c;
  }
  return quoted + "\"";
}

// A path inside a desktop entry's Exec= key (quoting rules of the desktop-entry format).
std::string desktopExecQuoted(const std::string& text) {
  std::string quoted = "\"";
  for (char c : text) {
    if (c == '"' || c == '`' || c == '$' || c == '\\') quoted += "\\\\";
    if (c == '%') quoted += '%';
    quoted += c;
  }
  return quoted + "\"";
}

// "2026-11-30 09:15:30 UTC": an exact moment whatever zone the user's systemd runs in.
std::string onCalendarText(CalendarTime time) {
  std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm utc{};
  ::gmtime_r(&seconds, &utc);
  char text[64];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &utc);
  return text;
}

std::string firstLine(const std::string& text) { return text.substr(0, text.find('\n')); }

void removeQuietly(const fs::path& path) {
  std::error_code error;
  fs::remove(path, error);
}

}  // namespace

UserTimerNotificationCenter::UserTimerNotificationCenter(Host host, Services services)
    : host_(std::move(host)), services_(std::move(services)) {}

UserTimerNotificationCenter::CommandResult UserTimerNotificationCenter::systemctl(
    const std::vector<std::string>& arguments) const {
  return services_.systemctl ? services_.systemctl(arguments) : CommandResult{};
}

void UserTimerNotificationCenter::warn(const std::string& message) const {
  if (services_.warning) services_.warning(message);
}

fs::path UserTimerNotificationCenter::storePath() const {
  return host_.stateDirectory / "tidewell" / "pending-notifications.json";
}
fs::path UserTimerNotificationCenter::timerPath() const {
  return host_.configDirectory / "systemd" / "user" / (std::string(kUnitName) + ".timer");
}
fs::path UserTimerNotificationCenter::servicePath() const {
  return host_.configDirectory / "systemd" / "user" / (std::string(kUnitName) + ".service");
}
fs::path UserTimerNotificationCenter::autostartPath() const {
  return host_.configDirectory / "autostart" / (std::string(kUnitName) + ".desktop");
}

AuthorizationStatus UserTimerNotificationCenter::authorizationStatus() {
  return services_.serverPresent && services_.serverPresent() ? AuthorizationStatus::authorized
                                                              : AuthorizationStatus::notDetermined;
}

// There is no prompt to show on this desktop: a server that runs shows the notifications.
bool UserTimerNotificationCenter::requestAuthorization() {
  bool granted = services_.serverPresent && services_.serverPresent();
  if (!granted) warn("ScanReminders: No notification server on the session bus; reminders stay off for now");
  return granted;
}

UserTimerNotificationCenter::Contents UserTimerNotificationCenter::read() const {
  std::error_code error;
  if (!fs::exists(storePath(), error)) return {};
  try {
    return contentsFromJson(json::parse(readWholeFile(storePath())));
  } catch (const std::exception& problem) {
    // Keep the bad file for whoever wants to look at it; the reminders start again from nothing.
    fs::path aside = storePath();
    aside += ".corrupt";
    fs::rename(storePath(), aside, error);
    warn("ScanReminders: Pending reminders in " + storePath().string() + " are unreadable (" + problem.what() +
         "); moved aside to " + aside.string());
    return {};
  }
}

void UserTimerNotificationCenter::write(const Contents& contents) const {
  writeAtomically(storePath(), contentsToJson(contents).dump(2) + "\n");
}

void UserTimerNotificationCenter::change(const std::function<void(Contents&)>& edit) {
  fs::create_directories(storePath().parent_path());
  fs::path lockPath = storePath();
  lockPath += ".lock";
  StoreLock lock(lockPath);
  Contents contents = read();
  edit(contents);
  write(contents);
  syncDelivery(contents);
}

std::vector<NotificationRequest> UserTimerNotificationCenter::pendingRequests() {
  std::vector<NotificationRequest> requests;
  for (auto& stored : read().requests) requests.push_back(std::move(stored.request));
  return requests;
}

std::vector<NotificationCategory> UserTimerNotificationCenter::notificationCategories() { return read().categories; }

void UserTimerNotificationCenter::removePendingRequests(const std::vector<std::string>& identifiers) {
  change([&](Contents& contents) {
    std::erase_if(contents.requests, [&](const Contents::Stored& stored) {
      return std::find(identifiers.begin(), identifiers.end(), stored.request.identifier) != identifiers.end();
    });
  });
}

void UserTimerNotificationCenter::setNotificationCategories(const std::vector<NotificationCategory>& categories) {
  change([&](Contents& contents) { contents.categories = categories; });
}

void UserTimerNotificationCenter::addRequests(const std::vector<NotificationRequest>& requests) {
  const int64_t now = secondsSinceEpoch(std::chrono::system_clock::now());
  change([&](Contents& contents) {
    for (const auto& request : requests) {
      std::erase_if(contents.requests,
                    [&](const Contents::Stored& stored) { return stored.request.identifier == request.identifier; });
      contents.requests.push_back({request, now});
    }
  });
}

std::vector<NotificationRequest> UserTimerNotificationCenter::takeDueRequests(CalendarTime now) {
  std::vector<std::pair<CalendarTime, NotificationRequest>> due;
  change([&](Contents& contents) {
    std::erase_if(contents.requests, [&](const Contents::Stored& stored) {
      auto date = dueDateOf(stored);
      if (!date || *date > now) return false;
      due.emplace_back(*date, stored.request);
      return true;
    });
  });
  std::stable_sort(due.begin(), due.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<NotificationRequest> requests;
  for (auto& [date, request] : due) requests.push_back(std::move(request));
  return requests;
}

void UserTimerNotificationCenter::syncDelivery(const Contents& contents) {
  std::vector<CalendarTime> dates;
  for (const auto& stored : contents.requests) {
    if (auto date = dueDateOf(stored)) dates.push_back(*date);
  }
  if (dates.empty()) {
    removeDelivery();
    return;
  }
  std::sort(dates.begin(), dates.end());
  dates.erase(std::unique(dates.begin(), dates.end()), dates.end());
  installTimer(dates);
}

void UserTimerNotificationCenter::installTimer(const std::vector<CalendarTime>& dates) {
  const std::string unit = std::string(kUnitName);
  std::string service =
      "# Written by Tidewell for its scan reminders; removed when the reminders are switched off.\n"
      "[Unit]\nDescription=Tidewell scan reminder\n\n"
      "[Service]\nType=exec\nExecStart=" +
      systemdQuoted(services_.deliveryHelper.string()) + " --deliver\n";
  std::string timer =
      "# Written by Tidewell for its scan reminders; removed when the reminders are switched off.\n"
      "[Unit]\nDescription=Tidewell scan reminders\n\n[Timer]\n";
  for (auto date : dates) timer += "OnCalendar=" + onCalendarText(date) + "\n";
  timer += "Persistent=true\nAccuracySec=1s\nUnit=" + unit + ".service\n\n[Install]\nWantedBy=timers.target\n";

  writeAtomically(servicePath(), service);
  writeAtomically(timerPath(), timer);

  auto reload = systemctl({"daemon-reload"});
  if (reload.status != 0) {
    installAutostart(reload.status < 0 ? "systemctl cannot run" : firstLine(reload.output));
    return;
  }
  auto enable = systemctl({"enable", unit + ".timer"});
  auto restart = systemctl({"restart", unit + ".timer"});
  if (enable.status != 0 || restart.status != 0) {
    installAutostart(firstLine(enable.status != 0 ? enable.output : restart.output));
    return;
  }
  removeQuietly(autostartPath());
}

void UserTimerNotificationCenter::installAutostart(const std::string& reason) {
  warn("ScanReminders: No user systemd to time the reminders (" + reason +
       "); they are checked at every login instead");
  writeAtomically(autostartPath(),
                  "[Desktop Entry]\nType=Application\nName=Tidewell scan reminder\n"
                  "Comment=Shows Tidewell's scan reminder when one is due\nExec=" +
                      desktopExecQuoted(services_.deliveryHelper.string()) +
                      " --deliver --wait 600\nNoDisplay=true\nX-GNOME-Autostart-enabled=true\n");
}

void UserTimerNotificationCenter::removeDelivery() {
  std::error_code error;
  if (fs::exists(timerPath(), error) || fs::exists(servicePath(), error)) {
    const std::string unit = std::string(kUnitName);
    systemctl({"disable", "--now", unit + ".timer"});
    removeQuietly(timerPath());
    removeQuietly(servicePath());
    systemctl({"daemon-reload"});
  }
  removeQuietly(autostartPath());
}

}  // namespace tw
