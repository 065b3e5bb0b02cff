// The scan driver and its Xcode scanners on real developer folders, whole scans of a realistic home, scans on workers
// and stops, and the pool they run on.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <mutex>
#include <set>
#include <thread>

#include "fs/DirectorySize.h"
#include "model/SystemEntries.h"
#include "model/SystemImages.h"
#include "model/XcodeEntries.h"
#include "platform/Cancellation.h"
#include "platform/SecurityScope.h"
#include "platform/ThreadPool.h"
#include "scan/DevCaches.h"
#include "scan/DevFiles.h"
#include "scan/Scanners.h"
#include "support/CatalogueFixture.h"
#include "support/DeveloperFolderFixture.h"
#include "support/FixtureHome.h"
#include "support/StandInEnvironment.h"
#include "support/TempDir.h"
#include "support/Unprivileged.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using namespace ::testing;
using Location = DevFiles::Location;
using Selection = CleanupEntry::Selection;
using test::ArchiveDistributions, test::ArchiveInfo, test::labelsOf, test::linesStartingWith, test::TempDir;
constexpr auto kBinary = test::PlistFormat::binary;

template <class Kind>
std::shared_ptr<Kind> as(const CleanupEntryPtr& entry) {
  auto kind = std::dynamic_pointer_cast<Kind>(entry);
  EXPECT_NE(kind, nullptr) << entry->label();
  return kind;
}

// One line per entry: label, architecture (device support), " ticked" when selected, then its files' names.
std::vector<std::string> dump(const std::vector<CleanupEntryPtr>& entries) {
  std::vector<std::string> lines;
  for (const auto& entry : entries) {
    std::string& line = lines.emplace_back(entry->label());
    if (auto support = std::dynamic_pointer_cast<DeviceSupportFileEntry>(entry))
      line += " " + support->architecture().value_or("-");
    line += entry->selection() == Selection::on ? " ticked:" : ":";
    for (const auto& path : entry->paths()) line += " " + path.filename().string();
  }
  return lines;
}

struct RecordingScanDelegate : DevFilesScanDelegate {
  std::vector<std::string> events;
  void scanStarted(DevFiles& files) override { events.push_back("started " + std::to_string(int(files.state()))); }
  void locationScanned(DevFiles&, Location at) override { events.emplace_back(DevFiles::commandLineName(at)); }
  void scanFinished(DevFiles&) override { events.push_back("finished"); }
};

class DevFilesTest : public ::testing::Test {
 protected:
  TempDir temp;
  test::DeveloperFolderFixture fixture{temp / "Library/Developer"};
};

TEST_F(DevFilesTest, NeedsTheXcodeAndCoreSimulatorFoldersBuildsTheTreeAndHoldsAccessToItsFoldersForItsLifetime) {
  TempDir derived, archives, otherArchives;
  auto devFiles = fixture.devFiles(derived.path(), archives.path());
  ASSERT_NE(devFiles, nullptr);
  // The first ten locations sit in the Apple group, the others at the top after it, all in declaration order.
  std::vector<CleanupEntryPtr> apple, top{devFiles->appleGroupEntry()};
  for (Location location : DevFiles::allLocations()) {
    const auto& entry = devFiles->entry(location);
    (int(location) < 10 ? apple : top).push_back(entry);
    EXPECT_EQ(entry->parent(), int(location) < 10 ? devFiles->appleGroupEntry() : nullptr) << entry->label();
  }
  EXPECT_EQ(devFiles->appleGroupEntry()->items(), apple);
  EXPECT_EQ(devFiles->rootEntries(), top);

  const auto scopes = [](const auto&... folders) { return std::vector{securityScopeAccessCount(folders)...}; };
  EXPECT_EQ(scopes(fixture.developerFolder(), archives.path()), (std::vector{1, 1}));
  devFiles->updateCustomFolders(std::nullopt, otherArchives.path());
  EXPECT_EQ(scopes(derived.path(), archives.path(), otherArchives.path()), (std::vector{0, 0, 1}));
  devFiles.reset();
  EXPECT_EQ(scopes(fixture.developerFolder(), otherArchives.path()), (std::vector{0, 0}));

  const fs::path developer = fixture.developerFolder();
  fs::remove(developer / "CoreSimulator");
  test::LogCapture log;
  EXPECT_EQ(fixture.devFiles(), nullptr);
  EXPECT_THAT(log.lines(), Contains("\u274C DevFiles: Cannot create because Xcode cache folders doesn't seem to "
                                    "exist or we don't have proper access to them!"));
  test::writeFile(developer / "CoreSimulator", "");  // a file of that name is no folder
  EXPECT_EQ(fixture.devFiles(), nullptr);
  fs::remove(developer / "CoreSimulator");
  fs::rename(developer / "Xcode", developer / "CoreSimulator");
  EXPECT_EQ(DevFiles::create(developer, {}, {}).error().message(),
            '"' + (developer / "Xcode").string() + "\" is missing");
  EXPECT_EQ((DevFiles::Refusal{DevFiles::Refusal::Reason::notWritable, "/x"}).message(), "\"/x\" is not writable");
  EXPECT_EQ(securityScopeAccessCount(developer), 0);  // a refused driver leaves the scopes it entered
}

