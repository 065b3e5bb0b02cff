// The real bundle started as from the desktop (no terminal, no launcher marker) on a generated
// home, driven through the test-hook build's script driver under a virtual display: the title
// shows the same total as `tidewell info`, a dry-run clean changes nothing on disk, a real
// clean removes the ticked folders, raises the lifetime total and rescans. Reminders switched on
// in its preferences window leave 52 pending requests and a user timer systemd accepts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "app/Preferences.h"
#include "platform/Host.h"
#include "platform/UserDefaults.h"
#include "support/FixtureHome.h"
#include "support/RunProcess.h"
#include "support/StandInTools.h"
#include "support/TempDir.h"

extern char** environ;

namespace tw {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

class WindowEndToEnd : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!std::getenv("DISPLAY")) GTEST_SKIP() << "needs a display: run through ctest (xvfb-run)";
    home = test::FixtureHome::write(scratch / "home");
    fs::create_directories(scratch / "root");
    fs::create_directories(scratch / "tmp");
    fs::create_directories(scratch / "config");
    fs::create_directories(scratch / "state");
    // The window starts several times: answer the update check's question of the second start
    // beforehand, as a user who declined it.
    Host host;
    host.home = scratch / "home";
    host.configDirectory = scratch / "config";
    UserDefaults(UserDefaults::standardStorePath(host)).setBool(Preferences::Keys::automaticUpdateChecks, false);
  }

  test::ProcessOptions options(bool fromCommandLine) const {
    test::ProcessOptions result;
    result.environment = {{"TIDEWELL_TEST_HOME", (scratch / "home").string()},
                          {"TIDEWELL_TEST_ROOT", (scratch / "root").string()},
                          {"TMPDIR", (scratch / "tmp").string()},
                          {"XDG_CONFIG_HOME", (scratch / "config").string()},
                          {"XDG_STATE_HOME", (scratch / "state").string()},
                          {"QT_QPA_PLATFORM", std::nullopt},
                          {"TIDEWELL_FROM_COMMAND_LINE", std::nullopt}};
    if (fromCommandLine) result.environment["TIDEWELL_FROM_COMMAND_LINE"] = "1";
    return result;
  }

  // Runs the window with the script's steps; each printed "key: value" line is returned by key
  // (repeated keys in order).
  std::multimap<std::string, std::string> runWindow(const std::string& steps) {
    test::writeFile(scratch / "script", steps);
    auto environment = options(false);
    environment.environment["TIDEWELL_TEST_WINDOW_SCRIPT"] = (scratch / "script").string();
    const auto result = test::runProcess(TIDEWELL_EXECUTABLE, {}, environment);
    EXPECT_EQ(result.exitStatus, 0) << result.standardOutput << result.standardError;
    EXPECT_THAT(result.standardOutput, ::testing::Not(HasSubstr("timeout:"))) << result.standardOutput;
    std::multimap<std::string, std::string> printed;
    std::istringstream lines(result.standardOutput);
    for (std::string line; std::getline(lines, line);) {
      const auto colon = line.find(": ");
      if (colon != std::string::npos) printed.emplace(line.substr(0, colon), line.substr(colon + 2));
    }
    return printed;
  }

  static std::vector<std::string> values(const std::multimap<std::string, std::string>& printed,
                                         const std::string& key) {
    std::vector<std::string> result;
    for (auto [it, end] = printed.equal_range(key); it != end; ++it) result.push_back(it->second);
    return result;
  }

  // Every path below the home with its size, to show that a dry run touches nothing.
  std::map<std::string, uintmax_t> listing() const {
    std::map<std::string, uintmax_t> result;
    for (const auto& item : fs::recursive_directory_iterator(scratch / "home")) {
      result[item.path().string()] = item.is_regular_file() && !item.is_symlink() ? item.file_size() : 0;
    }
    return result;
  }

  test::TempDir scratch;
  test::FixtureHome home;
};

