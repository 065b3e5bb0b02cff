// The command line through the real executable in its bundle: its contract, launcher and log files, and "info" and
// "clean" on generated homes, hostile input and a synced folder included.
#include <gmock/gmock.h>
#include <signal.h>
#include <unistd.h>

#include "e2e/Sandbox.h"
#include "fs/DirectorySize.h"
#include "platform/ByteCountFormatter.h"
#include "support/DeveloperFolderFixture.h"
#include "support/FixtureHome.h"
#include "support/HostilePropertyLists.h"
#include "support/StandInTools.h"
#include "support/Unprivileged.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using Arguments = std::vector<std::string>;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;

const std::string kBanner = "Tidewell " TIDEWELL_VERSION " (" TIDEWELL_BUILD_NUMBER_TEXT ")\n\n";
const std::string kUsage =
    "OVERVIEW: Reclaims storage that Xcode stores in caches and old files\n\nUSAGE: tidewell <command> [options]\n\n"
    "OPTIONS:\n\n info\n\tShow all items available to clean.\n"
    " clean <all,device-support,archives,derived-data,docs-cache,user-data-cache,old-logs,old-documentation,"
    "simulators,runtimes,package-caches,tool-caches,ide-caches,ai-caches,browser-caches,app-caches,cloud-caches,"
    "system,project-builds>\n\tPerform cleaning of given items. Available options: all, device-support, archives, "
    "derived-data, docs-cache, user-data-cache, old-logs, old-documentation, simulators, runtimes, package-caches, "
    "tool-caches, ide-caches, ai-caches, browser-caches, app-caches, cloud-caches, system, project-builds. If "
    "you want to clean all, pass \"all\" or nothing\n --help\n\tPrints this message\n";

std::string warningBlock(const fs::path& bundle) {
  return "WARNING: It seems you haven't updated your command line tool!\n"
         "You might have problems running this tool from headless environments like SSH, or CI servers...\n\n"
         "To update command line tool for the future, link command line tool script to one of your directories in "
         "PATH, for example /usr/local/bin.\n\n$ sudo ln -sf " +
         bundle.string() + "/Contents/Resources/tidewell.sh /usr/local/bin/tidewell\n\n";
}

struct CommandLine : ::testing::Test, test::Sandbox {
  std::string outcome(const fs::path& program, const Arguments& arguments, const test::ProcessOptions& options) {
    const auto result = test::runProcess(program.string(), arguments, options);
    return test::outcome(result) + result.standardError;  // nothing on standard error either
  }
};

TEST_F(CommandLine, BannerAndUsageErrorsAndThePermissionStop) {
  // No Library/Developer in the home: there is nothing a grant could give.
  EXPECT_EQ(test::outcome(run({"info"})),
            "1 " + kBanner +
                "Error: Tidewell needs permission to your ~/Library/Developer folder to scan Xcode cache files.\nTo "
                "use command line tool, open UI version of Xcode and grant access to this folder on first run.\n\n" +
                logLine());
  EXPECT_TRUE(fs::is_regular_file(logFile()));
  // Nothing, --help or two commands: banner and usage; with the launcher's marker no log on the console.
  for (const Arguments& arguments : {Arguments{}, {"--help"}, {"info", "clean", "all"}})
    EXPECT_EQ(outcome(TIDEWELL_EXECUTABLE, arguments, options()), "0 " + kBanner + kUsage)
        << testing::PrintToString(arguments);
  test::FixtureHome::write(home, {.caches = false, .projects = false});
  for (const auto& [arguments, message] : std::vector<std::pair<Arguments, std::string>>{
           {{"info", "info"}, "Unrecognized argument: info"},
           {{"--HELP"}, "Unrecognized argument: --HELP"},
           {{"clean"}, "Expected value for option: clean"},
           {{"clean", "Derived-Data"}, "Wrong value for \"clean\": Derived-Data"},
           {{"clean", "ALL,archives"}, "Wrong value for \"clean\": ALL"}})
    EXPECT_EQ(test::outcome(run(arguments)), "1 " + kBanner + "Error: " + message + "\n\n" + logLine());
  EXPECT_TRUE(fs::exists(home / "Library/Developer/Xcode/DerivedData")) << "a rejected value removes nothing";
}

