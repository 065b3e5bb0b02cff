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
  const std::vector<std::vector<std::string>> cases = {
      {}, {"--help"}, {"info", "clean", "all"}, {"clean", "all", "info"}, {"--help", "info"}};
  for (const auto& arguments : cases) {
    auto result = run(arguments);
    EXPECT_EQ(result.exitStatus, 0) << testing::PrintToString(arguments);
    EXPECT_EQ(result.standardOutput, kBanner + usageText()) << testing::PrintToString(arguments);
    // With the launcher's marker the log stays off the console.
    EXPECT_EQ(result.standardError, "") << testing::PrintToString(arguments);
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
  auto marked = options(false);
  marked.terminalInput = true;
  marked.environment["TIDEWELL_FROM_COMMAND_LINE"] = "";
  EXPECT_EQ(test::runProcess(TIDEWELL_EXECUTABLE, {"--help"}, marked).standardOutput, kBanner + usageText());
}

TEST_F(CommandLine, ArgumentErrorsPrintOneErrorLineAndTheLogAndExitWithStatus1) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"bogus"}, "Unrecognized argument: bogus"},
      {{"info", "info"}, "Unrecognized argument: info"},
      {{"INFO"}, "Unrecognized argument: INFO"},
      {{"--HELP"}, "Unrecognized argument: --HELP"},
      {{"info", "--verbose"}, "Unrecognized argument: --verbose"},
      {{"clean"}, "Expected value for option: clean"},
      {{"info", "clean"}, "Expected value for option: clean"},
      {{"clean", "Derived-Data"}, "Wrong value for \"clean\": Derived-Data"},
      {{"clean", "derived-data,bogus"}, "Wrong value for \"clean\": bogus"},
      {{"clean", "derived-data, bogus stuff ,archives"}, "Wrong value for \"clean\": bogus stuff"},
      {{"clean", "ALL,archives"}, "Wrong value for \"clean\": ALL"},
  };
  for (const auto& [arguments, message] : cases) {
    auto result = run(arguments);
    EXPECT_EQ(result.exitStatus, 1) << message;
    EXPECT_EQ(result.standardOutput, kBanner + "Error: " + message + "\n\n" + logLine()) << message;
  }
  // A rejected value stops before anything is scanned or removed.
  test::FixtureHome::write(home(), {.caches = false, .projects = false});
  auto result = run({"clean", "derived-data,bogus"});
  EXPECT_EQ(result.standardOutput.find("Scanning..."), std::string::npos);
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
  auto fixture = test::FixtureHome::write(home(), {.caches = false, .projects = false});
  struct Case {
    std::string value;
    bool removesDerivedData, removesArchives;
  };
  // Each case starts from a fresh home, so what one removes cannot hide what the next does.
  for (const Case& c : {Case{"derived-data,,archives", true, true}, Case{"", false, false}, Case{" all ", true, true},
                        Case{"ALL", true, true}}) {
    fs::remove_all(home());
    fixture = test::FixtureHome::write(home(), {.caches = false, .projects = false});
    auto result = run({"clean", c.value});
    const std::string& out = result.standardOutput;
    ASSERT_EQ(out.rfind(kBanner, 0), 0u) << c.value;
    EXPECT_EQ(out.find("Wrong value"), std::string::npos) << c.value;
    EXPECT_EQ(out.find("Unrecognized"), std::string::npos) << c.value;

    if (out.find("Scanning...") == std::string::npos) {
      // No grant yet for the developer folder: the value was accepted, and the run stops before the scan.
      EXPECT_EQ(out, kBanner + kPermissionError + logLine()) << c.value;
      EXPECT_EQ(result.exitStatus, 1);
      EXPECT_TRUE(fs::exists(fixture.derivedDataProjects.front()));
      continue;
    }
    EXPECT_EQ(result.exitStatus, 0) << out;
    EXPECT_NE(out.find("\nTotal bytes cleaned: "), std::string::npos) << out;
    if (c.value.empty()) {
      EXPECT_NE(out.find("\nTotal bytes cleaned: Zero KB\n"), std::string::npos) << out;
    }
    for (const auto& folder : fixture.derivedDataProjects) {
      EXPECT_EQ(fs::exists(folder), !c.removesDerivedData) << c.value << ": " << folder;
    }
    for (const auto& folder : fixture.archives) {
      EXPECT_EQ(fs::exists(folder), !c.removesArchives) << c.value << ": " << folder;
    }
    for (const auto& kept : fixture.keep) EXPECT_TRUE(fs::exists(kept)) << c.value << ": " << kept;
    if (c.value == "derived-data,,archives") {
      for (const auto& folder : fixture.deviceSupport) EXPECT_TRUE(fs::exists(folder)) << folder;
    }
  }
}