TEST_F(DevFilesTest, ScanCallbacksArriveThroughTheExecutorInOrderOnlyWhileDelegateAndDriverLive) {
  fixture.populate();
  std::deque<std::function<void()>> queue;  // an event loop that has not come round yet
  const auto drain = [&] {
    for (; !queue.empty(); queue.pop_front()) queue.front()();
  };
  auto devFiles = fixture.devFiles(std::nullopt, std::nullopt, [&](auto task) { queue.push_back(std::move(task)); });
  auto delegate = std::make_shared<RecordingScanDelegate>();
  devFiles->setScanDelegate(delegate);
  const std::vector<Location> scanned{Location::derivedData, Location::logs, Location::oldDocumentation};
  devFiles->scan(scanned);
  drain();
  EXPECT_THAT(delegate->events, ElementsAre("started 1", "derived-data", "old-logs", "old-documentation", "finished"));
  // The group took its size and selection from its locations (device logs are preselected).
  int64_t sum = 0;
  for (Location location : scanned) sum += devFiles->entry(location)->size().bytesOrZero();
  EXPECT_EQ(devFiles->appleGroupEntry()->size().bytesOrZero(), sum);
  EXPECT_EQ(devFiles->appleGroupEntry()->selection(), Selection::mixed);

  // Nothing arrives once the delegate or the driver is gone.
  delegate->events.clear();
  devFiles->scan({Location::archives});
  devFiles->setScanDelegate(nullptr);
  drain();
  devFiles->setScanDelegate(delegate);
  devFiles->scan({Location::archives});
  std::weak_ptr<DevFiles> weak = devFiles;
  devFiles.reset();
  EXPECT_TRUE(weak.expired()) << "pending callbacks must not keep the driver alive";
  drain();
  EXPECT_THAT(delegate->events, IsEmpty());
  auto direct = fixture.devFiles();  // without an executor (callbacks in place: ScanThreadsTest)

  // Each scan starts from empty entries and touches only its locations.
  direct->scan({Location::derivedData});
  const CleanupEntryPtr derivedData = direct->entry(Location::derivedData);
  EXPECT_EQ(derivedData->items().size(), 3u);  // two projects and "Other"
  for (Location location : DevFiles::allLocations())
    EXPECT_EQ(direct->entry(location)->size().isUnknown(), location != Location::derivedData);
  fs::remove_all(fixture.xcode() / "DerivedData");
  direct->scan({Location::derivedData});
  EXPECT_EQ(direct->entry(Location::derivedData), derivedData);
  EXPECT_THAT(derivedData->items(), IsEmpty());
  EXPECT_EQ(derivedData->size(), CleanupEntry::Size::value(0));
  // reset() keeps the state and the selections of the location entries.
  direct->entry(Location::archives)->select();
  direct->reset();
  EXPECT_EQ(direct->state(), DevFiles::State::scanComplete);
  EXPECT_EQ(direct->entry(Location::archives)->selection(), Selection::on);
  EXPECT_TRUE(direct->entry(Location::derivedData)->size().isUnknown());
}

