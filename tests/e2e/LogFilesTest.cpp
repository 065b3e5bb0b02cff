// Where the real executable keeps its log files: a folder of each user's own when $TMPDIR is
// not set, named after the bundle it runs from ("UnknownApp" outside one), with the previous
// run's log kept beside the latest.
#include <gtest/gtest.h>
#include <plist/plist.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "support/FixtureHome.h"
#include "support/RunProcess.h"
#include "support/TempDir.h"
#include "support/Unprivileged.h"

namespace tw {
namespace {

namespace fs = std::filesystem;

constexpr const char* kLatest = "dev.tidewell.Tidewell-MainLog-LogFile-latest.log";
constexpr const char* kPrevious = "dev.tidewell.Tidewell-MainLog-LogFile-previous.log";

// A start through the launcher with `home` as the user's home and no $XDG_STATE_HOME; without
// `temporaryFolder` there is no $TMPDIR either, so the program picks the log folder itself.
test::ProcessResult runAsUserOf(const fs::path& home, const fs::path& root, const std::vector<std::string>& arguments,
                                const std::string& executable = TIDEWELL_EXECUTABLE,
                                const std::optional<fs::path>& temporaryFolder = std::nullopt) {
  test::ProcessOptions options;
  options.environment = {{"TIDEWELL_FROM_COMMAND_LINE", "1"},
                         {"TIDEWELL_TEST_HOME", home.string()},
                         {"TIDEWELL_TEST_ROOT", root.string()},
                         {"XDG_CONFIG_HOME", (home / ".config").string()},
                         {"XDG_STATE_HOME", std::nullopt}};
  options.environment["TMPDIR"] = temporaryFolder ? std::optional(temporaryFolder->string()) : std::nullopt;
  return test::runProcess(executable, arguments, options);
}

std::string logLine(const fs::path& logFile) { return "You can check full log here: " + logFile.string() + "\n\n"; }

// What a failing run must print: its error and the path of its own log file.
std::string errorOutputProblems(const test::ProcessResult& result, const fs::path& logFile) {
  std::string problems;
  if (result.exitStatus != 1) problems += "status " + std::to_string(result.exitStatus) + "\n";
  if (!result.standardError.empty()) problems += "standard error: " + result.standardError + "\n";
  if (!result.standardOutput.ends_with("Error: Unrecognized argument: bogus\n\n" + logLine(logFile)))
    problems += "standard output: " + result.standardOutput + "\n";
  return problems;
}

TEST(LogFiles, WithoutTmpdirEachUserLogsIntoAPrivateFolderOfItsOwnThatKeepsThePreviousRun) {
  // The system's shared temporary folder, where a first user's log must not block a second.
  test::TempDir root;
  fs::permissions(root.path(), fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec |
                                   fs::perms::others_read | fs::perms::others_exec);
  fs::create_directories(root / "tmp");
  fs::permissions(root / "tmp", fs::perms::all | fs::perms::sticky_bit);

  test::TempDir first;
  const fs::path firstFolder = first / "home/.local/state/tidewell";
  auto result = runAsUserOf(first / "home", root.path(), {"bogus"});
  EXPECT_EQ(errorOutputProblems(result, firstFolder / kLatest), "");
  struct stat folder {};
  ASSERT_EQ(::stat(firstFolder.c_str(), &folder), 0);
  EXPECT_EQ(folder.st_mode & 07777, 0700u);

  // A second user, with a home of its own, starts twice after the first.
  test::TempDir second;
  fs::create_directories(second / "home");
  ASSERT_TRUE(test::handOverTree(second.path()));
  const fs::path secondFolder = second / "home/.local/state/tidewell";
  constexpr const char* kCannotRun = "the executable is out of the second user's reach";
  auto problems = test::runUnprivileged(second.path(), [&]() -> std::string {
    if (::access(TIDEWELL_EXECUTABLE, X_OK) != 0) return kCannotRun;  // a build in a private folder
    std::string found =
        errorOutputProblems(runAsUserOf(second / "home", root.path(), {"bogus"}), secondFolder / kLatest);
    found += errorOutputProblems(runAsUserOf(second / "home", root.path(), {"bogus"}), secondFolder / kLatest);
    if (!fs::is_regular_file(secondFolder / kPrevious)) found += "the previous run's log is gone\n";
    return found;
  });
  if (!problems || *problems == kCannotRun) GTEST_SKIP() << (problems ? kCannotRun : "no unprivileged user to run as");
  EXPECT_EQ(*problems, "");
  EXPECT_TRUE(fs::is_empty(root / "tmp"));
}

TEST(LogFiles, AreNamedAfterTheBundleOrUnknownAppOutsideOne) {
  test::TempDir scratch;
  const fs::path source = fs::path(TIDEWELL_BUNDLE_PATH) / "Contents/MacOS/tidewell";
  fs::create_directories(scratch / "bin");
  fs::copy_file(source, scratch / "bin/tidewell");
  const fs::path bundle = scratch / "Renamed.app";
  fs::create_directories(bundle / "Contents/MacOS");
  fs::copy_file(source, bundle / "Contents/MacOS/tidewell");
  plist_t info = plist_new_dict();
  for (const auto& [key, value] : {std::pair{"CFBundleIdentifier", "org.example.Renamed"},
                                   {"CFBundleShortVersionString", "2.0"},
                                   {"CFBundleVersion", "9"}})
    plist_dict_set_item(info, key, plist_new_string(value));
  test::writePlist(bundle / "Contents/Info.plist", info, test::PlistFormat::xml);

  const fs::path home = scratch / "home";
  const fs::path logs = scratch / "tmp";
  fs::create_directories(logs);
  // Outside a bundle the tool stops for want of version information, after the log is open.
  runAsUserOf(home, scratch / "root", {"--help"}, (scratch / "bin/tidewell").string(), logs);
  EXPECT_TRUE(fs::is_regular_file(logs / "UnknownApp-MainLog-LogFile-latest.log"));
  const auto renamed =
      runAsUserOf(home, scratch / "root", {"bogus"}, (bundle / "Contents/MacOS/tidewell").string(), logs);
  EXPECT_EQ(errorOutputProblems(renamed, logs / "org.example.Renamed-MainLog-LogFile-latest.log"), "");
  EXPECT_FALSE(fs::exists(logs / kLatest));
}

}  // namespace
}  // namespace tw
