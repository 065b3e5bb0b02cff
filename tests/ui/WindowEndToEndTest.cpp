// The real bundle started as from the desktop (no terminal, no launcher marker) on a generated
// home, driven through the test-hook build's script driver under a virtual display: the title
// shows the same total as `tidewell info`, a dry-run clean changes nothing on disk, a real
// clean removes the ticked folders, raises the lifetime total and rescans.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "app/Preferences.h"
#include "platform/Host.h"
#include "platform/UserDefaults.h"
#include "support/FixtureHome.h"
#include "support/RunProcess.h"
#include "support/TempDir.h"

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
