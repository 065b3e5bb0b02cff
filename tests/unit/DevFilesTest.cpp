// The scan driver and its Xcode scanners on real developer folders, and whole scans of a realistic home.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "fs/DirectorySize.h"
#include "model/SystemEntries.h"
#include "model/SystemImages.h"
#include "model/XcodeEntries.h"
#include "platform/Host.h"
#include "platform/SecurityScope.h"
#include "scan/DevFiles.h"
#include "scan/Scanners.h"
#include "support/CatalogueFixture.h"
#include "support/DeveloperFolderFixture.h"
#include "support/FixtureHome.h"
#include "support/TempDir.h"
#include "support/Unprivileged.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using Location = DevFiles::Location;
using Status = ArchiveFileEntry::SubmissionStatus;
using test::ArchiveDistributions;
using test::ArchiveInfo;
using test::linesStartingWith;
using test::LogCapture;
using test::PropertyListFormat;
using test::TempDir;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

const CleanupEntryPtr& group(const std::vector<CleanupEntryPtr>& groups, const std::string& label) {
  auto found = std::find_if(groups.begin(), groups.end(), [&](const auto& entry) { return entry->label() == label; });
  EXPECT_NE(found, groups.end()) << label;
  return *found;
}

template <class Kind>
std::shared_ptr<Kind> as(const CleanupEntryPtr& entry) {
  auto kind = std::dynamic_pointer_cast<Kind>(entry);
  EXPECT_NE(kind, nullptr) << entry->label();
  return kind;
}

ArchiveInfo archive(const std::string& name, const std::string& version, const std::string& build,
                    ArchiveDistributions distributions = ArchiveDistributions::missing) {
  return {.name = name, .distributions = distributions, .shortVersion = version, .bundleVersion = build};
}

// A main queue that runs nothing until the test drains it, like an event loop not yet come round.
struct ManualQueue {
  std::deque<std::function<void()>> tasks;
  DevFiles::Executor executor() {
    return [this](std::function<void()> task) { tasks.push_back(std::move(task)); };
  }
  void drain() {
    for (; !tasks.empty(); tasks.pop_front()) tasks.front()();
  }
};

struct RecordingScanDelegate : DevFilesScanDelegate {
  std::vector<std::string> events;
  void scanStarted(DevFiles& devFiles) override {
    events.push_back("started " + std::to_string(static_cast<int>(devFiles.state())));
  }
  void locationScanned(DevFiles&, Location location) override {
    events.push_back(std::string(DevFiles::commandLineName(location)));
  }
  void scanFinished(DevFiles&) override { events.push_back("finished"); }
};

class XcodeScanners : public ::testing::Test {
 protected:
  TempDir temp;
  test::DeveloperFolderFixture fixture{temp / "Library/Developer"};
};
using DevFilesTest = XcodeScanners;

TEST_F(DevFilesTest, BuildsTheTreeOfEighteenLocations) {
  auto devFiles = fixture.devFiles();
  ASSERT_NE(devFiles, nullptr);
  EXPECT_THAT(
      test::labelsOf(devFiles->appleGroupEntry()->items()),
      ElementsAre("Device Support", "Archives", "Derived Data", "Documentation Cache", "UserData Cache", "Old Logs",
                  "Old Documentation Downloads", "Simulators", "Platform Runtimes", "Package Managers"));
  EXPECT_THAT(test::labelsOf(devFiles->rootEntries()),
              ElementsAre("Apple", "Dev Caches", "IDEs Caches", "AI Caches", "Browser Caches", "App Caches",
                          "Cloud Storage", "System", "Project Build Folders"));
  std::vector<std::string> names;
  for (Location location : DevFiles::allLocations()) {
    names.emplace_back(DevFiles::commandLineName(location));
    const auto& entry = devFiles->entry(location);
    EXPECT_EQ(entry->parent(), static_cast<int>(location) < 10 ? devFiles->appleGroupEntry() : nullptr)
        << entry->label();
  }
  EXPECT_THAT(names,
              ElementsAre("device-support", "archives", "derived-data", "docs-cache", "user-data-cache", "old-logs",
                          "old-documentation", "simulators", "runtimes", "package-caches", "tool-caches", "ide-caches",
                          "ai-caches", "browser-caches", "app-caches", "cloud-caches", "system", "project-builds"));
}