TEST_F(DevFilesTest, DeviceSupportReadsNamesMergesArchitecturesSortsNewestFirstAndSkipsWithALine) {
  for (const char* name : {"17.4 (21E219)", "17.4 (21E219) arm64e", "iPhone15,2 17.4 (21E220) arm64e", "17.0 (21A329)",
                           "17.0 (21A5248p)", "17.0.0"})
    fixture.addFolder(std::string("iOS DeviceSupport/") + name);
  fixture.addFolder("watchOS DeviceSupport/Watch6,1 10.2");
  for (const char* name : {"Latest", "17.0 (21A329)\nsecond line", "17.1 \xF0\x9F\x93\xB1 arm64e"})
    fixture.addFolder(std::string("macOS DeviceSupport/") + name);
  fs::create_directories(fixture.xcode() / "macOS DeviceSupport/   ");
  fs::create_directories(fixture.xcode() / "visionOS DeviceSupport");
  test::LogCapture log;

  const auto groups = scanDeviceSupport(*fixture.devFiles());
  ASSERT_THAT(labelsOf(groups), ElementsAre("iOS", "watchOS", "tvOS", "visionOS", "macOS"));
  std::vector<std::string> lines;
  for (const auto& osGroup : groups)
    for (const std::string& line : dump(osGroup->items())) lines.push_back(line);
  // 17.0 and 17.0.0 tie, broken by the build (none counts as empty); arm64e twins merge; a new line stays in the build.
  EXPECT_THAT(lines, ElementsAre("iOS 17.4 (21E220) (iPhone15,2) arm64e: iPhone15,2 17.4 (21E220) arm64e",
                                 "iOS 17.4 (21E219) -: 17.4 (21E219) 17.4 (21E219) arm64e",
                                 "iOS 17.0 (21A5248p) -: 17.0 (21A5248p)", "iOS 17.0 (21A329) -: 17.0 (21A329)",
                                 "iOS 17.0.0  -: 17.0.0", "watchOS 10.2  (Watch6,1) -: Watch6,1 10.2",
                                 "macOS 17.1 \xF0\x9F\x93\xB1 arm64e: 17.1 \xF0\x9F\x93\xB1 arm64e",
                                 "macOS 17.0 (21A329)\nsecond line: 17.0 (21A329)\nsecond line"));
  EXPECT_THAT(linesStartingWith(log, "DevFiles: No version for device support: "),
              ElementsAre("\u26A0\uFE0F DevFiles: No version for device support: Latest, skipping"));
}

TEST_F(DevFilesTest, ArchivesAreGroupedByProjectNewestFirstWithTheirStateAndBrokenOnesAreSkippedWithALine) {
  TempDir custom;
  using enum ArchiveDistributions;
  const auto xml = test::PlistFormat::xml;
  // 1.10 = 1.10.0 (builds decide, as numbers); odd versions sort as read; no archives: a .txt, one at the root.
  const std::vector<std::tuple<fs::path, std::string, ArchiveInfo, test::PlistFormat>> archives{
      {"2024-01-01", "A 1.9", {"Alpha", missing, "1.9", "90"}, xml},
      {"2024-01-02", "A 1.10", {"Alpha", notAnArray, "1.10", "100"}, kBinary},
      {"2024-01-02", "B beta", {"Beta", allFailed, "2.0 beta", "1"}, kBinary},
      {"2024-01-03", "A 1.10 b", {"Alpha", notDictionaries, "1.10", "99"}, xml},
      {"2024-01-03", "A 1.10.0 c", {"Alpha", empty, "1.10.0", "101"}, kBinary},
      {"2024-01-03", "B rc", {"Beta", oneSucceeded, "2.0 rc 10", "2"}, xml},
      {"2024-01-03", "B rc9", {"Beta", allFailed, "2.0 rc 9", "3"}, xml},
      {".", "Stray", {"Stray", missing, "1.0", "1"}, xml},
      {custom / "2024-05-05", "Own", {"Custom", oneSucceeded, "3.0", "3"}, kBinary},
      {"2024-02-02", "Good", {"Fine", missing, "1.0", "1"}, xml},
  };
  for (const auto& [date, name, info, format] : archives) fixture.addArchive(date, name, info, format);
  test::writeFileOfSize(fixture.xcode() / "Archives/2024-01-03/notes.txt", 10);
  const std::string get = "\u26A0\uFE0F DevFiles: Cannot get ";
  const std::string unreadable = "\u26A0\uFE0F DevFiles: Cannot open Info.plist file from archive: ";
  // name, Info.plist, expected line, and a text to replace the file with (empty: no file)
  const std::vector<std::tuple<std::string, ArchiveInfo, std::string, std::optional<std::string>>> broken{
      {"NoName", {.name = std::nullopt}, get + "project name from archive: ", {}},
      {"NumberName", {.nameAsNumber = true}, get + "project name from archive: ", {}},
      {"NoDate", {.creationDate = std::nullopt}, get + "archive date from archive: ", {}},
      {"NoApp", {.applicationProperties = false}, get + "'ApplicationProperties' from archive Info.plist file: ", {}},
      {"NoBundle", {.bundleIdentifier = std::nullopt}, get + "bundle name from archive: ", {}},
      {"NoVersion", {.shortVersion = std::nullopt}, "\u2755 DevFiles: Cannot get bundle version from archive: ", {}},
      {"NoBuild", {.bundleVersion = std::nullopt}, get + "bundle build from archive: ", {}},
      {"Corrupt", {}, unreadable, "<?xml version=\"1.0\"?><plist><dict><key>Name</key><string>Half"},
      {"Missing", {}, unreadable, ""},
  };
  for (const auto& [name, info, line, text] : broken) {
    const fs::path plist = fixture.addArchive("2024-02-02", name, info) / "Info.plist";
    if (text) fs::remove(plist);
    if (text && !text->empty()) test::writeFile(plist, *text);
  }
  test::LogCapture log;

  std::vector<std::string> lines;  // project version (build) mark of the upload state
  for (const auto& project : scanArchives(*fixture.devFiles(std::nullopt, custom.path()))) {
    for (const auto& entry : project->items()) {
      lines.push_back(project->label() + " " + entry->label());
      EXPECT_EQ(as<ArchiveFileEntry>(entry)->bundleName(), "com.example.app");
      EXPECT_EQ(std::chrono::system_clock::to_time_t(as<ArchiveFileEntry>(entry)->date()), 1700000000);
    }
  }
  EXPECT_THAT(lines, ElementsAre("Alpha 1.10.0 (101) \u274C", "Alpha 1.10 (100) ", "Alpha 1.10 (99) ",
                                 "Alpha 1.9 (90) ", "Beta 2.0 rc 10 (2) \u2705", "Beta 2.0 rc 9 (3) \u274C",
                                 "Beta 2.0 beta (1) \u274C", "Fine 1.0 (1) ", "Custom 3.0 (3) \u2705"));
  for (const auto& [name, info, line, text] : broken) {
    const fs::path archive = fixture.xcode() / "Archives/2024-02-02" / (name + ".xcarchive");
    EXPECT_THAT(log.lines(), Contains(StartsWith(line + archive.string())).Times(1)) << name;
  }
  // The standard folder named again (with a trailing separator) is not scanned twice.
  const auto again = scanArchives(*fixture.devFiles(std::nullopt, fixture.xcode() / "Archives" / ""));
  ASSERT_THAT(labelsOf(again), ElementsAre("Alpha", "Beta", "Fine"));
  EXPECT_EQ(again[0]->items().size(), 4u);
}

