// The scan driver: its tree of locations, folder access, callbacks, and whole scans of a realistic home.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
#include "platform/Host.h"
#include "platform/SecurityScope.h"
#include "scan/DevFiles.h"
#include "support/CatalogueFixture.h"
#include "support/DeveloperFolderFixture.h"
#include "support/FixtureHome.h"
#include "support/TempDir.h"
#include "support/Unprivileged.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using Location = DevFiles::Location;
using test::TempDir;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

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

class DevFilesTest : public ::testing::Test {
 protected:
  TempDir temp;
  test::DeveloperFolderFixture fixture{temp / "Library/Developer"};
};

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