TEST_F(WindowEndToEnd, ScanTotalMatchesInfoThenDryRunAndRealCleanRescan) {
  const auto info = test::runProcess(TIDEWELL_EXECUTABLE, {"info"}, options(true));
  ASSERT_EQ(info.exitStatus, 0) << info.standardError;
  const std::string marker = "Total size available to clean: ";
  const auto at = info.standardOutput.rfind(marker);
  ASSERT_NE(at, std::string::npos) << info.standardOutput;
  const std::string total =
      info.standardOutput.substr(at + marker.size(), info.standardOutput.find('\n', at) - at - marker.size());

  // Dry run: confirmed with the dry-run text, the sheet says so, nothing on disk changes.
  const auto before = listing();
  auto printed = runWindow(
      "wait-scans 1\nprint title\nprint badge\ntick Derived Data\nprint selected\ndry-run on\nprint badge\n"
      "clean\nanswer Clean\nwait-scans 2\nprint saved\nquit\n");
  EXPECT_EQ(values(printed, "title"), std::vector<std::string>{"Tidewell - " + total + " available to clean"});
  EXPECT_EQ(values(printed, "badge"), (std::vector<std::string>{"hidden", "shown"}));
  ASSERT_EQ(values(printed, "alert").size(), 1u);
  EXPECT_THAT(values(printed, "alert")[0],
              HasSubstr("Clean selected files | Tidewell is running in \"dry run\" mode."));
  EXPECT_EQ(values(printed, "saved"), std::vector<std::string>{""});
  const std::string selected = values(printed, "selected").at(0);
  EXPECT_NE(selected, "Selected: Zero KB");
  EXPECT_EQ(listing(), before) << "a dry run changed the disk";

  // For real: the derived data goes, the lifetime total grows, the rescan shows less.
  printed = runWindow(
      "dry-run off\nwait-scans 1\ntick Derived Data\nprint selected\nclean\nanswer Clean\nwait-scans 2\nprint title\n"
      "print saved\nquit\n");
  ASSERT_EQ(values(printed, "alert").size(), 1u);
  EXPECT_THAT(values(printed, "alert")[0], HasSubstr("Are you sure to proceed? This can't be undone."));
  for (const auto& folder : home.derivedDataProjects) EXPECT_FALSE(fs::exists(folder)) << folder;
  for (const auto& kept : home.keep) EXPECT_TRUE(fs::exists(kept)) << kept;
  const std::string cleaned = values(printed, "selected").at(0).substr(std::string("Selected: ").size());
  EXPECT_EQ(values(printed, "saved"), std::vector<std::string>{"You saved " + cleaned + " in total!"});
  ASSERT_EQ(values(printed, "title").size(), 1u);
  EXPECT_NE(values(printed, "title")[0], "Tidewell - " + total + " available to clean");
  EXPECT_THAT(values(printed, "title")[0], HasSubstr(" available to clean"));
}

}  // namespace
}  // namespace tw

namespace tw {
namespace {

// The stand-in notification server on the test's session bus, for as long as the test runs.
class NotificationServer {
 public:
  explicit NotificationServer(const fs::path& record) {
    const std::string program = TIDEWELL_NOTIFICATION_SERVER, recordPath = record.string(), answer;
    char* arguments[] = {const_cast<char*>(program.c_str()), const_cast<char*>(recordPath.c_str()),
                         const_cast<char*>(answer.c_str()), nullptr};
    if (posix_spawn(&pid_, program.c_str(), nullptr, nullptr, arguments, environ) != 0) pid_ = -1;
  }
  ~NotificationServer() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGTERM);
    ::waitpid(pid_, nullptr, 0);
  }
  NotificationServer(const NotificationServer&) = delete;
  NotificationServer& operator=(const NotificationServer&) = delete;