TEST_F(DevFilesTest, ConstructionNeedsTheXcodeAndCoreSimulatorFolders) {
  const fs::path developer = fixture.developerFolder();
  fs::remove(developer / "CoreSimulator");
  {
    test::LogCapture log;
    EXPECT_EQ(fixture.devFiles(), nullptr);
    EXPECT_THAT(log.lines(),
                ::testing::Contains("\u274C DevFiles: Cannot create because Xcode cache folders doesn't seem to "
                                    "exist or we don't have proper access to them!"));
  }
  test::writeFile(developer / "CoreSimulator", "");  // a file of that name is no folder
  EXPECT_EQ(fixture.devFiles(), nullptr);
  fs::remove(developer / "CoreSimulator");
  fs::remove_all(developer / "Xcode");
  fs::create_directories(developer / "CoreSimulator");
  EXPECT_EQ(fixture.devFiles(), nullptr);
  // A refused driver leaves the folders' access scopes it entered.
  EXPECT_EQ(securityScopeAccessCount(developer), 0);
}

TEST_F(DevFilesTest, ConstructionNeedsWritableCacheFolders) {
  ASSERT_TRUE(test::handOverTree(temp.path()));
  fs::permissions(fixture.xcode(), fs::perms::owner_read | fs::perms::owner_exec);
  auto failures = test::runUnprivileged(temp.path(), [&]() -> std::string {
    if (fixture.devFiles()) return "read-only Xcode accepted";
    fs::permissions(fixture.xcode(), fs::perms::owner_all);
    return fixture.devFiles() ? "" : "writable Xcode refused";
  });
  fs::permissions(fixture.xcode(), fs::perms::owner_all);
  if (!failures) GTEST_SKIP() << "no unprivileged user to run as";
  EXPECT_EQ(*failures, "");
}

TEST_F(DevFilesTest, HoldsAccessToItsFoldersForItsLifetime) {
  TempDir derived, archives, otherArchives;
  {
    auto devFiles = fixture.devFiles(derived.path(), archives.path());
    ASSERT_NE(devFiles, nullptr);
    EXPECT_EQ(securityScopeAccessCount(fixture.developerFolder()), 1);
    EXPECT_EQ(securityScopeAccessCount(archives.path()), 1);
    devFiles->updateCustomFolders(std::nullopt, otherArchives.path());
    EXPECT_EQ(securityScopeAccessCount(derived.path()), 0);
    EXPECT_EQ(securityScopeAccessCount(archives.path()), 0);
    EXPECT_EQ(securityScopeAccessCount(otherArchives.path()), 1);
  }
  EXPECT_EQ(securityScopeAccessCount(fixture.developerFolder()), 0);
  EXPECT_EQ(securityScopeAccessCount(otherArchives.path()), 0);
}

TEST_F(DevFilesTest, ScanCallbacksArriveThroughTheExecutorInOrderOnlyWhileDelegateAndDriverLive) {
  fixture.populate();
  ManualQueue queue;
  auto devFiles = fixture.devFiles(std::nullopt, std::nullopt, queue.executor());
  auto delegate = std::make_shared<RecordingScanDelegate>();
  devFiles->setScanDelegate(delegate);

  devFiles->scan({Location::derivedData, Location::logs, Location::oldDocumentation});
  // Posted, not done: the shown tree and the state change only when the owner runs the tasks.
  EXPECT_EQ(devFiles->state(), DevFiles::State::initial);
  EXPECT_THAT(devFiles->entry(Location::derivedData)->items(), IsEmpty());
  EXPECT_THAT(delegate->events, IsEmpty());
  queue.drain();
  EXPECT_EQ(devFiles->state(), DevFiles::State::scanComplete);
  EXPECT_THAT(delegate->events, ElementsAre("started 1", "derived-data", "old-logs", "old-documentation", "finished"));

  // The group entry took its size and selection from its locations (device logs are preselected).
  EXPECT_EQ(devFiles->appleGroupEntry()->size().bytesOrZero(),
            devFiles->entry(Location::derivedData)->size().bytesOrZero() +
                devFiles->entry(Location::logs)->size().bytesOrZero() +
                devFiles->entry(Location::oldDocumentation)->size().bytesOrZero());
  EXPECT_EQ(devFiles->appleGroupEntry()->selection(), CleanupEntry::Selection::mixed);
  EXPECT_THAT(devFiles->entry(Location::oldDocumentation)->paths(),
              ElementsAre(fixture.developerFolder() / "Shared" / "Documentation"));
  EXPECT_EQ(devFiles->totalSize(), devFiles->appleGroupEntry()->size().bytesOrZero());

  // Nothing arrives once the delegate or the driver is gone.
  delegate->events.clear();
  devFiles->scan({Location::archives});
  devFiles->setScanDelegate(nullptr);
  queue.drain();
  EXPECT_THAT(delegate->events, IsEmpty());
  devFiles->setScanDelegate(delegate);
  devFiles->scan({Location::archives});
  std::weak_ptr<DevFiles> weak = devFiles;
  devFiles.reset();
  EXPECT_TRUE(weak.expired()) << "pending callbacks must not keep the driver alive";
  queue.drain();
  EXPECT_THAT(delegate->events, IsEmpty());
  // Without an executor the callbacks run in place.
  auto direct = fixture.devFiles();
  direct->setScanDelegate(delegate);
  direct->scan({});
  EXPECT_THAT(delegate->events, ElementsAre("started 1", "finished"));
}

