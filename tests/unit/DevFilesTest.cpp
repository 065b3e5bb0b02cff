// The scan driver and its Xcode scanners on real developer folders, and whole scans of a realistic home.
#include <gmock/gmock.h>

#include <deque>

#include "fs/DirectorySize.h"
#include "model/SystemEntries.h"
#include "model/SystemImages.h"
#include "model/XcodeEntries.h"
#include "platform/SecurityScope.h"
#include "scan/Scanners.h"
#include "support/CatalogueFixture.h"
#include "support/DeveloperFolderFixture.h"
#include "support/StandInEnvironment.h"
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

}  // namespace
}  // namespace tw