  // True once the server owns its name on the bus.
  bool waitUntilPresent() const {
    for (int attempt = 0; pid_ > 0 && attempt < 200; ++attempt) {
      const auto owner = test::runProcess(
          "/usr/bin/dbus-send", {"--session", "--print-reply", "--dest=org.freedesktop.DBus", "/org/freedesktop/DBus",
                                 "org.freedesktop.DBus.NameHasOwner", "string:org.freedesktop.Notifications"});
      if (owner.standardOutput.find("boolean true") != std::string::npos) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
  }

 private:
  pid_t pid_ = -1;
};

std::vector<std::string> onCalendarDates(const fs::path& timer) {
  std::vector<std::string> dates;
  std::ifstream in(timer);
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("OnCalendar=", 0) == 0) dates.push_back(line.substr(11));
  }
  return dates;
}

TEST_F(WindowEndToEnd, RemindersSwitchedOnInPreferencesAreStoredAndTimed) {
  if (!fs::exists("/usr/bin/dbus-send") || !std::getenv("DBUS_SESSION_BUS_ADDRESS"))
    GTEST_SKIP() << "needs a private session bus: run through ctest (dbus-run-session)";
  const fs::path calls = scratch / "systemctl-calls";
  test::writeStandInTool(scratch / "root", "/usr/bin/systemctl", "echo \"$*\" >> " + test::shellQuoted(calls.string()));
  NotificationServer server(scratch / "notify-calls");
  ASSERT_TRUE(server.waitUntilPresent()) << "the stand-in notification server did not start";
  Host host;
  host.home = scratch / "home";
  host.configDirectory = scratch / "config";
  UserDefaults(UserDefaults::standardStorePath(host)).setBool(Preferences::Keys::notificationsEnabled, false);

  // On, then another period: the second schedule replaces the first series.
  const auto printed = runWindow(
      "wait-scans 1\npreferences\nprint preferences\nreminders on\nprint preferences\nperiod Every week\n"
      "print preferences\nquit\n");
  EXPECT_EQ(values(printed, "preferences"),
            (std::vector<std::string>{"reminders off | Every month | pop-up disabled | dry run off",
                                      "reminders on | Every month | pop-up enabled | dry run off",
                                      "reminders on | Every week | pop-up enabled | dry run off"}));

  const auto store = nlohmann::json::parse(test::readFile(scratch / "state/tidewell/pending-notifications.json"));
  const auto& requests = store.at("requests");
  ASSERT_EQ(requests.size(), 52u);
  for (size_t i = 0; i < requests.size(); ++i) {
    EXPECT_EQ(requests[i].at("identifier"), "dev.tidewell.Tidewell.scanReminder." + std::to_string(i));
    EXPECT_EQ(requests[i].at("trigger").at("type"), "calendar");
  }
  // A week apart, each from the one before.
  const auto day = [&](size_t i) {
    const auto& trigger = requests[i].at("trigger");
    return std::chrono::sys_days(std::chrono::year(trigger.at("year").get<int>()) /
                                 trigger.at("month").get<int>() / trigger.at("day").get<int>());
  };
  for (size_t i = 1; i < requests.size(); ++i) EXPECT_EQ((day(i) - day(i - 1)).count(), 7) << i;

  const fs::path timer = scratch / "config/systemd/user/tidewell-scan-reminder.timer";
  EXPECT_THAT(test::readFile(timer), HasSubstr("Persistent=true\n"));
  const auto dates = onCalendarDates(timer);
  ASSERT_EQ(dates.size(), 52u);
  if (fs::exists("/usr/bin/systemd-analyze")) {
    std::vector<std::string> arguments{"calendar"};
    arguments.insert(arguments.end(), dates.begin(), dates.end());
    const auto checked = test::runProcess("/usr/bin/systemd-analyze", arguments);
    EXPECT_EQ(checked.exitStatus, 0) << checked.standardOutput << checked.standardError;
  }
  EXPECT_THAT(test::readCallLog(calls), ::testing::Contains("--user enable tidewell-scan-reminder.timer"));
}

}  // namespace
}  // namespace tw