TEST_F(DevFilesTest, DerivedDataNamesProjectsFromTheirInfoAndListsTheRestUnderOther) {
  TempDir custom;
  fixture.addDerivedData("Sea_Lion-abcdefghij", "/Users/dev/Sea Lion/Sea Lion.xcodeproj", 3 << 20);
  fixture.addDerivedData("my-great-app-klmnopqrst", "/Users/dev/great/App.xcworkspace", 1 << 20, kBinary);
  fixture.addDerivedData("ModuleCache", std::nullopt, 1024);
  fixture.addDerivedData("Caf\u00e9_\u00dcber\nZweite-hash", "/Users/d\u00e9v/Caf\u00e9.xcodeproj", 4096, kBinary);
  fixture.addDerivedData(custom / "Own-hash", "/w/Own.xcodeproj", 2 << 20, kBinary);
  // Without a readable workspace path a project goes under "Other", listed last whatever its size.
  fixture.addDerivedData("Lost_Project-hashhashhash", std::nullopt, 3 << 20);
  test::writeFile(fixture.addDerivedData("Typed-hash", std::nullopt, 4096) / "info.plist",
                  "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>WorkspacePath</key><integer>4</integer>"
                  "</dict></plist>");
  test::writeFile(fixture.addDerivedData("single", std::nullopt, 4096) / "info.plist",
                  std::string("bplist00\x01\x02\x03", 11));
  fixture.addDerivedData("-odd-", std::nullopt, 4096);

  const auto entries = scanDerivedData(*fixture.devFiles(custom.path()));
  // Measured while scanning, larger first.
  ASSERT_THAT(labelsOf(entries),
              ElementsAre("Sea Lion", "Own", "my-great-app", "Caf\u00e9 \u00dcber\nZweite", "Other"));
  EXPECT_EQ(as<DerivedDataFileEntry>(entries[3])->pathUrl(), fs::path("/Users/d\u00e9v/Caf\u00e9.xcodeproj"));
  EXPECT_GE(entries[4]->size().bytesOrZero(), 3 << 20);
  EXPECT_THAT(labelsOf(entries[4]->items()), ElementsAre("-odd-", "Lost Project", "Typed", "single"));
  for (const auto& entry : entries[4]->items())
    EXPECT_EQ(as<DerivedDataFileEntry>(entry)->pathUrl(), entry->paths().front()) << entry->label();
}