TEST_F(DevFilesTest, EachScanStartsFromEmptyEntriesAndTouchesOnlyItsLocations) {
  fixture.populate();
  auto devFiles = fixture.devFiles();
  devFiles->scan({Location::derivedData});
  const CleanupEntryPtr derivedData = devFiles->entry(Location::derivedData);
  EXPECT_EQ(derivedData->items().size(), 3u);  // two projects and "Other"
  for (Location location : DevFiles::allLocations()) {
    EXPECT_EQ(devFiles->entry(location)->size().isUnknown(), location != Location::derivedData);
  }

  fs::remove_all(fixture.xcode() / "DerivedData");
  devFiles->scan({Location::derivedData});
  EXPECT_EQ(devFiles->entry(Location::derivedData), derivedData);
  EXPECT_THAT(derivedData->items(), IsEmpty());
  EXPECT_EQ(derivedData->size(), CleanupEntry::Size::value(0));

  // reset() keeps the state and the selections of the location entries.
  devFiles->entry(Location::archives)->select();
  devFiles->reset();
  EXPECT_EQ(devFiles->state(), DevFiles::State::scanComplete);
  EXPECT_EQ(devFiles->entry(Location::archives)->selection(), CleanupEntry::Selection::on);
  EXPECT_TRUE(devFiles->entry(Location::derivedData)->size().isUnknown());
}

TEST_F(XcodeScanners, DeviceSupportReadsNamesMergesArchitecturesAndSortsNewestFirst) {
  const fs::path plain = fixture.addDeviceSupport("iOS", "17.4 (21E219)");
  const fs::path arm = fixture.addDeviceSupport("iOS", "17.4 (21E219) arm64e");
  fixture.addDeviceSupport("iOS", "iPhone15,2 17.4 (21E220) arm64e");
  fixture.addDeviceSupport("iOS", "17.0 (21A329)");
  fixture.addDeviceSupport("iOS", "17.0 (21A5248p)");
  fixture.addDeviceSupport("iOS", "17.0.0");
  fixture.addDeviceSupport("watchOS", "Watch6,1 10.2");

  const auto groups = scanDeviceSupport(*fixture.devFiles());
  const auto& items = group(groups, "iOS")->items();
  std::vector<std::string> order;
  for (const auto& entry : items) order.push_back(entry->paths().front().filename().string());
  // 17.0 and 17.0.0 are one release: the build breaks the tie, no build counting as the empty one.
  ASSERT_THAT(order, ElementsAre("iPhone15,2 17.4 (21E220) arm64e", "17.4 (21E219)", "17.0 (21A5248p)", "17.0 (21A329)",
                                 "17.0.0"));
  auto withDevice = as<DeviceSupportFileEntry>(items[0]);
  EXPECT_EQ(withDevice->device(), "iPhone15,2");
  EXPECT_EQ(withDevice->version().toString(), "17.4");
  EXPECT_EQ(withDevice->build()->toString(), "(21E220)");
  EXPECT_EQ(withDevice->architecture(), "arm64e");
  auto merged = as<DeviceSupportFileEntry>(items[1]);  // the arm64e twin joins the plain folder
  EXPECT_FALSE(merged->architecture().has_value());
  EXPECT_THAT(merged->paths(), ElementsAre(plain, arm));
  auto bare = as<DeviceSupportFileEntry>(items[4]);
  EXPECT_FALSE(bare->device() || bare->build() || bare->architecture());
  for (const auto& entry : items) EXPECT_EQ(entry->selection(), CleanupEntry::Selection::off);
  auto watch = as<DeviceSupportFileEntry>(group(groups, "watchOS")->items().at(0));
  EXPECT_EQ(watch->device(), "Watch6,1");
  EXPECT_EQ(watch->osType(), DeviceSupportFileEntry::OSType::watchOS);
}