TEST_F(CommandLine, TerminalStartsWarnWindowStartsNeedADisplayAndTheLauncherIsFoundThroughLinks) {
  auto terminalStart = terminal();
  EXPECT_EQ(outcome(TIDEWELL_EXECUTABLE, {"--help"}, terminalStart),
            "0 " + kBanner + warningBlock(TIDEWELL_BUNDLE_PATH) + kUsage);
  // Any value of the marker, even an empty one, counts as a start through the launcher.
  terminalStart.environment["TIDEWELL_FROM_COMMAND_LINE"] = "";
  EXPECT_EQ(outcome(TIDEWELL_EXECUTABLE, {"--help"}, terminalStart), "0 " + kBanner + kUsage);

  // Neither terminal nor marker: a window start, which without a display says so in one line.
  const test::Environment noDisplay = {
      {"DISPLAY", std::nullopt}, {"WAYLAND_DISPLAY", std::nullopt}, {"QT_QPA_PLATFORM", std::nullopt}};
  EXPECT_EQ(outcome(TIDEWELL_EXECUTABLE, {"info"}, options(false, noDisplay)),
            "1 Tidewell: no display to open the window on; run `tidewell --help` from a terminal, or start "
            "Contents/Resources/tidewell.sh inside the bundle.\n");
  EXPECT_THAT(test::readFile(config / "tidewell/dev.tidewell.Tidewell.plist"),
              ::testing::HasSubstr(TIDEWELL_BUNDLE_PATH))
      << "start-up is still recorded";
  // The marker makes it a command-line start, which never starts the toolkit.
  EXPECT_EQ(outcome(TIDEWELL_EXECUTABLE, {"--help"}, options(true, noDisplay)), "0 " + kBanner + kUsage);

  // bin/tidewell -> ../links/tidewell (relative) -> the script (absolute), as with /usr/local/bin.
  for (const char* folder : {"bin", "links"}) fs::create_directories(scratch / folder);
  fs::create_symlink(fs::path(TIDEWELL_BUNDLE_PATH) / "Contents/Resources/tidewell.sh", scratch / "links/tidewell");
  fs::create_symlink("../links/tidewell", scratch / "bin/tidewell");
  auto noMarker = options(false);  // no terminal either: only the launcher can make this a command-line start
  EXPECT_EQ(outcome(scratch / "bin/tidewell", {"--help"}, noMarker), "0 " + kBanner + kUsage);
  // Found through PATH, with arguments that hold spaces and commas passed on unchanged.
  noMarker.environment["PATH"] = (scratch / "bin").string() + ":/usr/bin:/bin";
  EXPECT_EQ(outcome("/bin/sh", {"-c", "tidewell clean 'derived-data, bogus value'"}, noMarker),
            "1 " + kBanner + "Error: Wrong value for \"clean\": bogus value\n\n" + logLine());
}

TEST_F(CommandLine, CleanValuesThatNameLocationsAreAccepted) {
  for (const std::string value : {"derived-data,,archives", ""}) {
    fs::remove_all(home);  // a fresh home, so what one case removes cannot hide what the next does
    auto fixture = test::FixtureHome::write(home, {.caches = false, .projects = false});
    const std::string out = test::outcome(run({"clean", value}));
    EXPECT_TRUE(out.starts_with("0 " + kBanner + "Scanning...\n")) << value << out;
    EXPECT_NE(out.find(value.empty() ? "\nTotal bytes cleaned: Zero KB\n" : "\nTotal bytes cleaned: "), out.npos);
    for (const auto* named : {&fixture.derivedDataProjects, &fixture.archives})
      for (const auto& folder : *named) EXPECT_EQ(fs::exists(folder), value.empty()) << value;
    for (const auto* kept : {&fixture.keep, &fixture.deviceSupport})
      for (const auto& folder : *kept) EXPECT_TRUE(fs::exists(folder)) << value << ": " << folder;
  }
}