TEST_F(DevFilesTest, DocumentationCachesUserDataAndDeviceLogsAndNothingWhereTheirFoldersAreMissing) {
  EXPECT_THAT(scanDocumentationCache(*fixture.devFiles()), IsEmpty());
  EXPECT_THAT(scanUserDataCache(*fixture.devFiles()), IsEmpty());
  for (const char* version : {"v238/15.2", "v239/15.2.0", "v239/16.0", "v239/latest"})
    fixture.addFolder(std::string("DocumentationCache/") + version);
  fixture.addFolder("UserData/Previews", 64 * 1024);
  fixture.addFolder("UserData/Capabilities", 256 * 1024);
  fixture.addFolder("UserData/IB Support/Simulator Devices", 256 * 1024);
  for (const char* name :
       {"iOS Device Logs 17.2.db", "Logs from 17.2.0 backup.db", "iOS Device Logs 16.4.db", "Crash Reports.db"})
    test::writeFileOfSize(fixture.xcode() / "iOS Device Logs" / name, 4096);
  test::LogCapture log;

  // One entry per release, newest first.
  EXPECT_THAT(dump(scanDocumentationCache(*fixture.devFiles())),
              ElementsAre("Cache from Xcode 16.0: 16.0", "Cache from Xcode 15.2: 15.2 15.2.0"));
  EXPECT_THAT(linesStartingWith(log, "DevFiles: Invalid Xcode version while searching for documentation caches: "),
              ElementsAre(EndsWith(": latest")));
  // Largest first; equal sizes fall back to the labels.
  EXPECT_THAT(dump(scanUserDataCache(*fixture.devFiles())),
              ElementsAre("Capabilities Cache: Capabilities", "IB Support Simulator Devices: Simulator Devices",
                          "SwiftUI Previews: Previews"));
  // Newest first, named after the first log of a release; only the older ones are preselected.
  EXPECT_THAT(dump(scanDeviceLogs(*fixture.devFiles())),
              ElementsAre("Logs from Xcode 17.2.0: Logs from 17.2.0 backup.db iOS Device Logs 17.2.db",
                          "Logs from Xcode 16.4 ticked: iOS Device Logs 16.4.db"));
  EXPECT_THAT(linesStartingWith(log, "DevFiles: Wrong log entry? Version not found (path: "),
              ElementsAre(EndsWith("DevFiles: Wrong log entry? Version not found (path: Crash Reports")));

  // Files in place of the folders: nothing.
  fs::remove_all(fixture.xcode() / "iOS Device Logs");
  for (const char* folder : {"DerivedData", "Archives", "iOS Device Logs"})
    test::writeFile(fixture.xcode() / folder, "not a folder");
  EXPECT_THAT(scanDerivedData(*fixture.devFiles()), IsEmpty());
  EXPECT_THAT(scanArchives(*fixture.devFiles()), IsEmpty());
  EXPECT_THAT(scanDeviceLogs(*fixture.devFiles()), IsEmpty());
}

TEST_F(DevFilesTest, ReadOnlyCacheFoldersAreRefusedAndUnreadableOnesSkippedWithALine) {
  const fs::path locked = fixture.addFolder("iOS DeviceSupport/17.4 (21E219)").parent_path();
  fixture.addFolder("tvOS DeviceSupport/17.4 (21L227)");
  const fs::path lockedArchive = fixture.addArchive("2024-01-01", "Locked", {});
  const fs::path lockedProject = fixture.addDerivedData("Locked-hash", "/w/Locked.xcodeproj", 4096);
  ASSERT_TRUE(test::handOverTree(temp.path()));
  for (const fs::path& path : {locked, lockedArchive / "Info.plist", lockedProject / "info.plist"})
    fs::permissions(path, fs::perms::none);
  fs::permissions(fixture.xcode(), fs::perms::owner_read | fs::perms::owner_exec);

  auto failures = test::runUnprivileged(temp.path(), [&]() -> std::string {
    std::string problems = fixture.devFiles() ? "read-only Xcode accepted\n" : "";
    fs::permissions(fixture.xcode(), fs::perms::owner_all);
    if (!fixture.devFiles()) return problems + "writable Xcode refused\n";
    test::LogCapture log;
    const auto groups = scanDeviceSupport(*fixture.devFiles());
    if (labelsOf(groups).at(2) != "tvOS" || !groups[0]->items().empty() || groups[2]->items().size() != 1)
      problems += "device support items\n";
    if (linesStartingWith(log, "DevFiles: Cannot check contents of '" + locked.string() + "', skipping").size() != 1)
      problems += "no line for the unreadable folder\n";
    if (!scanArchives(*fixture.devFiles()).empty() ||
        linesStartingWith(log, "DevFiles: Cannot open Info.plist file from archive: " + lockedArchive.string())
                .size() != 1)
      problems += "an unreadable archive listed or not logged\n";
    // A project whose info.plist cannot be read is still listed, under "Other".
    if (labelsOf(scanDerivedData(*fixture.devFiles())) != std::vector<std::string>{"Other"})
      problems += "the project is not under Other\n";
    return problems;
  });
  fs::permissions(fixture.xcode(), fs::perms::owner_all);
  fs::permissions(locked, fs::perms::owner_all);
  if (!failures) GTEST_SKIP() << "no unprivileged user to run as";
  EXPECT_EQ(*failures, "");
}