TEST_F(XcodeScanners, DeviceSupportSkipsUnversionedNamesAndMissingFoldersWithALine) {
  fixture.addDeviceSupport("iOS", "Latest");
  fixture.addDeviceSupport("iOS", "17.0 (21A329)\nsecond line");
  fixture.addDeviceSupport("iOS", "17.1 \xF0\x9F\x93\xB1 arm64e");
  fs::create_directories(fixture.xcode() / "iOS DeviceSupport" / "   ");
  for (const char* os : {"watchOS", "visionOS", "macOS"})
    fs::create_directories(fixture.xcode() / (std::string(os) + " DeviceSupport"));
  LogCapture log;

  const auto groups = scanDeviceSupport(*fixture.devFiles());
  EXPECT_THAT(test::labelsOf(groups), ElementsAre("iOS", "watchOS", "tvOS", "visionOS", "macOS"));
  EXPECT_THAT(linesStartingWith(log, "DevFiles: No version for device support: "),
              ElementsAre("\u26A0\uFE0F DevFiles: No version for device support: Latest, skipping"));
  EXPECT_THAT(linesStartingWith(log, "DevFiles: Cannot check contents of '"),
              ElementsAre(StartsWith("\u26A0\uFE0F DevFiles: Cannot check contents of '" +
                                     (fixture.xcode() / "tvOS DeviceSupport").string() + "', skipping")));
  // Odd but versioned names still make entries: the new line stays inside the build word.
  const auto& items = group(groups, "iOS")->items();
  ASSERT_EQ(items.size(), 2u);
  EXPECT_EQ(as<DeviceSupportFileEntry>(items[0])->build()->toString(), "\xF0\x9F\x93\xB1");
  EXPECT_EQ(as<DeviceSupportFileEntry>(items[1])->build()->toString(), "(21A329)\nsecond");
}

TEST_F(XcodeScanners, ArchivesReadEverySubmissionStateFromXmlAndBinaryLists) {
  const std::vector<std::pair<ArchiveDistributions, Status>> cases{
      {ArchiveDistributions::missing, Status::undefined},         {ArchiveDistributions::notAnArray, Status::undefined},
      {ArchiveDistributions::notDictionaries, Status::undefined}, {ArchiveDistributions::empty, Status::failure},
      {ArchiveDistributions::allFailed, Status::failure},         {ArchiveDistributions::oneSucceeded, Status::success},
  };
  for (auto format : {PropertyListFormat::xml, PropertyListFormat::binary}) {
    for (size_t index = 0; index < cases.size(); ++index) {
      const std::string name = "App" + std::to_string(index) + (format == PropertyListFormat::xml ? "x" : "b");
      fixture.addArchive("2024-01-01", name, archive(name, "1.0", "1", cases[index].first), format);
    }
  }

  const auto groups = scanArchives(*fixture.devFiles());
  ASSERT_EQ(groups.size(), 2 * cases.size());
  for (const auto& projectGroup : groups) {
    auto entry = as<ArchiveFileEntry>(projectGroup->items().at(0));
    EXPECT_EQ(entry->submissionStatus(), cases[projectGroup->label()[3] - '0'].second) << projectGroup->label();
    EXPECT_EQ(entry->projectName(), projectGroup->label());
    EXPECT_EQ(entry->bundleName(), "com.example.app");
    EXPECT_EQ(std::chrono::system_clock::to_time_t(entry->date()), 1700000000);
  }
  EXPECT_EQ(group(groups, "App4x")->items()[0]->label(), "1.0 (1) \u274C");
  EXPECT_EQ(group(groups, "App0b")->items()[0]->label(), "1.0 (1) ");
  EXPECT_EQ(group(groups, "App5b")->items()[0]->label(), "1.0 (1) \u2705");
}