TEST_F(CommandLine, ACopiedBundleInAFolderWithASpaceTakesItsBannerAndLogNameFromItsOwnInfoPlistOrStops) {
  const fs::path source = fs::path(TIDEWELL_BUNDLE_PATH) / "Contents", bundle = scratch / "My Apps/Tidewell.app",
                 executable = bundle / "Contents/MacOS/tidewell", info = bundle / "Contents/Info.plist";
  for (const char* folder : {"MacOS", "Resources"}) fs::create_directories(bundle / "Contents" / folder);
  fs::copy_file(source / "MacOS/tidewell", executable);
  fs::copy_file(source / "Resources/tidewell.sh", bundle / "Contents/Resources/tidewell.sh");
  const std::string banner = "Tidewell 2.3.1 (417)\n\n";
  test::writePlist(info,
                   test::textDictionary({{"CFBundleShortVersionString", "2.3.1"},
                                         {"CFBundleVersion", "417"},
                                         {"CFBundleIdentifier", "org.example.Renamed"}}),
                   test::PlistFormat::binary);
  // The copy's own launcher starts the copy.
  EXPECT_EQ(outcome(bundle / "Contents/Resources/tidewell.sh", {"--help"}, options(false)), "0 " + banner + kUsage);
  EXPECT_EQ(outcome(executable, {"bogus"}, options()),  // Log files are named after the bundle's identifier.
            "1 " + banner + "Error: Unrecognized argument: bogus\n\nYou can check full log here: " +
                (tmp / "org.example.Renamed-MainLog-LogFile-latest.log").string() + "\n\n");
  // Outside a bundle the tool stops for want of version information, after a log named "UnknownApp" is open.
  fs::copy_file(source / "MacOS/tidewell", scratch / "tidewell");
  test::runProcess((scratch / "tidewell").string(), {"--help"}, options());
  EXPECT_TRUE(fs::is_regular_file(tmp / "UnknownApp-MainLog-LogFile-latest.log"));

  auto expectStop = [&](const std::string& line) {  // standard output only: the log reports the unusable file
    EXPECT_EQ(test::outcome(test::runProcess(executable, {"info"}, options())),
              std::to_string(128 + SIGABRT) + " CmdLineTool: " + line + "\n");
  };
  test::writePlist(info, test::textDictionary({{"CFBundleVersion", "7"}}), test::PlistFormat::xml);
  expectStop("Can't get app version from main bundle!");
  test::writePlist(info, test::textDictionary({{"CFBundleShortVersionString", "2.0"}}), test::PlistFormat::binary);
  expectStop("Can't get app build number from main bundle!");
  test::writeFile(info, "<?xml version=\"1.0\"?><plist><dict><key>CFB");
  expectStop("No Info.plist in main app bundle!?");
}

// What is wrong with a start with a bad argument as `home`'s user, the program choosing its log folder itself.
std::string problemsOfAStartAs(const fs::path& home, const fs::path& root) {
  const auto result = test::runProcess(TIDEWELL_EXECUTABLE, {"bogus"},
                                       {.environment = {{"TIDEWELL_FROM_COMMAND_LINE", "1"},
                                                        {"TIDEWELL_TEST_HOME", home.string()},
                                                        {"TIDEWELL_TEST_ROOT", root.string()},
                                                        {"XDG_CONFIG_HOME", (home / ".config").string()},
                                                        {"XDG_STATE_HOME", std::nullopt},
                                                        {"TMPDIR", std::nullopt}}});
  const fs::path log = home / ".local/state/tidewell/dev.tidewell.Tidewell-MainLog-LogFile-latest.log";
  const std::string error =
      "Error: Unrecognized argument: bogus\n\nYou can check full log here: " + log.string() + "\n\n";
  const bool fine = result.exitStatus == 1 && result.standardError.empty() && result.standardOutput.ends_with(error);
  return fine ? "" : test::outcome(result) + result.standardError + "\n";
}