#if defined(TIDEWELL_TEST_HOOKS)

// A folder two locations list is walked once by each; the window has pictures only for the shared image names.
TEST(FullScan, EachLocationWalksEveryFolderOnceAndUsesOnlyTheSharedSystemImageNames) {
  TempDir temp;
  const test::FixtureHome home = test::FixtureHome::write(temp / "home");
  ScopedHost host{test::hostWithRoot(temp.path())};
  auto devFiles = DevFiles::create(home.developerFolder, std::nullopt, std::nullopt).value_or(nullptr);
  ASSERT_NE(devFiles, nullptr);
  static std::mutex mutex;
  static std::map<fs::path, int> walks;
  std::map<fs::path, int> walkedInAll;
  std::set<std::string> icons;
  const std::function<void(const CleanupEntryPtr&)> collectIcons = [&](const CleanupEntryPtr& entry) {
    if (entry->icon() && entry->icon()->kind == CleanupEntry::Icon::Kind::system) icons.insert(entry->icon()->name);
    for (const auto& item : entry->items()) collectIcons(item);
  };
  collectIcons(std::make_shared<TimeMachineSnapshotFileEntry>("2024-01-01-000000", false));
  collectIcons(std::make_shared<CloudSyncFolderEntry>("Dropbox", temp / "Dropbox", "synced"));
  setDirectoryWalkObserver([](const fs::path& folder) {
    std::lock_guard lock(mutex);
    ++walks[folder];
  });
  for (Location location : DevFiles::allLocations()) {
    walks.clear();
    devFiles->scan({location});
    collectIcons(devFiles->entry(location));
    for (const auto& [folder, count] : walks) {
      EXPECT_EQ(count, 1) << DevFiles::commandLineName(location) << ": " << folder;
      walkedInAll[folder] += count;
    }
  }
  setDirectoryWalkObserver(nullptr);
  for (const auto& folder : home.projectBuildFolders) EXPECT_EQ(walkedInAll[folder], 1) << folder;
  for (const auto& name : icons) EXPECT_THAT(systemImage::all, Contains(name)) << name;
  EXPECT_GE(icons.size(), 4u);  // folders, documents and computers come from several scanners each
}

// pnpm's store hard-links packages into node_modules: charged to the group's first folder, on every scan.
TEST(MeasureOnce, HardLinkedFilesAreChargedToTheFirstItemOfTheGroupOnEveryScan) {
  test::CatalogueFixture fixture;
  test::DeveloperFolderFixture developer{fixture.at("~/Library/Developer")};
  const fs::path store = fixture.at("~/.pnpm-store/typescript.js");
  test::writeFileOfSize(store, 3 << 20);
  constexpr size_t kProjects = 6;
  for (size_t project = 0; project < kProjects; ++project) {
    const fs::path folder = fixture.at("~/code/project" + std::to_string(project));
    test::writeFile(folder / "package.json", "{}");
    test::writeFileOfSize(folder / "node_modules/own.js", (project + 2) << 20);
    fs::create_directories(folder / "node_modules/typescript");
    fs::create_hard_link(store, folder / "node_modules/typescript/typescript.js");
  }
  const auto scan = [&] {
    auto devFiles = developer.devFiles();
    devFiles->scan({Location::projectBuilds});
    return devFiles;
  };
  const auto devFiles = scan();
  const CleanupEntryPtr& builds = devFiles->entry(Location::projectBuilds);
  ASSERT_EQ(builds->items().size(), 1u);  // one kind: node_modules
  const auto& folders = builds->items()[0]->items();
  ASSERT_EQ(folders.size(), kProjects);
  int64_t total = 0;
  for (size_t index = 0; index < kProjects; ++index) {
    HardLinkTracker own;
    const int64_t charged =
        allocatedSizeOfDirectory(folders[index]->paths().at(0), &own) - (index == 0 ? 0 : test::allocatedBytes(store));
    EXPECT_EQ(folders[index]->size(), CleanupEntry::Size::value(charged)) << index;
    total += charged;
  }
  EXPECT_EQ(builds->size(), CleanupEntry::Size::value(total));
  for (int again = 1; again < 20; ++again)
    ASSERT_EQ(scan()->entry(Location::projectBuilds)->description(0), builds->description(0)) << "scan " << again;
}

#endif