TEST_F(CommandLine, AStartWithoutTerminalOrMarkerIsAWindowStartWhichThisBuildDoesNotHave) {
  auto result = test::runProcess(TIDEWELL_EXECUTABLE, {"info"}, options(false));
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_EQ(result.standardOutput, "");
  EXPECT_NE(result.standardError.find("window is not part of this build"), std::string::npos);
  EXPECT_NE(result.standardError.find("tidewell --help"), std::string::npos);
  EXPECT_EQ(std::count(result.standardError.begin(), result.standardError.end(), '\n'), 1);

  // Start-up still recorded where the application lives.
  auto store = test::readFile(scratch_ / "config/tidewell/dev.tidewell.Tidewell.plist");
  EXPECT_NE(store.find(fs::path(TIDEWELL_BUNDLE_PATH).string()), std::string::npos) << store;
}

// --- The launcher script ---------------------------------------------------------------------

TEST_F(CommandLine, TheLauncherMarksTheStartAndFindsItsBundleThroughAChainOfLinks) {
  fs::path script = fs::path(TIDEWELL_BUNDLE_PATH) / "Contents/Resources/tidewell.sh";
  ASSERT_TRUE(fs::is_regular_file(script));
  EXPECT_NE(fs::status(script).permissions() & fs::perms::owner_exec, fs::perms::none);

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

// --- A copy of the bundle with its Info.plist changed ------------------------------------------

class CopiedBundle : public CommandLine {
 protected:
  // Copies the bundle into a folder whose name holds a space; the executable is hard-linked
  // when the file system allows it (it finds its bundle from the path it was started by).
  fs::path copyBundle() {
    fs::path source(TIDEWELL_BUNDLE_PATH);
    fs::path bundle = scratch_ / "My Apps" / "Tidewell.app";
    fs::create_directories(bundle / "Contents/MacOS");
    fs::create_directories(bundle / "Contents/Resources");
    std::error_code error;
    fs::create_hard_link(source / "Contents/MacOS/tidewell", bundle / "Contents/MacOS/tidewell", error);
    if (error) fs::copy_file(source / "Contents/MacOS/tidewell", bundle / "Contents/MacOS/tidewell");
    fs::copy_file(source / "Contents/Resources/tidewell.sh", bundle / "Contents/Resources/tidewell.sh");
    fs::copy_file(source / "Contents/Info.plist", bundle / "Contents/Info.plist");
    return bundle;
  }

  static void writeInfo(const fs::path& bundle, std::initializer_list<std::pair<const char*, const char*>> keys,
                        test::PlistFormat format) {
    plist_t dictionary = plist_new_dict();
    for (const auto& [key, value] : keys) plist_dict_set_item(dictionary, key, plist_new_string(value));
    test::writePlist(bundle / "Contents/Info.plist", dictionary, format);
  }

  test::ProcessResult runIn(const fs::path& bundle, const std::vector<std::string>& arguments) const {
    return test::runProcess((bundle / "Contents/MacOS/tidewell").string(), arguments, options());
  }
};

TEST_F(CopiedBundle, MissingVersionInformationIsAFatalStop) {
  fs::path bundle = copyBundle();
  const int aborted = 128 + SIGABRT;

  writeInfo(bundle, {{"CFBundleVersion", "7"}}, test::PlistFormat::xml);
  auto result = runIn(bundle, {"--help"});
  EXPECT_EQ(result.exitStatus, aborted);
  EXPECT_EQ(result.standardOutput, "CmdLineTool: Can't get app version from main bundle!\n");

  writeInfo(bundle, {{"CFBundleShortVersionString", "2.0"}}, test::PlistFormat::binary);
  result = runIn(bundle, {"info"});
  EXPECT_EQ(result.exitStatus, aborted);
  EXPECT_EQ(result.standardOutput, "CmdLineTool: Can't get app build number from main bundle!\n");

  test::writeFile(bundle / "Contents/Info.plist", "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>CFB");
  result = runIn(bundle, {});
  EXPECT_EQ(result.exitStatus, aborted);
  EXPECT_EQ(result.standardOutput, "CmdLineTool: No Info.plist in main app bundle!?\n");

  fs::remove(bundle / "Contents/Info.plist");
  result = runIn(bundle, {});
  EXPECT_EQ(result.exitStatus, aborted);
  EXPECT_EQ(result.standardOutput, "CmdLineTool: No Info.plist in main app bundle!?\n");
}

TEST_F(CopiedBundle, ABinaryInfoPlistGivesTheBannerAndTheWarningNamesThisBundle) {
  fs::path bundle = copyBundle();
  writeInfo(bundle, {{"CFBundleShortVersionString", "2.3.1"}, {"CFBundleVersion", "417"}}, test::PlistFormat::binary);
  auto terminal = options(false);
  terminal.terminalInput = true;
  auto result = test::runProcess((bundle / "Contents/MacOS/tidewell").string(), {"--help"}, terminal);
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.standardOutput, "Tidewell 2.3.1 (417)\n\n" + warningBlock(bundle) + usageText());

  // The copy's own launcher starts the copy, even from a folder name with a space.
  result = test::runProcess((bundle / "Contents/Resources/tidewell.sh").string(), {"--help"}, options(false));
  EXPECT_EQ(result.exitStatus, 0) << result.standardError;
  EXPECT_EQ(result.standardOutput, "Tidewell 2.3.1 (417)\n\n" + usageText());
}

}  // namespace
}  // namespace tw
