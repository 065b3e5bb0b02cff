// The command-line contract, through the real executable in its bundle: banner, warning,
// usage, error lines and exit statuses, the launcher script and the window start. Every run
// gets its own home, root, temporary and configuration folders.
#include <gtest/gtest.h>
#include <plist/plist.h>
#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "support/FixtureHome.h"
#include "support/RunProcess.h"
#include "support/TempDir.h"

namespace tw {
namespace {
namespace fs = std::filesystem;

const std::string kBanner = "Tidewell " TIDEWELL_VERSION " (" TIDEWELL_BUILD_NUMBER_TEXT ")\n\n";
const std::string kPermissionError =
    "Error: Tidewell needs permission to your ~/Library/Developer folder to scan Xcode cache files.\n"
    "To use command line tool, open UI version of Xcode and grant access to this folder on first run.\n\n";

std::string usageText() {
  return "OVERVIEW: Reclaims storage that Xcode stores in caches and old files\n\n"
         "USAGE: tidewell <command> [options]\n\n"
         "OPTIONS:\n\n"
         " info\n"
         "\tShow all items available to clean.\n"
         " clean <all,device-support,archives,derived-data,docs-cache,user-data-cache,old-logs,old-documentation,"
         "simulators,runtimes,package-caches,tool-caches,ide-caches,ai-caches,browser-caches,app-caches,cloud-caches,"
         "system,project-builds>\n"
         "\tPerform cleaning of given items. Available options: all, device-support, archives, derived-data, "
         "docs-cache, user-data-cache, old-logs, old-documentation, simulators, runtimes, package-caches, "
         "tool-caches, ide-caches, ai-caches, browser-caches, app-caches, cloud-caches, system, project-builds. If "
         "you want to clean all, pass \"all\" or nothing\n"
         " --help\n"
         "\tPrints this message\n";
}

std::string warningBlock(const fs::path& bundle) {
  return "WARNING: It seems you haven't updated your command line tool!\n"
         "You might have problems running this tool from headless environments like SSH, or CI servers...\n\n"
         "To update command line tool for the future, link command line tool script to one of your directories in "
         "PATH, for example /usr/local/bin.\n\n"
         "$ sudo ln -sf " +
         bundle.string() + "/Contents/Resources/tidewell.sh /usr/local/bin/tidewell\n\n";
}

class CommandLine : public ::testing::Test {
 protected:
  CommandLine() {
    for (const char* folder : {"home", "root", "tmp", "config"}) fs::create_directories(scratch_ / folder);
  }

  fs::path home() const { return scratch_ / "home"; }
  fs::path logFile() const { return scratch_ / "tmp" / "dev.tidewell.Tidewell-MainLog-LogFile-latest.log"; }
  std::string logLine() const { return "You can check full log here: " + logFile().string() + "\n\n"; }

  // The environment of a start through the launcher, confined to this test's folders.
  test::ProcessOptions options(bool fromCommandLine = true) const {
    test::ProcessOptions result;
    result.environment = {{"TIDEWELL_TEST_HOME", home().string()},
                          {"TIDEWELL_TEST_ROOT", (scratch_ / "root").string()},
                          {"TMPDIR", (scratch_ / "tmp").string()},
                          {"XDG_CONFIG_HOME", (scratch_ / "config").string()},
                          {"TIDEWELL_FROM_COMMAND_LINE", std::nullopt}};
    if (fromCommandLine) result.environment["TIDEWELL_FROM_COMMAND_LINE"] = "1";
    return result;
  }

  test::ProcessResult run(const std::vector<std::string>& arguments) const {
    return test::runProcess(TIDEWELL_EXECUTABLE, arguments, options());
  }

  test::TempDir scratch_;
};

TEST_F(CommandLine, WithoutArgumentsHelpOrTwoCommandsPrintsBannerAndUsage) {
  for (const auto& arguments : std::vector<std::vector<std::string>>{
           {}, {"--help"}, {"info", "clean", "all"}, {"clean", "all", "info"}, {"--help", "info"}}) {
    auto result = run(arguments);
    EXPECT_EQ(result.exitStatus, 0) << testing::PrintToString(arguments);
    EXPECT_EQ(result.standardOutput, kBanner + usageText()) << testing::PrintToString(arguments);
    EXPECT_EQ(result.standardError, "");  // with the launcher's marker the log stays off the console
  }
}

TEST_F(CommandLine, StartedFromATerminalWithoutTheLauncherWarnsAndStillRuns) {
  auto terminal = options(false);
  terminal.terminalInput = true;
  auto result = test::runProcess(TIDEWELL_EXECUTABLE, {"--help"}, terminal);
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.standardOutput, kBanner + warningBlock(TIDEWELL_BUNDLE_PATH) + usageText());
  EXPECT_EQ(result.standardError, "");