struct RecordingDelegate : DevFilesScanDelegate {
  std::optional<Location> stopAfter;
  std::stop_source stop;  // requested after the location stopAfter
  std::vector<std::string> events;
  std::atomic<bool> finished = false;
  void scanStarted(DevFiles&) override { events.emplace_back("started"); }
  void locationScanned(DevFiles&, Location location) override {
    events.emplace_back(DevFiles::commandLineName(location));
    if (location == stopAfter) stop.request_stop();
  }
  void scanFinished(DevFiles&) override { events.emplace_back("finished"), finished = true; }
};

// Everything a view reads of an entry and its subtree, read the way a view would.
int64_t readTree(const CleanupEntry& entry) {
  int64_t checksum = static_cast<int64_t>(entry.label().size() + entry.extraInfo().size() + entry.paths().size());
  checksum += entry.size().bytesOrZero() % 1000 + entry.selectedSize() % 1000 + int64_t(entry.selection());
  for (const auto& item : entry.items()) checksum += readTree(*item);
  return checksum;
}

class ScanThreads : public ::testing::Test {
 protected:
  std::shared_ptr<DevFiles> create(DevFiles::Executor executor = nullptr) {
    return DevFiles::create(home.developerFolder, std::nullopt, std::nullopt, std::move(executor)).value_or(nullptr);
  }
  // Posts to `tasks`, which the test runs as a window's event loop would.
  std::shared_ptr<DevFiles> createQueued() {
    return create([this](std::function<void()> task) {
      std::lock_guard lock(mutex);
      tasks.push_back(std::move(task));
    });
  }

  std::mutex mutex;
  std::deque<std::function<void()>> tasks;
  test::TempDir temp;
  ScopedHost host{test::hostWithRoot(temp.path())};
  test::FixtureHome home = test::FixtureHome::write(temp / "home");
  std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
};

TEST_F(ScanThreads, AScanOnAWorkerLeavesTheShownTreeToItsOwner) {
  auto inPlace = create();  // the reference: the same home scanned in place
  inPlace->scan({DevFiles::allLocations().begin(), DevFiles::allLocations().end()});

  // A second thread stands in for a window's event loop: it runs posted tasks and reads the tree in between.
  auto devFiles = createQueued();
  devFiles->setScanDelegate(delegate);
  int reads = 0;
  std::thread owner([&] {
    while (!delegate->finished) {
      std::unique_lock lock(mutex);
      std::function<void()> task = tasks.empty() ? nullptr : std::move(tasks.front());
      if (task) tasks.pop_front();
      lock.unlock();
      if (task) task();
      int64_t checksum = devFiles->totalSize() % 1000 + static_cast<int64_t>(devFiles->state());
      for (const auto& root : devFiles->rootEntries()) checksum += readTree(*root);
      reads += checksum != 0;
    }
  });
  devFiles->scan({DevFiles::allLocations().begin(), DevFiles::allLocations().end()});
  owner.join();

  EXPECT_GT(reads, 0);
  ASSERT_EQ(delegate->events.size(), DevFiles::kLocationCount + 2);
  EXPECT_EQ(delegate->events.front(), "started");
  EXPECT_EQ(devFiles->state(), DevFiles::State::scanComplete);
  // Same result as in place: every size, item and selection.
  for (Location location : DevFiles::allLocations())
    EXPECT_EQ(devFiles->entry(location)->description(0), inPlace->entry(location)->description(0))
        << DevFiles::commandLineName(location);
  EXPECT_EQ(devFiles->appleGroupEntry()->size(), inPlace->appleGroupEntry()->size());
  EXPECT_EQ(devFiles->appleGroupEntry()->selection(), inPlace->appleGroupEntry()->selection());
  EXPECT_GT(devFiles->totalSize(), 0);
}