TEST(LogFiles, WithoutTmpdirEachUserLogsIntoAPrivateFolderOfItsOwn) {
  test::TempDir root;  // The system's shared temporary folder, where a first user's log must not block a second.
  fs::permissions(root.path(), fs::perms(0755));
  fs::create_directories(root / "tmp");
  fs::permissions(root / "tmp", fs::perms::all | fs::perms::sticky_bit);
  test::TempDir first;
  EXPECT_EQ(problemsOfAStartAs(first / "home", root.path()), "");
  EXPECT_EQ(fs::status(first / "home/.local/state/tidewell").permissions(), fs::perms::owner_all);

  test::TempDir second;  // A second user, with a home of its own, starts twice after the first.
  fs::create_directories(second / "home");
  ASSERT_TRUE(test::handOverTree(second.path()));
  constexpr const char* kCannotRun = "the executable is out of the second user's reach";
  auto problems = test::runUnprivileged(second.path(), [&]() -> std::string {
    if (::access(TIDEWELL_EXECUTABLE, X_OK) != 0) return kCannotRun;  // a build in a private folder
    return problemsOfAStartAs(second / "home", root.path()) + problemsOfAStartAs(second / "home", root.path());
  });
  if (!problems || *problems == kCannotRun) GTEST_SKIP() << (problems ? kCannotRun : "no unprivileged user to run as");
  EXPECT_EQ(*problems, "");
  EXPECT_TRUE(fs::is_empty(root / "tmp"));
}

// The version, build and identifier keys are read by every run above (banner, log name).
TEST(Bundle, HoldsTheReminderHelperAndTheUpdateFeed) {
  const fs::path contents = fs::path(TIDEWELL_BUNDLE_PATH) / "Contents";
  EXPECT_TRUE(fs::is_regular_file(contents / "MacOS/tidewell-remind"));
  EXPECT_NE(test::readFile(contents / "Info.plist").find("<key>SUFeedURL</key>\n\t<string>https://"),
            std::string::npos);
}

TEST(ReleaseBuild, IgnoresTheTestOnlyHomeAndRootVariables) {
  test::TempDir decoy;
  const std::string path = decoy.path().string();
  auto result = test::runProcess(TIDEWELL_RELEASE_HOST_PROBE, {},
                                 {.environment = {{"TIDEWELL_TEST_HOME", path},
                                                  {"TIDEWELL_TEST_ROOT", path},
                                                  {"TIDEWELL_TEST_COMMAND_TIME_LIMIT_MS", "5"},
                                                  {"HOME", path}}});
  // The home comes from the user database, never the environment; "/" stays "/"; a tool keeps its minute.
  ASSERT_FALSE(userDatabaseHome().empty());
  EXPECT_EQ(test::outcome(result), "0 home=" + userDatabaseHome().string() + "\nroot=/\ncommandTimeLimitMs=60000\n")
      << result.standardError;  // the same variables reach a test build: every Sandbox run depends on them
}

