#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "model/XcodeEntries.h"
#include "platform/SecurityScope.h"
#include "scan/DevFiles.h"
#include "support/DeveloperFolderFixture.h"
#include "support/TempDir.h"
#include "support/Unprivileged.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using Location = DevFiles::Location;
using test::CapturedLog;
using test::DeveloperFolderFixture;
using test::TempDir;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kCannotCreate =
    "DevFiles: Cannot create because Xcode cache folders doesn't seem to exist or we don't have proper access to them!";

// A main queue that runs nothing until the test drains it, like an event loop that has not
// come round yet.
struct ManualQueue {
  std::deque<std::function<void()>> tasks;
  DevFiles::Executor executor() {
    return [this](std::function<void()> task) { tasks.push_back(std::move(task)); };
  }
  void drain() {
    while (!tasks.empty()) {
      auto task = std::move(tasks.front());
      tasks.pop_front();
      task();
    }
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

std::vector<std::string> labels(const std::vector<CleanupEntryPtr>& entries) {
  std::vector<std::string> result;
  for (const auto& entry : entries) result.push_back(entry->label());
  return result;
}

class DevFilesTest : public ::testing::Test {
 protected:
  DevFilesTest() : fixture(temp / "Library/Developer") {}
  TempDir temp;
  DeveloperFolderFixture fixture;
};

TEST_F(DevFilesTest, BuildsTheTreeOfEighteenLocations) {
  auto devFiles = DevFiles::create(fixture.developerFolder(), std::nullopt, std::nullopt);
  ASSERT_NE(devFiles, nullptr);
  EXPECT_EQ(devFiles->state(), DevFiles::State::initial);
  EXPECT_THAT(
      labels(devFiles->appleGroupEntry()->items()),
      ElementsAre("Device Support", "Archives", "Derived Data", "Documentation Cache", "UserData Cache", "Old Logs",
                  "Old Documentation Downloads", "Simulators", "Platform Runtimes", "Package Managers"));
  EXPECT_THAT(labels(devFiles->rootEntries()),
              ElementsAre("Apple", "Dev Caches", "IDEs Caches", "AI Caches", "Browser Caches", "App Caches",
                          "Cloud Storage", "System", "Project Build Folders"));
  EXPECT_EQ(devFiles->appleGroupEntry()->tooltipText(), "Xcode, simulators & Apple platform caches.");

  ASSERT_EQ(devFiles->locations().size(), DevFiles::kLocationCount);
  for (Location location : DevFiles::allLocations()) {
    const auto& entry = devFiles->entry(location);
    EXPECT_EQ(entry->label(), DevFiles::label(location));
    EXPECT_EQ(entry->tooltipText(), DevFiles::tooltipText(location));
    EXPECT_TRUE(entry->tooltip());
    EXPECT_FALSE(entry->icon().has_value());
    EXPECT_EQ(entry->selection(), CleanupEntry::Selection::off);
    EXPECT_TRUE(entry->size().isUnknown());
    const bool inAppleGroup = static_cast<int>(location) < 10;
    EXPECT_EQ(entry->parent(), inAppleGroup ? devFiles->appleGroupEntry() : nullptr) << entry->label();
  }
  EXPECT_NE(std::dynamic_pointer_cast<OldDocumentationFileEntry>(devFiles->entry(Location::oldDocumentation)), nullptr);

  std::vector<std::string> names;
  for (Location location : DevFiles::allLocations()) names.emplace_back(DevFiles::commandLineName(location));
  EXPECT_THAT(names,
              ElementsAre("device-support", "archives", "derived-data", "docs-cache", "user-data-cache", "old-logs",
                          "old-documentation", "simulators", "runtimes", "package-caches", "tool-caches", "ide-caches",
                          "ai-caches", "browser-caches", "app-caches", "cloud-caches", "system", "project-builds"));
}

TEST_F(DevFilesTest, ConstructionNeedsTheXcodeAndCoreSimulatorFolders) {
  fs::remove(fixture.developerFolder() / "CoreSimulator");
  {
    CapturedLog log;
    EXPECT_EQ(DevFiles::create(fixture.developerFolder(), std::nullopt, std::nullopt), nullptr);
    const auto lines = log.linesStartingWith(kCannotCreate);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, Logger::Level::error);
  }
  // A file of that name is no folder either.
  test::writeFile(fixture.developerFolder() / "CoreSimulator", "");
  EXPECT_EQ(DevFiles::create(fixture.developerFolder(), std::nullopt, std::nullopt), nullptr);
  fs::remove(fixture.developerFolder() / "CoreSimulator");
  fs::remove_all(fixture.developerFolder() / "Xcode");
  fs::create_directories(fixture.developerFolder() / "CoreSimulator");
  EXPECT_EQ(DevFiles::create(fixture.developerFolder(), std::nullopt, std::nullopt), nullptr);
  EXPECT_EQ(DevFiles::create(temp / "nowhere", std::nullopt, std::nullopt), nullptr);
  // A refused driver leaves the folders' access scopes it entered.
  EXPECT_EQ(securityScopeAccessCount(fixture.developerFolder()), 0);
}

TEST_F(DevFilesTest, ConstructionNeedsWritableCacheFolders) {
  ASSERT_TRUE(test::handOverTree(temp.path()));
  fs::permissions(fixture.developerFolder() / "Xcode", fs::perms::owner_read | fs::perms::owner_exec);
  auto failures = test::runUnprivileged(temp.path(), [&]() -> std::string {
    if (DevFiles::create(fixture.developerFolder(), std::nullopt, std::nullopt)) return "read-only Xcode accepted";
    fs::permissions(fixture.developerFolder() / "Xcode", fs::perms::owner_all);
    if (!DevFiles::create(fixture.developerFolder(), std::nullopt, std::nullopt)) return "writable Xcode refused";
    return "";
  });
  fs::permissions(fixture.developerFolder() / "Xcode", fs::perms::owner_all);
  if (!failures) GTEST_SKIP() << "no unprivileged user to run as";
  EXPECT_EQ(*failures, "");
}

TEST_F(DevFilesTest, HoldsAccessToItsFoldersForItsLifetime) {
  TempDir derived, archives, otherArchives;
  {
    auto devFiles = DevFiles::create(fixture.developerFolder(), derived.path(), archives.path());
    ASSERT_NE(devFiles, nullptr);
    EXPECT_EQ(securityScopeAccessCount(fixture.developerFolder()), 1);
    EXPECT_EQ(securityScopeAccessCount(derived.path()), 1);
    EXPECT_EQ(securityScopeAccessCount(archives.path()), 1);

    devFiles->updateCustomFolders(std::nullopt, otherArchives.path());
    EXPECT_EQ(devFiles->customDerivedDataFolderUrl(), std::nullopt);
    EXPECT_EQ(devFiles->customArchivesFolderUrl(), otherArchives.path());
    EXPECT_EQ(securityScopeAccessCount(derived.path()), 0);
    EXPECT_EQ(securityScopeAccessCount(archives.path()), 0);
    EXPECT_EQ(securityScopeAccessCount(otherArchives.path()), 1);
  }
  EXPECT_EQ(securityScopeAccessCount(fixture.developerFolder()), 0);
  EXPECT_EQ(securityScopeAccessCount(otherArchives.path()), 0);
}

TEST_F(DevFilesTest, ScanCallbacksArriveThroughTheExecutorInOrder) {
  fixture.populate();
  ManualQueue queue;
  auto devFiles = DevFiles::create(fixture.developerFolder(), std::nullopt, std::nullopt, queue.executor());
  auto delegate = std::make_shared<RecordingScanDelegate>();
  devFiles->setScanDelegate(delegate);

  devFiles->scan({Location::derivedData, Location::logs, Location::oldDocumentation});
  EXPECT_EQ(devFiles->state(), DevFiles::State::scanComplete);
  // Posted, not called: nothing has run before the owner's loop comes round.
  EXPECT_THAT(delegate->events, IsEmpty());
  EXPECT_EQ(queue.tasks.size(), 5u);
  queue.drain();
  EXPECT_THAT(delegate->events, ElementsAre("started 2", "derived-data", "old-logs", "old-documentation", "finished"));

  // The group entry took its size and selection from its locations (device logs are preselected).
  EXPECT_FALSE(devFiles->appleGroupEntry()->size().isUnknown());
  EXPECT_EQ(devFiles->appleGroupEntry()->size().bytesOrZero(),
            devFiles->entry(Location::derivedData)->size().bytesOrZero() +
                devFiles->entry(Location::logs)->size().bytesOrZero() +
                devFiles->entry(Location::oldDocumentation)->size().bytesOrZero());
  EXPECT_EQ(devFiles->entry(Location::logs)->selection(), CleanupEntry::Selection::mixed);
  EXPECT_EQ(devFiles->appleGroupEntry()->selection(), CleanupEntry::Selection::mixed);
  EXPECT_THAT(devFiles->entry(Location::oldDocumentation)->paths(),
              ElementsAre(fixture.developerFolder() / "Shared" / "Documentation"));
  EXPECT_EQ(devFiles->totalSize(), devFiles->appleGroupEntry()->size().bytesOrZero());
}

TEST_F(DevFilesTest, PostedCallbacksDoNothingOnceTheDelegateOrDriverIsGone) {
  ManualQueue queue;
  auto devFiles = DevFiles::create(fixture.developerFolder(), std::nullopt, std::nullopt, queue.executor());
  auto delegate = std::make_shared<RecordingScanDelegate>();
  devFiles->setScanDelegate(delegate);
  devFiles->scan({Location::archives});
  auto observer = delegate;  // the test keeps the record; the driver sees the delegate gone
  devFiles->setScanDelegate(nullptr);
  queue.drain();
  EXPECT_THAT(observer->events, IsEmpty());

  devFiles->setScanDelegate(delegate);
  devFiles->scan({Location::archives});
  std::weak_ptr<DevFiles> weak = devFiles;
  devFiles.reset();
  EXPECT_TRUE(weak.expired()) << "pending callbacks must not keep the driver alive";
  queue.drain();
  EXPECT_THAT(delegate->events, IsEmpty());
}

TEST_F(DevFilesTest, WithoutAnExecutorCallbacksRunOnTheScanningThread) {
  auto devFiles = DevFiles::create(fixture.developerFolder(), std::nullopt, std::nullopt);
  auto delegate = std::make_shared<RecordingScanDelegate>();
  devFiles->setScanDelegate(delegate);
  devFiles->scan({});
  EXPECT_THAT(delegate->events, ElementsAre("started 1", "finished"));
  EXPECT_EQ(devFiles->state(), DevFiles::State::scanComplete);
  EXPECT_EQ(devFiles->appleGroupEntry()->size(), CleanupEntry::Size::value(0));
  EXPECT_EQ(devFiles->appleGroupEntry()->selection(), CleanupEntry::Selection::off);
}

TEST_F(DevFilesTest, ScanningOneLocationLeavesTheOthersEmpty) {
  fixture.populate();
  auto devFiles = DevFiles::create(fixture.developerFolder(), std::nullopt, std::nullopt);
  devFiles->scan({Location::derivedData});
  EXPECT_EQ(devFiles->entry(Location::derivedData)->items().size(), 3u);  // two projects and "Other"
  for (Location location : DevFiles::allLocations()) {
    if (location == Location::derivedData) continue;
    const auto& entry = devFiles->entry(location);
    EXPECT_TRUE(entry->isEmpty()) << entry->label();
    EXPECT_TRUE(entry->size().isUnknown()) << entry->label();
  }
}

TEST_F(DevFilesTest, ASecondScanStartsFromEmptyEntries) {
  fixture.populate();
  auto devFiles = DevFiles::create(fixture.developerFolder(), std::nullopt, std::nullopt);
  devFiles->scan({Location::derivedData, Location::documentationCache});
  const CleanupEntryPtr derivedData = devFiles->entry(Location::derivedData);
  ASSERT_EQ(derivedData->items().size(), 3u);
  const CleanupEntryPtr firstItem = derivedData->items().front();

  fs::remove_all(fixture.xcode() / "DerivedData");
  devFiles->scan({Location::derivedData});
  EXPECT_EQ(devFiles->entry(Location::derivedData), derivedData);
  EXPECT_THAT(derivedData->items(), IsEmpty());
  EXPECT_EQ(derivedData->size(), CleanupEntry::Size::value(0));
  EXPECT_TRUE(devFiles->entry(Location::documentationCache)->items().empty());
  EXPECT_EQ(devFiles->appleGroupEntry()->items().size(), 10u);
  EXPECT_EQ(devFiles->rootEntries().size(), 9u);

  // reset() keeps the state and the selections of the location entries.
  devFiles->entry(Location::archives)->select();
  devFiles->reset();
  EXPECT_EQ(devFiles->state(), DevFiles::State::scanComplete);
  EXPECT_EQ(devFiles->entry(Location::archives)->selection(), CleanupEntry::Selection::on);
  EXPECT_TRUE(devFiles->entry(Location::derivedData)->size().isUnknown());
}

}  // namespace
}  // namespace tw