TEST_F(XcodeScanners, ArchivesWithIncompleteOrCorruptInfoAreSkippedWithTheirOwnLine) {
  const std::string warning = "\u26A0\uFE0F DevFiles: Cannot get ";
  struct Case {
    std::string name;
    void (*change)(ArchiveInfo&);
    std::string line;
  };
  const std::vector<Case> cases{
      {"NoName", [](ArchiveInfo& a) { a.name.reset(); }, warning + "project name from archive: "},
      {"NumberName", [](ArchiveInfo& a) { a.nameAsNumber = true; }, warning + "project name from archive: "},
      {"NoDate", [](ArchiveInfo& a) { a.creationDate.reset(); }, warning + "archive date from archive: "},
      {"NoProperties", [](ArchiveInfo& a) { a.applicationProperties = false; },
       warning + "'ApplicationProperties' from archive Info.plist file: "},
      {"NoBundle", [](ArchiveInfo& a) { a.bundleIdentifier.reset(); }, warning + "bundle name from archive: "},
      {"NoVersion", [](ArchiveInfo& a) { a.shortVersion.reset(); },
       "\u2755 DevFiles: Cannot get bundle version from archive: "},
      {"NoBuild", [](ArchiveInfo& a) { a.bundleVersion.reset(); }, warning + "bundle build from archive: "},
  };
  std::vector<fs::path> paths;
  for (const auto& broken : cases) {
    ArchiveInfo info = archive("Broken", "1.0", "1");
    broken.change(info);
    paths.push_back(fixture.addArchive("2024-02-02", broken.name, info));
  }
  const fs::path corrupt = fixture.addArchive("2024-02-02", "Corrupt", archive("Broken", "1.0", "1"));
  test::writeFile(corrupt / "Info.plist", "<?xml version=\"1.0\"?><plist><dict><key>Name</key><string>Half");
  const fs::path missing = fixture.xcode() / "Archives/2024-02-02/Missing.xcarchive";
  fs::create_directories(missing);
  const fs::path notADictionary = fixture.addArchive("2024-02-02", "Array", archive("Broken", "1.0", "1"));
  test::writeFile(notADictionary / "Info.plist",
                  "<?xml version=\"1.0\"?><plist version=\"1.0\"><array><string>x</string></array></plist>");
  fixture.addArchive("2024-02-02", "Good", archive("Fine", "1.0", "1"));
  LogCapture log;

  EXPECT_THAT(test::labelsOf(scanArchives(*fixture.devFiles())), ElementsAre("Fine"));
  for (size_t index = 0; index < cases.size(); ++index) {
    EXPECT_THAT(log.lines(), ::testing::Contains(StartsWith(cases[index].line + paths[index].string())))
        << cases[index].name;
  }
  for (const fs::path& unreadable : {corrupt, missing, notADictionary}) {
    EXPECT_EQ(
        linesStartingWith(log, "DevFiles: Cannot open Info.plist file from archive: " + unreadable.string()).size(), 1u)
        << unreadable;
  }
}

TEST_F(XcodeScanners, ArchivesAreGroupedByProjectSortedNewestFirstAndReadFromACustomFolderOnce) {
  TempDir custom;
  fixture.addArchive("2024-01-01", "A 1.9", archive("Alpha", "1.9", "90"));
  fixture.addArchive("2024-01-02", "A 1.10", archive("Alpha", "1.10", "100"));
  fixture.addArchive("2024-01-02", "B beta", archive("Beta", "2.0 beta", "1"), PropertyListFormat::binary);
  fixture.addArchive("2024-01-03", "A 1.10 b", archive("Alpha", "1.10", "99"));
  fixture.addArchive("2024-01-03", "A 1.10.0 c", archive("Alpha", "1.10.0", "101"));
  fixture.addArchive("2024-01-03", "B rc", archive("Beta", "2.0 rc 10", "2"));
  fixture.addArchive("2024-01-03", "B rc9", archive("Beta", "2.0 rc 9", "3"));
  // Not archives: another extension, and an archive lying directly in the root.
  test::writeFileOfSize(fixture.xcode() / "Archives/2024-01-03/notes.txt", 10);
  fixture.addArchive(".", "Stray", archive("Stray", "1.0", "1"));
  fixture.addArchive("2024-05-05", "Own", archive("Custom", "3.0", "3"), PropertyListFormat::binary, custom.path());

  const auto groups = scanArchives(*fixture.devFiles(std::nullopt, custom.path()));
  ASSERT_THAT(test::labelsOf(groups), ElementsAre("Alpha", "Beta", "Custom"));
  std::vector<std::string> alpha, beta;
  for (const auto& entry : groups[0]->items()) alpha.push_back(as<ArchiveFileEntry>(entry)->build());
  for (const auto& entry : groups[1]->items()) beta.push_back(as<ArchiveFileEntry>(entry)->versionString());
  // 1.10 and 1.10.0 are the same version: builds decide, compared as numbers.
  EXPECT_THAT(alpha, ElementsAre("101", "100", "99", "90"));
  EXPECT_THAT(beta, ElementsAre("2.0 rc 10", "2.0 rc 9", "2.0 beta"));
  // The standard folder named again (with a trailing separator) is not scanned twice.
  const auto again = scanArchives(*fixture.devFiles(std::nullopt, fixture.xcode() / "Archives" / ""));
  ASSERT_THAT(test::labelsOf(again), ElementsAre("Alpha", "Beta"));
  EXPECT_EQ(again[0]->items().size(), 4u);
}