TEST(PrivilegedRemover, RemovesListedItemsAndRefusesTheWholeCallForOneBadPath) {
  test::TempDir root;
  const fs::path updates = root / "Library/Updates", installer = root / "Applications/Install macOS Sonoma.app";
  for (const fs::path& file : {updates / "041-1/a.pkg", updates / "041-2/b.pkg", installer / "Contents/x"})
    test::writeFile(file, "x");
  fs::create_directory_symlink(root / "Applications", updates / "041-link");
  auto run = [&](const Arguments& arguments) {
    return test::runProcess(TIDEWELL_PRIVILEGED_REMOVER, arguments,
                            {.environment = {{"TIDEWELL_TEST_ROOT", root.path().string()}}});
  };
  auto refused = run({(updates / "041-1").string(), (updates / "041-link").string()});
  EXPECT_THAT(test::outcome(refused) + refused.standardError,
              ::testing::MatchesRegex("2 .*041-link\u201D: it is a symbolic link.*"));
  EXPECT_TRUE(fs::exists(updates / "041-1")) << "nothing goes when one path is refused";
  for (const Arguments& arguments : {Arguments{}, {"Library/Updates/041-1"}}) EXPECT_EQ(run(arguments).exitStatus, 2);
  EXPECT_EQ(test::outcome(run({(updates / "041-1").string(), installer.string()})), "0 ");
  EXPECT_FALSE(fs::exists(updates / "041-1") || fs::exists(installer));
  EXPECT_TRUE(fs::exists(updates / "041-2") && fs::exists(root / "Applications"));
}

#define ASSERT_RAN(result) ASSERT_EQ((result).exitStatus, 0) << (result).standardOutput << (result).standardError

struct InfoClean : ::testing::Test, test::Sandbox {
  test::DeveloperFolderFixture fixture{home / "Library/Developer"};
};

TEST_F(InfoClean, InfoListsEveryLocationAndCleanDerivedDataRemovesOnlyItAddingToTheLifetimeTotalUpToItsEnd) {
  fixture.populate();
  const auto info = run({"info"});
  ASSERT_RAN(info);
  const int64_t seaLion = measurePath(fixture.xcode() / "DerivedData/Sea_Lion-abcdefghijklmnopqrstuvwxyz", nullptr);
  // Device-support groups sit one level deeper than their location, their items one further.
  for (const std::string& item : std::vector<std::string>{
           "Scanning...\n\n", "\t[" + formatByteCount(0) + "] tvOS \n",
           "\t[" + formatByteCount(seaLion) + "] Sea Lion (/Users/dev/Projects/Sea Lion/Sea Lion.xcodeproj)\n",
           "] iOS 17.4 (21E219) \n", "] 1.3 (14) \u274C ("})
    EXPECT_THAT(info.standardOutput, HasSubstr(item));
  // The order of the lines is the listing's own (CmdLineListing); the total comes last.
  EXPECT_THAT(info.standardOutput, MatchesRegex(".*\nTotal size available to clean: [^\n]*\n"));

  preferences().setInteger("TWTotalBytesCleaned", 1000);
  const fs::path derivedData = fixture.xcode() / "DerivedData";
  int64_t expected = 0;
  std::vector<fs::path> projects;
  for (const auto& item : fs::directory_iterator(derivedData))
    if (item.path().filename() != "ModuleCache") projects.push_back(item), expected += measurePath(item, nullptr);
  ASSERT_EQ(projects.size(), 4u);  // two projects, one without info.plist, ModuleCache.noindex

  const auto result = run({"clean", "derived-data"});
  ASSERT_RAN(result);
  // The lines' format is the driver's own (CmdLineDriver): here all four items go, without a warning.
  EXPECT_THAT(result.standardOutput, HasSubstr(" - 4/4\n\nTotal bytes cleaned: " + formatByteCount(expected) + "\n"));
  EXPECT_THAT(result.standardOutput, Not(HasSubstr("Warning:")));
  for (const auto& project : projects) EXPECT_FALSE(fs::exists(project)) << project;
  for (const fs::path& kept :
       {derivedData / "ModuleCache", fixture.xcode() / "Archives", fixture.developerFolder() / "Shared/Documentation"})
    EXPECT_TRUE(fs::exists(kept)) << kept;
  EXPECT_EQ(preferences().object("TWTotalBytesCleaned"), UserDefaults::Value(1000 + expected));

  // A lifetime total at the end of its range never stops a clean nor reads negative.
  const auto cleanOnce = [&](const std::string& name) {
    const fs::path project = fixture.addDerivedData(name + "-abcdefghijklmnopqrstuvwxyz",
                                                    "/Users/dev/" + name + "/" + name + ".xcodeproj", 3 << 20);
    const auto cleaned = run({"clean", "derived-data"});
    EXPECT_EQ(cleaned.exitStatus, 0) << cleaned.standardOutput << cleaned.standardError;
    EXPECT_FALSE(fs::exists(project));
    return cleaned.standardOutput;
  };
  preferences().setInteger("TWTotalBytesCleaned", INT64_MAX - 10);
  EXPECT_THAT(cleanOnce("One"), AllOf(HasSubstr("Note: the lifetime total of bytes cleaned cannot grow any further"),
                                      Not(HasSubstr("could not be saved"))));
  EXPECT_EQ(preferences().object("TWTotalBytesCleaned"), UserDefaults::Value(INT64_MAX));
  EXPECT_THAT(cleanOnce("Two"), HasSubstr("Total bytes cleaned: "));  // again, with the total at the top
  fs::remove_all(config);  // A total that cannot be saved is said on standard output, not only in the log.
  test::writeFile(config, "a file where the settings folder should be");
  EXPECT_THAT(cleanOnce("Four"), HasSubstr("Warning: the lifetime total of bytes cleaned could not be saved: "));
  fs::remove_all(fixture.developerFolder() / "CoreSimulator");
  fixture.addDerivedData("Late-abcdefghijklmnopqrstuvwxyz", "/Users/dev/Late/Late.xcodeproj", 4096);
  EXPECT_THAT(test::outcome(run({"clean", "derived-data"})),
              MatchesRegex("1 .*\nError: Cannot locate Xcode cache files.\nCheck if you have Xcode installed and "
                           "some projects built.\n.*"));
  EXPECT_TRUE(fs::exists(derivedData / "Late-abcdefghijklmnopqrstuvwxyz"));
}