  // Any value of the marker, even an empty one, counts as a start through the launcher.
  terminal.environment["TIDEWELL_FROM_COMMAND_LINE"] = "";
  EXPECT_EQ(test::runProcess(TIDEWELL_EXECUTABLE, {"--help"}, terminal).standardOutput, kBanner + usageText());
}

TEST_F(CommandLine, ArgumentErrorsPrintOneErrorLineAndTheLogAndExitWithStatus1) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"bogus"}, "Unrecognized argument: bogus"},
      {{"info", "info"}, "Unrecognized argument: info"},
      {{"--HELP"}, "Unrecognized argument: --HELP"},
      {{"clean"}, "Expected value for option: clean"},
      {{"info", "clean"}, "Expected value for option: clean"},
      {{"clean", "Derived-Data"}, "Wrong value for \"clean\": Derived-Data"},
      {{"clean", "derived-data, bogus stuff ,archives"}, "Wrong value for \"clean\": bogus stuff"},
      {{"clean", "ALL,archives"}, "Wrong value for \"clean\": ALL"},
  };
  test::FixtureHome::write(home(), {.caches = false, .projects = false});
  for (const auto& [arguments, message] : cases) {
    auto result = run(arguments);
    EXPECT_EQ(result.exitStatus, 1) << message;
    EXPECT_EQ(result.standardOutput, kBanner + "Error: " + message + "\n\n" + logLine()) << message;
  }
  // A rejected value stopped before anything was removed.
  EXPECT_TRUE(fs::exists(home() / "Library/Developer/Xcode/DerivedData"));
}

TEST_F(CommandLine, WithoutDeveloperFolderGrantInfoAndCleanStopWithThePermissionError) {
  // No Library/Developer in the home: there is nothing a grant could give.
  for (const auto& arguments : std::vector<std::vector<std::string>>{{"info"}, {"clean", "all"}, {"clean", ""}}) {
    auto result = run(arguments);
    EXPECT_EQ(result.exitStatus, 1) << testing::PrintToString(arguments);
    EXPECT_EQ(result.standardOutput, kBanner + kPermissionError + logLine()) << testing::PrintToString(arguments);
  }
  EXPECT_TRUE(fs::is_regular_file(logFile()));
}

TEST_F(CommandLine, CleanValuesThatNameLocationsAreAccepted) {
  struct Case {
    std::string value;
    bool removes;  // derived data and archives
  };
  for (const Case& c :
       {Case{"derived-data,,archives", true}, Case{"", false}, Case{" all ", true}, Case{"ALL", true}}) {
    fs::remove_all(home());  // a fresh home, so what one case removes cannot hide what the next does
    auto fixture = test::FixtureHome::write(home(), {.caches = false, .projects = false});
    auto result = run({"clean", c.value});
    const std::string& out = result.standardOutput;
    EXPECT_EQ(result.exitStatus, 0) << c.value << out;
    EXPECT_EQ(out.rfind(kBanner + "Scanning...\n", 0), 0u) << c.value << out;
    EXPECT_NE(out.find(c.value.empty() ? "\nTotal bytes cleaned: Zero KB\n" : "\nTotal bytes cleaned: "),
              std::string::npos)
        << out;
    for (const auto& folder : fixture.derivedDataProjects) EXPECT_EQ(fs::exists(folder), !c.removes) << c.value;
    for (const auto& folder : fixture.archives) EXPECT_EQ(fs::exists(folder), !c.removes) << c.value;
    for (const auto& kept : fixture.keep) EXPECT_TRUE(fs::exists(kept)) << c.value << ": " << kept;
    if (c.value == "derived-data,,archives") {
      for (const auto& folder : fixture.deviceSupport) EXPECT_TRUE(fs::exists(folder)) << folder;
    }
  }
}