TEST_F(XcodeScanners, DerivedDataNamesProjectsFromXmlAndBinaryInfoAndReadsACustomFolder) {
  TempDir custom;
  const fs::path xml = fixture.addDerivedData("Sea_Lion-abcdefghij", "/Users/dev/Sea Lion/Sea Lion.xcodeproj",
                                              3 * 1024 * 1024, PropertyListFormat::xml);
  fixture.addDerivedData("my-great-app-klmnopqrst", "/Users/dev/great/App.xcworkspace", 1024 * 1024,
                         PropertyListFormat::binary);
  fixture.addDerivedData("ModuleCache", std::nullopt, 1024);
  fixture.addDerivedData("Caf\u00e9_\u00dcber\nZweite-hash", "/Users/d\u00e9v/Caf\u00e9.xcodeproj", 4096,
                         PropertyListFormat::binary);
  fixture.addDerivedData("Own-hash", "/w/Own.xcodeproj", 2 * 1024 * 1024, PropertyListFormat::binary, custom.path());

  const auto entries = scanDerivedData(*fixture.devFiles(custom.path()));
  // Measured while scanning, larger first.
  ASSERT_THAT(test::labelsOf(entries), ElementsAre("Sea Lion", "Own", "my-great-app", "Caf\u00e9 \u00dcber\nZweite"));
  auto first = as<DerivedDataFileEntry>(entries[0]);
  EXPECT_EQ(first->pathUrl(), fs::path("/Users/dev/Sea Lion/Sea Lion.xcodeproj"));
  EXPECT_THAT(first->paths(), ElementsAre(xml));
  EXPECT_GE(entries[2]->size().bytesOrZero(), 1024 * 1024);
  EXPECT_EQ(as<DerivedDataFileEntry>(entries[3])->pathUrl(), fs::path("/Users/d\u00e9v/Caf\u00e9.xcodeproj"));
}

TEST_F(XcodeScanners, DerivedDataWithoutAReadableWorkspaceGoesUnderOther) {
  fixture.addDerivedData("Lost_Project-hashhashhash", std::nullopt, 2 * 1024 * 1024);
  const fs::path wrongType = fixture.addDerivedData("Typed-hash", std::nullopt, 4096);
  test::writeFile(wrongType / "info.plist",
                  "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>WorkspacePath</key><integer>4</integer>"
                  "</dict></plist>");
  const fs::path garbage = fixture.addDerivedData("single", std::nullopt, 4096);
  test::writeFile(garbage / "info.plist", std::string("bplist00\x01\x02\x03", 11));
  fixture.addDerivedData("-odd-", std::nullopt, 4096);
  fixture.addDerivedData("Known-hash", "/w/Known.xcodeproj", 4096);

  const auto entries = scanDerivedData(*fixture.devFiles());
  ASSERT_THAT(test::labelsOf(entries), ElementsAre("Known", "Other"));
  EXPECT_FALSE(entries[1]->size().isUnknown());
  std::vector<std::string> names;
  for (const auto& entry : entries[1]->items()) {
    auto derived = as<DerivedDataFileEntry>(entry);
    names.push_back(derived->projectName());
    EXPECT_EQ(derived->pathUrl(), derived->paths().front());
  }
  EXPECT_THAT(names, ElementsAre("-odd-", "Lost Project", "Typed", "single"));
}