TEST_F(InfoClean, PropertyListsNestedTooDeepOrTooLargeAreRefusedAndAStuckToolIsEnded) {
  test::writeStandInTool(root, "/usr/bin/xcrun", "sleep 1000 & wait");
  const fs::path runtimes =
      root / "Library/Developer/CoreSimulator/Volumes/iOS_21E213/Library/Developer/CoreSimulator/Profiles/Runtimes";
  test::writeFile(runtimes / "iOS 17.4.simruntime/Contents/Info.plist",
                  "<plist><dict><key>CFBundleIdentifier</key><string>com.apple.CoreSimulator.SimRuntime.iOS-17-4"
                  "</string></dict></plist>");
  const fs::path backups = home / "Library/Application Support/MobileSync/Backup",
                 developer = fixture.developerFolder();
  // Each place twice: '%' becomes 1 for XML nested 200,000 deep, 2 for binary nested 100,000 deep.
  std::vector<fs::path> written;
  for (const fs::path& place :
       {developer / "Xcode/DerivedData/Deep%-abcdefghijklmnopqrstuvwxyz/info.plist",
        developer / "Xcode/Archives/2024-05-01/Deep% 01-05-2024, 10.00.xcarchive/Info.plist",
        developer / "CoreSimulator/Devices/0A1B2C3D-0000-4000-8000-00000000000%/device.plist",
        runtimes / "Deep %.simruntime/Contents/Info.plist", backups / "00008110-00000000000000%/Info.plist"}) {
    for (char format : {'1', '2'}) {
      written.push_back(std::string(place).replace(place.string().find('%'), 1, 1, format));
      test::writeFile(written.back(), format == '1' ? test::deepXmlList(200'000) : test::deepBinaryList(100'000));
    }
  }
  // A sparse Info.plist of 3 GiB in a device backup: refused by its size, never read.
  const fs::path huge = backups / "00008110-000000000000000H/Info.plist";
  test::writeSparseFile(huge, uint64_t{3} << 30);

  auto result = run({"info"}, {{"TIDEWELL_TEST_COMMAND_TIME_LIMIT_MS", "500"}});
  ASSERT_RAN(result);
  const std::string logged = test::readFile(logFile());
  EXPECT_THAT(logged, HasSubstr("Shell: /usr/bin/xcrun did not finish within 500 ms"));
  for (const auto& file : written)
    EXPECT_THAT(logged, HasSubstr("The property list " + file.string() + " is unusable: it is nested more than 256"));
  EXPECT_THAT(logged, HasSubstr("The property list " + huge.string() + " is unusable: it is 3221225472 bytes long"));
}