TEST_F(CommandLine, AWindowStartWithoutADisplayExplainsItselfAndAMarkedStartNeedsNone) {
  // Without a terminal or the marker this is a window start; with no display to open it on, it
  // says so in one line instead of letting the toolkit abort.
  auto window = options(false);
  for (const char* variable : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
    window.environment[variable] = std::nullopt;
  auto result = test::runProcess(TIDEWELL_EXECUTABLE, {"info"}, window);
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_EQ(result.standardOutput, "");
  EXPECT_NE(result.standardError.find("no display to open the window on"), std::string::npos) << result.standardError;
  EXPECT_NE(result.standardError.find("tidewell --help"), std::string::npos);
  EXPECT_EQ(std::count(result.standardError.begin(), result.standardError.end(), '\n'), 1);
  // Start-up still recorded where the application lives.
  auto store = test::readFile(scratch_ / "config/tidewell/dev.tidewell.Tidewell.plist");
  EXPECT_NE(store.find(fs::path(TIDEWELL_BUNDLE_PATH).string()), std::string::npos) << store;

  // The marker makes it a command-line start, which never starts the toolkit.
  auto marked = options(true);
  for (const char* variable : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
    marked.environment[variable] = std::nullopt;
  result = test::runProcess(TIDEWELL_EXECUTABLE, {"--help"}, marked);
  EXPECT_EQ(result.exitStatus, 0) << result.standardError;
  EXPECT_NE(result.standardOutput.find("Prints this message"), std::string::npos) << result.standardOutput;
}

TEST_F(CommandLine, TheLauncherMarksTheStartAndFindsItsBundleThroughAChainOfLinks) {
  fs::path script = fs::path(TIDEWELL_BUNDLE_PATH) / "Contents/Resources/tidewell.sh";
  // bin/tidewell -> ../links/tidewell (relative) -> the script (absolute), as with /usr/local/bin.
  fs::create_directories(scratch_ / "bin");
  fs::create_directories(scratch_ / "links");
  fs::create_symlink(script, scratch_ / "links/tidewell");
  fs::create_symlink("../links/tidewell", scratch_ / "bin/tidewell");

  auto noMarker = options(false);  // no terminal either: only the launcher can make this a command-line start
  auto result = test::runProcess((scratch_ / "bin/tidewell").string(), {"--help"}, noMarker);
  EXPECT_EQ(result.exitStatus, 0) << result.standardError;
  EXPECT_EQ(result.standardOutput, kBanner + usageText());

  // Found through PATH, with arguments that hold spaces and commas passed on unchanged.
  noMarker.environment["PATH"] = (scratch_ / "bin").string() + ":/usr/bin:/bin";
  result = test::runProcess("/bin/sh", {"-c", "tidewell clean 'derived-data, bogus value'"}, noMarker);
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_EQ(result.standardOutput, kBanner + "Error: Wrong value for \"clean\": bogus value\n\n" + logLine());
}

// A copy of the bundle, in a folder whose name holds a space, with its Info.plist changed. The
// executable finds its bundle from the path it was started by.
TEST_F(CommandLine, ACopiedBundleTakesItsBannerFromItsOwnInfoPlistOrStops) {
  fs::path source(TIDEWELL_BUNDLE_PATH);
  fs::path bundle = scratch_ / "My Apps/Tidewell.app";
  fs::create_directories(bundle / "Contents/MacOS");
  fs::create_directories(bundle / "Contents/Resources");
  std::error_code error;
  fs::create_hard_link(source / "Contents/MacOS/tidewell", bundle / "Contents/MacOS/tidewell", error);
  if (error) fs::copy_file(source / "Contents/MacOS/tidewell", bundle / "Contents/MacOS/tidewell");
  fs::copy_file(source / "Contents/Resources/tidewell.sh", bundle / "Contents/Resources/tidewell.sh");
  auto writeInfo = [&](std::initializer_list<std::pair<const char*, const char*>> keys, test::PlistFormat format) {
    plist_t dictionary = plist_new_dict();
    for (const auto& [key, value] : keys) plist_dict_set_item(dictionary, key, plist_new_string(value));
    test::writePlist(bundle / "Contents/Info.plist", dictionary, format);
  };
  const std::string executable = (bundle / "Contents/MacOS/tidewell").string();

  writeInfo({{"CFBundleShortVersionString", "2.3.1"}, {"CFBundleVersion", "417"}}, test::PlistFormat::binary);
  auto terminal = options(false);
  terminal.terminalInput = true;
  auto result = test::runProcess(executable, {"--help"}, terminal);
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.standardOutput, "Tidewell 2.3.1 (417)\n\n" + warningBlock(bundle) + usageText());
  // The copy's own launcher starts the copy.
  result = test::runProcess((bundle / "Contents/Resources/tidewell.sh").string(), {"--help"}, options(false));
  EXPECT_EQ(result.exitStatus, 0) << result.standardError;
  EXPECT_EQ(result.standardOutput, "Tidewell 2.3.1 (417)\n\n" + usageText());

  // Missing version information is a fatal stop.
  auto expectStop = [&](const std::string& line) {
    auto stopped = test::runProcess(executable, {"info"}, options());
    EXPECT_EQ(stopped.exitStatus, 128 + SIGABRT) << line;
    EXPECT_EQ(stopped.standardOutput, "CmdLineTool: " + line + "\n");
  };
  writeInfo({{"CFBundleVersion", "7"}}, test::PlistFormat::xml);
  expectStop("Can't get app version from main bundle!");
  writeInfo({{"CFBundleShortVersionString", "2.0"}}, test::PlistFormat::binary);
  expectStop("Can't get app build number from main bundle!");
  test::writeFile(bundle / "Contents/Info.plist", "<?xml version=\"1.0\"?><plist><dict><key>CFB");
  expectStop("No Info.plist in main app bundle!?");
  fs::remove(bundle / "Contents/Info.plist");
  expectStop("No Info.plist in main app bundle!?");
}

}  // namespace
}  // namespace tw