TEST_F(XcodeScanners, DocumentationCachesUserDataAndDeviceLogs) {
  const fs::path cacheA = fixture.addDocumentationCache("v238", "15.2");
  const fs::path cacheB = fixture.addDocumentationCache("v239", "15.2.0");
  fixture.addDocumentationCache("v239", "16.0");
  fixture.addDocumentationCache("v239", "latest");
  fixture.addUserData("Previews", 64 * 1024);
  fixture.addUserData("Capabilities", 256 * 1024);
  fixture.addUserData("IB Support/Simulator Devices", 256 * 1024);
  const fs::path logA = fixture.addDeviceLog("iOS Device Logs 17.2.db");
  const fs::path logB = fixture.addDeviceLog("Logs from 17.2.0 backup.db");
  const fs::path logC = fixture.addDeviceLog("iOS Device Logs 16.4.db");
  fixture.addDeviceLog("Crash Reports.db");
  LogCapture log;

  // One entry per version; only the older ones are preselected.
  const auto caches = scanDocumentationCache(*fixture.devFiles());
  ASSERT_EQ(caches.size(), 2u);
  EXPECT_EQ(as<DocumentationCacheFileEntry>(caches[0])->version().toString(), "16.0");
  EXPECT_THAT(caches[1]->paths(), ElementsAre(cacheA, cacheB));
  EXPECT_EQ(
      linesStartingWith(log, "DevFiles: Invalid Xcode version while searching for documentation caches: latest").size(),
      1u);
  // Largest first; equal sizes fall back to the labels.
  const auto userData = scanUserDataCache(*fixture.devFiles());
  EXPECT_THAT(test::labelsOf(userData),
              ElementsAre("Capabilities Cache", "IB Support Simulator Devices", "SwiftUI Previews"));
  EXPECT_THAT(userData[0]->paths(), ElementsAre(fixture.xcode() / "UserData/Capabilities"));

  const auto logs = scanDeviceLogs(*fixture.devFiles());
  ASSERT_THAT(test::labelsOf(logs), ElementsAre("Logs from Xcode 17.2.0", "Logs from Xcode 16.4"));
  EXPECT_THAT(logs[0]->paths(), ElementsAre(logB, logA));
  EXPECT_EQ(logs[0]->selection(), CleanupEntry::Selection::off);
  EXPECT_THAT(logs[1]->paths(), ElementsAre(logC));
  EXPECT_EQ(logs[1]->selection(), CleanupEntry::Selection::on);
  EXPECT_THAT(linesStartingWith(log, "DevFiles: Wrong log entry? Version not found (path: "),
              ElementsAre(::testing::EndsWith("DevFiles: Wrong log entry? Version not found (path: Crash Reports")));
}

TEST_F(XcodeScanners, MissingFoldersOrFilesInTheirPlaceGiveEmptyResults) {
  EXPECT_THAT(scanArchives(*fixture.devFiles()), IsEmpty());
  EXPECT_THAT(scanDocumentationCache(*fixture.devFiles()), IsEmpty());
  EXPECT_THAT(scanUserDataCache(*fixture.devFiles()), IsEmpty());
  for (const char* folder : {"DerivedData", "Archives", "iOS Device Logs"})
    test::writeFile(fixture.xcode() / folder, "not a folder");
  LogCapture log;
  EXPECT_THAT(scanDerivedData(*fixture.devFiles()), IsEmpty());
  EXPECT_THAT(scanArchives(*fixture.devFiles()), IsEmpty());
  EXPECT_THAT(scanDeviceLogs(*fixture.devFiles()), IsEmpty());
  // Only the device-support folders have a line for a listing that fails.
  EXPECT_THAT(linesStartingWith(log, "DevFiles: Cannot check contents of '"), IsEmpty());
}

TEST_F(XcodeScanners, UnreadableFoldersAndFilesAreSkippedWithALine) {
  fixture.addDeviceSupport("iOS", "17.4 (21E219)");
  fixture.addDeviceSupport("tvOS", "17.4 (21L227)");
  const fs::path locked = fixture.xcode() / "iOS DeviceSupport";
  const fs::path lockedArchive = fixture.addArchive("2024-01-01", "Locked", archive("Locked", "1.0", "1"));
  const fs::path lockedProject = fixture.addDerivedData("Locked-hash", "/w/Locked.xcodeproj", 4096);
  ASSERT_TRUE(test::handOverTree(temp.path()));
  fs::permissions(locked, fs::perms::none);
  fs::permissions(lockedArchive / "Info.plist", fs::perms::none);
  fs::permissions(lockedProject / "info.plist", fs::perms::none);

  auto failures = test::runUnprivileged(temp.path(), [&]() -> std::string {
    LogCapture log;
    const auto groups = scanDeviceSupport(*fixture.devFiles());
    const auto archives = scanArchives(*fixture.devFiles());
    const auto derivedData = scanDerivedData(*fixture.devFiles());
    std::string problems;
    if (!group(groups, "iOS")->items().empty() || group(groups, "tvOS")->items().size() != 1)
      problems += "device support items\n";
    if (linesStartingWith(log, "DevFiles: Cannot check contents of '" + locked.string() + "', skipping").size() != 1)
      problems += "no line for the unreadable folder\n";
    if (!archives.empty() ||
        linesStartingWith(log, "DevFiles: Cannot open Info.plist file from archive: " + lockedArchive.string())
                .size() != 1)
      problems += "an unreadable archive listed or not logged\n";
    // A project whose info.plist cannot be read is still listed, under "Other".
    if (test::labelsOf(derivedData) != std::vector<std::string>{"Other"})
      problems += "the project is not under Other\n";
    return problems;
  });
  fs::permissions(locked, fs::perms::owner_all);
  if (!failures) GTEST_SKIP() << "no unprivileged user to run as";
  EXPECT_EQ(*failures, "");
}