// A synced Dropbox folder, also reached through ~/Dropbox; $HOME points elsewhere: the home is the test host's.
TEST_F(InfoClean, ASyncedCloudFolderIsListedButOnlyItsCacheIsCountedAndCleaned) {
  const auto written = test::FixtureHome::write(home);
  const fs::path dropbox = home / "Library/CloudStorage/Dropbox";
  test::writeFileOfSize(dropbox / "Photos/holiday.jpg", 3 << 20);
  test::writeFile(dropbox / "Notes/todo.txt", "call the plumber\n");
  test::writeFileOfSize(dropbox / ".dropbox.cache/2024-03-04/deleted.bin", 2 << 20);
  fs::create_directory_symlink(dropbox, home / "Dropbox");
  auto syncedFiles = [&] {  // everything below the synced folder except the client's cache
    auto files = test::snapshot(dropbox);
    std::erase_if(files, [](const auto& item) { return item.first.starts_with(".dropbox.cache"); });
    return files;
  };
  const auto before = syncedFiles();
  ASSERT_EQ(before.size(), 4u);  // two folders, two files
  HardLinkTracker tracker;
  const int64_t cacheBytes = allocatedSizeOfDirectory(dropbox / ".dropbox.cache", &tracker);
  ASSERT_GE(allocatedSizeOfDirectory(dropbox / "Photos", &tracker), int64_t{3 << 20});
  const test::Environment elsewhere = {{"HOME", (scratch / "not-the-home").string()}};
  const auto info = run({"info"}, elsewhere);
  ASSERT_RAN(info);
  // The location line shows only the cache, counted once; the synced folder is listed below it with its own size.
  EXPECT_THAT(info.standardOutput, HasSubstr("[" + formatByteCount(cacheBytes) + "] Cloud Storage "));
  EXPECT_THAT(info.standardOutput, HasSubstr("] Dropbox \n"));

  const auto cloud = run({"clean", "cloud-caches"}, elsewhere);
  ASSERT_RAN(cloud);
  EXPECT_THAT(cloud.standardOutput, HasSubstr("Total bytes cleaned: " + formatByteCount(cacheBytes) + "\n"));
  EXPECT_FALSE(fs::exists(dropbox / ".dropbox.cache")) << "the client's cache is an ordinary cleanable item";
  const auto all = run({"clean", "all"}, elsewhere);
  ASSERT_RAN(all);
  EXPECT_THAT(all.standardOutput, Not(HasSubstr("Warning: Following file couldn't be removed")));
  EXPECT_THAT(all.standardOutput, Not(HasSubstr(dropbox.string())));
  EXPECT_EQ(syncedFiles(), before) << "synced files must never be touched";
  EXPECT_TRUE(fs::is_symlink(home / "Dropbox"));
  for (const fs::path& kept : written.keep) EXPECT_TRUE(fs::exists(kept)) << kept;
  for (const char* cache : {".npm", ".cargo/registry", "Library/Caches/Google/Chrome", ".Trash/Old Installer.dmg"})
    EXPECT_FALSE(fs::exists(home / cache)) << cache;
}

}  // namespace
}  // namespace tw
