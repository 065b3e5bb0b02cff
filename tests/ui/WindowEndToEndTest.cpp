// The real bundle started from the desktop on a generated home, driven by the test-hook build's script driver.
#include <gmock/gmock.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "app/Preferences.h"
#include "e2e/Sandbox.h"
#include "support/FixtureHome.h"
#include "support/StandInTools.h"
#include "support/Unprivileged.h"

extern char** environ;

namespace tw {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using Strings = std::vector<std::string>;

struct WindowEndToEnd : ::testing::Test, test::Sandbox {
  void SetUp() override {
    if (!std::getenv("DISPLAY")) GTEST_SKIP() << "needs a display: run through ctest (xvfb-run)";
    fixture = test::FixtureHome::write(home);
    // The window starts several times: the update check's question of the second start is declined beforehand.
    preferences().setBool(Preferences::Keys::automaticUpdateChecks, false);
  }

  // Runs the window with the script's steps; each printed "key: value" line is returned by key, in order.
  std::map<std::string, Strings> runWindow(const std::string& steps) {
    test::writeFile(scratch / "script", steps);
    const auto result = test::runProcess(
        TIDEWELL_EXECUTABLE, {},
        options(false,
                {{"QT_QPA_PLATFORM", std::nullopt}, {"TIDEWELL_TEST_WINDOW_SCRIPT", (scratch / "script").string()}}));
    EXPECT_EQ(result.exitStatus, 0) << result.standardOutput << result.standardError;
    EXPECT_THAT(result.standardOutput, ::testing::Not(HasSubstr("timeout:"))) << result.standardOutput;
    std::map<std::string, Strings> printed;
    std::istringstream lines(result.standardOutput);
    for (std::string line; std::getline(lines, line);)
      if (const auto colon = line.find(": "); colon != std::string::npos)
        printed[line.substr(0, colon)].push_back(line.substr(colon + 2));
    return printed;
  }

  test::FixtureHome fixture;
};

TEST_F(WindowEndToEnd, ScanTotalMatchesInfoThenDryRunAndRealCleanRescan) {
  const std::string out = run({"info"}).standardOutput, marker = "\nTotal size available to clean: ";
  ASSERT_TRUE(out.ends_with("\n") && out.rfind(marker) != std::string::npos) << out;  // exit status: InfoClean
  const size_t at = out.rfind(marker) + marker.size();
  const std::string title = "Tidewell - " + out.substr(at, out.size() - at - 1) + " available to clean";

  const auto before = test::snapshot(home);  // Dry run: confirmed with the dry-run text, nothing on disk changes.
  auto printed = runWindow(
      "wait-scans 1\nprint title\ntick Derived Data\ndry-run on\nclean\nanswer Clean\n"
      "wait-scans 2\nquit\n");
  EXPECT_EQ(printed["title"], Strings{title});
  EXPECT_THAT(printed["alert"],
              ::testing::ElementsAre(HasSubstr("Clean selected files | Tidewell is running in \"dry run\" mode.")));
  EXPECT_EQ(test::snapshot(home), before) << "a dry run changed the disk";

  printed = runWindow(  // For real: the derived data goes, the lifetime total grows, the rescan shows less.
      "dry-run off\nwait-scans 1\ntick Derived Data\nprint selected\nclean\nanswer Clean\nwait-scans 2\nprint title\n"
      "print saved\nquit\n");
  EXPECT_THAT(printed["alert"], ::testing::ElementsAre(HasSubstr("Are you sure to proceed? This can't be undone.")));
  for (const auto& folder : fixture.derivedDataProjects) EXPECT_FALSE(fs::exists(folder)) << folder;
  for (const auto& kept : fixture.keep) EXPECT_TRUE(fs::exists(kept)) << kept;
  EXPECT_EQ(printed["saved"], Strings{"You saved " + printed["selected"].at(0).erase(0, 10) + " in total!"});
  EXPECT_THAT(printed["title"],
              ::testing::ElementsAre(::testing::AllOf(::testing::Ne(title), HasSubstr(" available to clean"))));
}

// Reminders switched on in the preferences window leave 52 pending requests and a user timer systemd accepts.
TEST_F(WindowEndToEnd, RemindersSwitchedOnInPreferencesAreStoredAndTimed) {
  if (!std::getenv("DBUS_SESSION_BUS_ADDRESS"))
    GTEST_SKIP() << "needs a private session bus: run through ctest (dbus-run-session)";
  test::writeStandInTool(root, "/usr/bin/systemctl", "exit 0");  // its calls and the timer's dates: the services tests
  // The stand-in notification server on the test's bus, stopped when the test ends.
  std::string server = TIDEWELL_NOTIFICATION_SERVER, record = (scratch / "notify-calls").string(), answer;
  char* arguments[] = {server.data(), record.data(), answer.data(), nullptr};
  pid_t pid = -1;
  ASSERT_EQ(posix_spawn(&pid, server.c_str(), nullptr, nullptr, arguments, environ), 0);
  const std::shared_ptr<void> stop(nullptr, [pid](void*) { ::kill(pid, SIGTERM), ::waitpid(pid, nullptr, 0); });
  for (int attempt = 0; attempt < 200 && !fs::exists(record); ++attempt)
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  ASSERT_TRUE(fs::exists(record)) << "the stand-in notification server did not start";
  preferences().setBool(Preferences::Keys::notificationsEnabled, false);

  auto printed = runWindow(  // On, then another period: the second schedule replaces the first series.
      "wait-scans 1\npreferences\nreminders on\nperiod Every week\nprint preferences\nquit\n");
  EXPECT_EQ(printed["preferences"], Strings{"reminders on | Every week | pop-up enabled | dry run off"});

  const auto requests =
      nlohmann::json::parse(test::readFile(state / "tidewell/pending-notifications.json")).at("requests");
  ASSERT_EQ(requests.size(), 52u);
  const auto day = [&](size_t i) {
    const auto& at = requests[i].at("trigger");
    return std::chrono::sys_days(std::chrono::year(at["year"]) / at["month"].get<int>() / at["day"].get<int>());
  };
  // A week apart, each from the one before (the requests' contents are the services tests' to check).
  for (size_t i = 1; i < requests.size(); ++i) EXPECT_EQ((day(i) - day(i - 1)).count(), 7) << i;

  EXPECT_THAT(test::readFile(config / "systemd/user/tidewell-scan-reminder.timer"), HasSubstr("Persistent=true\n"));
}

}  // namespace
}  // namespace tw