class FullScan : public ::testing::Test {
 protected:
  test::TempDir temp;
  test::FixtureHome home = test::FixtureHome::write(temp / "home");
  bool rootMade = fs::create_directories(temp / "root");  // before the host points at it
  ScopedHost host{Host{
      .home = home.root, .root = temp / "root", .temporaryDirectory = temp.path(), .configDirectory = temp / "config"}};
  std::shared_ptr<DevFiles> devFiles =
      DevFiles::create(home.developerFolder, std::nullopt, std::nullopt).value_or(nullptr);
};

// The window maps each system image name to a picture, so every scanner must use the shared names.
TEST_F(FullScan, EveryIconIsOneOfTheSharedSystemImageNames) {
  ASSERT_NE(devFiles, nullptr);
  devFiles->scan({DevFiles::allLocations().begin(), DevFiles::allLocations().end()});
  std::vector<CleanupEntryPtr> entries(devFiles->rootEntries());
  entries.push_back(std::make_shared<TimeMachineSnapshotFileEntry>("2024-01-01-000000", false));
  entries.push_back(std::make_shared<CloudSyncFolderEntry>("Dropbox", temp / "Dropbox", "synced"));
  std::set<std::string> used;
  while (!entries.empty()) {
    CleanupEntryPtr entry = entries.back();
    entries.pop_back();
    if (entry->icon() && entry->icon()->kind == CleanupEntry::Icon::Kind::system) used.insert(entry->icon()->name);
    entries.insert(entries.end(), entry->items().begin(), entry->items().end());
  }
  for (const auto& name : used) EXPECT_THAT(systemImage::all, ::testing::Contains(name)) << name;
  EXPECT_GE(used.size(), 4u);  // folders, documents and computers come from several scanners each
}

#if defined(TIDEWELL_TEST_HOOKS)

std::mutex walksMutex;
std::map<fs::path, int> walks;

struct CountedWalks {
  CountedWalks() {
    walks.clear();
    setDirectoryWalkObserver([](const fs::path& folder) {
      std::lock_guard lock(walksMutex);
      ++walks[folder];
    });
  }
  ~CountedWalks() { setDirectoryWalkObserver(nullptr); }
};

// Group sizes come from each item's first measurement; a folder two locations list is walked by each.
TEST_F(FullScan, TheScanOfALocationWalksEveryFolderOnce) {
  ASSERT_NE(devFiles, nullptr);
  std::map<fs::path, int> walkedInAll;
  for (Location location : DevFiles::allLocations()) {
    CountedWalks counted;
    devFiles->scan({location});
    for (const auto& [folder, count] : walks) {
      EXPECT_EQ(count, 1) << DevFiles::commandLineName(location) << ": " << folder;
      walkedInAll[folder] += count;
    }
  }
  for (const auto& folder : home.projectBuildFolders) EXPECT_EQ(walkedInAll[folder], 1) << folder;
}

// Projects' node_modules share packages through hard links, as pnpm's store makes them: each
// shared file is charged to the first folder of the group that holds it, on every scan.
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
  std::string first;
  for (int scan = 0; scan < 20; ++scan) {
    auto devFiles = developer.devFiles();
    ASSERT_NE(devFiles, nullptr);
    devFiles->scan({Location::projectBuilds});
    const CleanupEntryPtr& builds = devFiles->entry(Location::projectBuilds);
    if (scan > 0) {
      ASSERT_EQ(builds->description(0), first) << "scan " << scan;
      continue;
    }
    ASSERT_EQ(builds->items().size(), 1u);  // one kind: node_modules
    const auto& folders = builds->items()[0]->items();
    ASSERT_EQ(folders.size(), kProjects);
    int64_t total = 0;
    for (size_t index = 0; index < kProjects; ++index) {
      HardLinkTracker own;
      const int64_t alone = allocatedSizeOfDirectory(folders[index]->paths().at(0), &own);
      const int64_t charged = index == 0 ? alone : alone - test::allocatedBytes(store);
      EXPECT_EQ(folders[index]->size(), CleanupEntry::Size::value(charged)) << folders[index]->paths().at(0);
      total += charged;
    }
    EXPECT_EQ(builds->size(), CleanupEntry::Size::value(total));
    first = builds->description(0);
  }
}

#endif

}  // namespace
}  // namespace tw