TEST_F(ScanThreads, AStoppedScanPostsNothingMoreShowsOnlyFinishedLocationsAndItsDeepLoopsGiveUp) {
  // Stopped between two locations (the command line's inline delivery).
  auto devFiles = create();
  delegate->stopAfter = Location::derivedData;
  devFiles->setScanDelegate(delegate);
  devFiles->scan({Location::archives, Location::derivedData, Location::projectBuilds}, delegate->stop.get_token());
  EXPECT_THAT(delegate->events, ElementsAre("started", "archives", "derived-data"));
  EXPECT_FALSE(devFiles->entry(Location::derivedData)->items().empty());
  EXPECT_THAT(devFiles->entry(Location::projectBuilds)->items(), IsEmpty());
  EXPECT_TRUE(devFiles->entry(Location::projectBuilds)->size().isUnknown());

  // Stopped with the results still queued (a window closed mid-scan): the tree stays as it was.
  auto queuedDriver = createQueued();
  auto quiet = std::make_shared<RecordingDelegate>();
  queuedDriver->setScanDelegate(quiet);
  std::stop_source late;
  queuedDriver->scan({Location::derivedData}, late.get_token());
  late.request_stop();
  for (auto& task : tasks) task();
  EXPECT_THAT(quiet->events, IsEmpty());
  EXPECT_THAT(queuedDriver->entry(Location::derivedData)->items(), IsEmpty());
  EXPECT_EQ(queuedDriver->state(), DevFiles::State::initial);

  ASSERT_GT(measurePath(home.developerFolder, nullptr), 0);
  ASSERT_FALSE(scanProjectBuilds({}).empty());

  CancellationScope scope(late.get_token());
  EXPECT_EQ(measurePath(home.developerFolder, nullptr), 0);
  EXPECT_THAT(scanProjectBuilds({}), IsEmpty());
  EXPECT_THAT(DevCaches::expandPattern("~/Library/Developer/Xcode/*"), IsEmpty());
  // The pool's workers work for the job that queued the task, and see its token.
  std::atomic<int> stoppedIterations{0};
  ThreadPool::shared().concurrentPerform(64, [&](size_t) { stoppedIterations += cancellationRequested(); });
  EXPECT_EQ(stoppedIterations.load(), 64);
}

void failIf(bool fail) {
  if (fail) throw std::runtime_error("failed");
}

TEST(ThreadPoolTest, RunsEveryIterationOnceErrorsReachTheCallerNestingEndsAndTasksAddTasksBesideOutsideCallers) {
  ThreadPool pool(2);
  for (size_t count : {0u, 1u, 7u, 10000u}) {
    std::vector<std::atomic<int>> runs(count);
    pool.concurrentPerform(count, [&](size_t index) { runs[index].fetch_add(1); });
    for (size_t i = 0; i < count; ++i) ASSERT_EQ(runs[i].load(), 1) << "iteration " << i << " of " << count;
  }
  // Every iteration waits until three have started at once: the caller and both workers take part.
  std::thread::id threads[3];
  std::atomic<int> arrived{0};
  pool.concurrentPerform(3, [&](size_t index) {
    threads[index] = std::this_thread::get_id();
    for (arrived.fetch_add(1); arrived.load() < 3;) std::this_thread::yield();
  });
  EXPECT_EQ(std::set(std::begin(threads), std::end(threads)).size(), 3u);
  EXPECT_THROW(
      pool.concurrentPerform(
          4, [&](size_t outer) { pool.concurrentPerform(4, [&](size_t inner) { failIf(outer == 2 && inner == 1); }); }),
      std::runtime_error);
  ThreadPool::TaskGroup group(pool);
  std::atomic<int> ran{0};
  for (int i = 0; i < 200; ++i) group.run([&ran, i] { failIf(++ran && i % 50 == 0); });
  EXPECT_THROW(group.wait(), std::runtime_error);
  EXPECT_EQ(ran.load(), 200);
  group.run([&ran] { ran.fetch_add(1); });  // the error was reported once; the group is clean again
  EXPECT_NO_THROW(group.wait());
  EXPECT_EQ(ran.load(), 201);
  // One worker and three levels of nesting, groups inside loops: only help-while-waiting lets this finish.
  ThreadPool single(1);
  std::atomic<int> leaves{0};
  single.concurrentPerform(4, [&](size_t) {
    ThreadPool::TaskGroup nested(single);
    for (int task = 0; task < 5; ++task)
      nested.run([&] { single.concurrentPerform(6, [&](size_t) { leaves.fetch_add(1); }); });
    nested.wait();
  });
  EXPECT_EQ(leaves.load(), 4 * 5 * 6);
  ThreadPool wide(3);  // a parallel tree walk whose tasks add tasks, while outside threads share the pool.
  std::atomic<int> visited{0}, total{0};
  std::vector<std::thread> callers;
  for (int caller = 0; caller < 4; ++caller)
    callers.emplace_back([&] {
      for (int round = 0; round < 50; ++round) wide.concurrentPerform(20, [&](size_t) { total.fetch_add(1); });
    });
  ThreadPool::TaskGroup walk(wide);
  std::function<void(int)> visit = [&](int depth) {
    visited.fetch_add(1);
    for (int child = 0; depth > 0 && child < 4; ++child) walk.run([&visit, depth] { visit(depth - 1); });
  };
  walk.run([&] { visit(6); });
  walk.wait();
  for (auto& caller : callers) caller.join();
  EXPECT_EQ(visited.load(), 5461);  // 1 + 4 + 16 + ... + 4^6
  EXPECT_EQ(total.load(), 4 * 50 * 20);
}

}  // namespace
}  // namespace tw
