// Thread rules: a worker scan leaves the shown tree to its owner; a stopped scan or deletion ends cleanly.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <mutex>
#include <thread>

#include "clean/DeletionEngine.h"
#include "fs/DirectorySize.h"
#include "platform/Cancellation.h"
#include "platform/ThreadPool.h"
#include "scan/DevCaches.h"
#include "scan/DevFiles.h"
#include "scan/Scanners.h"
#include "support/FixtureHome.h"
#include "support/StandInEnvironment.h"
#include "support/TempDir.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using Location = DevFiles::Location;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct RecordingScanDelegate : DevFilesScanDelegate {
  std::function<void(Location)> onLocation;
  std::vector<std::string> events;
  bool finished = false;
  void scanStarted(DevFiles&) override { events.emplace_back("started"); }
  void locationScanned(DevFiles&, Location location) override {
    events.emplace_back(DevFiles::commandLineName(location));
    if (onLocation) onLocation(location);
  }
  void scanFinished(DevFiles&) override {
    events.emplace_back("finished");
    finished = true;
  }
};

// Everything a view reads of the tree, read the way a view would.
int64_t readWholeTree(const DevFiles& devFiles) {
  int64_t checksum = 0;
  std::vector<CleanupEntryPtr> stack(devFiles.rootEntries().begin(), devFiles.rootEntries().end());
  while (!stack.empty()) {
    CleanupEntryPtr entry = stack.back();
    stack.pop_back();
    checksum += static_cast<int64_t>(entry->label().size() + entry->extraInfo().size());
    checksum += entry->size().bytesOrZero() % 1000 + static_cast<int64_t>(entry->selection());
    checksum += entry->selectedSize() % 1000 + static_cast<int64_t>(entry->paths().size());
    for (const auto& item : entry->items()) stack.push_back(item);
  }
  return checksum + devFiles.totalSize() % 1000 + static_cast<int64_t>(devFiles.state());
}

class ScanThreads : public ::testing::Test {
 protected:
  void SetUp() override { home = test::FixtureHome::write(temp / "home"); }
  std::shared_ptr<DevFiles> create(DevFiles::Executor executor = nullptr) {
    return DevFiles::create(home.developerFolder, std::nullopt, std::nullopt, std::move(executor)).value_or(nullptr);
  }

  test::TempDir temp;
  ScopedHost host{test::hostWithRoot(temp.path())};
  test::FixtureHome home;
};

TEST_F(ScanThreads, AScanOnAWorkerLeavesTheShownTreeToItsOwner) {
  // The reference: the same home scanned in place.
  auto inPlace = create();
  inPlace->scan({DevFiles::allLocations().begin(), DevFiles::allLocations().end()});

  // A second thread stands in for a window's event loop: it runs the posted tasks and, in
  // between, keeps reading the whole tree.
  std::mutex mutex;
  std::deque<std::function<void()>> tasks;
  auto devFiles = create([&](std::function<void()> task) {
    std::lock_guard lock(mutex);
    tasks.push_back(std::move(task));
  });
  auto delegate = std::make_shared<RecordingScanDelegate>();
  devFiles->setScanDelegate(delegate);
  int reads = 0;
  std::thread owner([&] {
    while (!delegate->finished) {
      std::function<void()> task;
      {
        std::lock_guard lock(mutex);
        if (!tasks.empty()) task = std::move(tasks.front()), tasks.pop_front();
      }
      if (task) task();
      reads += readWholeTree(*devFiles) != 0 ? 1 : 0;
    }
  });
  devFiles->scan({DevFiles::allLocations().begin(), DevFiles::allLocations().end()});
  owner.join();

  EXPECT_GT(reads, 0);
  ASSERT_EQ(delegate->events.size(), DevFiles::kLocationCount + 2);
  EXPECT_EQ(delegate->events.front(), "started");
  EXPECT_EQ(devFiles->state(), DevFiles::State::scanComplete);
  // Same result as in place: every size, item and selection.
  for (Location location : DevFiles::allLocations()) {
    EXPECT_EQ(devFiles->entry(location)->description(0), inPlace->entry(location)->description(0))
        << DevFiles::commandLineName(location);
  }
  EXPECT_EQ(devFiles->appleGroupEntry()->size(), inPlace->appleGroupEntry()->size());
  EXPECT_EQ(devFiles->appleGroupEntry()->selection(), inPlace->appleGroupEntry()->selection());
  EXPECT_GT(devFiles->totalSize(), 0);
}

TEST_F(ScanThreads, AStoppedScanPostsNothingMoreAndShowsOnlyFinishedLocations) {
  // Stopped between two locations (the command line's inline delivery).
  std::stop_source stop;
  auto devFiles = create();
  auto delegate = std::make_shared<RecordingScanDelegate>();
  delegate->onLocation = [&](Location location) {
    if (location == Location::derivedData) stop.request_stop();
  };
  devFiles->setScanDelegate(delegate);
  devFiles->scan({Location::archives, Location::derivedData, Location::projectBuilds}, stop.get_token());
  EXPECT_THAT(delegate->events, ElementsAre("started", "archives", "derived-data"));
  EXPECT_FALSE(devFiles->entry(Location::derivedData)->items().empty());
  EXPECT_THAT(devFiles->entry(Location::projectBuilds)->items(), IsEmpty());
  EXPECT_TRUE(devFiles->entry(Location::projectBuilds)->size().isUnknown());

  // Stopped after the worker finished but before the owner ran the tasks (a window closed
  // with a scan's results still queued): the tree stays as it was.
  std::deque<std::function<void()>> queued;
  auto queuedDriver = create([&](std::function<void()> task) { queued.push_back(std::move(task)); });
  auto quiet = std::make_shared<RecordingScanDelegate>();
  queuedDriver->setScanDelegate(quiet);
  std::stop_source late;
  queuedDriver->scan({Location::derivedData}, late.get_token());
  late.request_stop();
  for (auto& task : queued) task();
  EXPECT_THAT(quiet->events, IsEmpty());
  EXPECT_THAT(queuedDriver->entry(Location::derivedData)->items(), IsEmpty());
  EXPECT_EQ(queuedDriver->state(), DevFiles::State::initial);
}

TEST_F(ScanThreads, DeepLoopsOfAStoppedJobGiveUp) {
  std::stop_source stop;
  stop.request_stop();
  ASSERT_GT(measurePath(home.developerFolder, nullptr), 0);
  ASSERT_FALSE(scanProjectBuilds({}).empty());

  CancellationScope scope(stop.get_token());
  EXPECT_EQ(measurePath(home.developerFolder, nullptr), 0);
  EXPECT_THAT(scanProjectBuilds({}), IsEmpty());
  EXPECT_THAT(DevCaches::expandPattern("~/Library/Developer/Xcode/*"), IsEmpty());
  // The pool's workers work for the job that queued the task, and see its token.
  std::atomic<int> stoppedIterations{0};
  ThreadPool::shared().concurrentPerform(64, [&](size_t) {
    if (cancellationRequested()) stoppedIterations.fetch_add(1);
  });
  EXPECT_EQ(stoppedIterations.load(), 64);
}

struct StoppingDeleteDelegate : DevFilesDeleteDelegate {
  std::stop_source stop;
  std::vector<std::string> events;
  void deleteStarted(DevFiles&) override { events.emplace_back("started"); }
  void deletingItem(DevFiles&, const std::string&, const std::string&, const std::optional<fs::path>&, size_t index,
                    size_t) override {
    events.push_back("deleting " + std::to_string(index));
    if (index == 2) stop.request_stop();
  }
  void deleteFailed(DevFiles&, const std::exception&, const std::string&, const std::string&,
                    const std::optional<fs::path>&) override {
    events.emplace_back("failed");
  }
  void deleteFinished(DevFiles&) override { events.emplace_back("finished"); }
};

TEST_F(ScanThreads, AStoppedDeletionFinishesTheUnitAtHandAndReportsTheEnd) {
  auto devFiles = create();
  devFiles->scan({Location::derivedData});
  const auto& location = devFiles->entry(Location::derivedData);
  ASSERT_GE(location->items().size(), 3u);
  location->changeSelection(CleanupEntry::Selection::on);
  auto delegate = std::make_shared<StoppingDeleteDelegate>();
  devFiles->setDeleteDelegate(delegate);

  const std::vector<DeletionItem> units = makeDeletionList(*devFiles);
  ASSERT_GE(units.size(), 3u);

  deleteSelected(*devFiles, false, delegate->stop.get_token());
  EXPECT_THAT(delegate->events, ElementsAre("started", "deleting 1", "deleting 2", "finished"));
  for (size_t index = 0; index < units.size(); ++index) {
    EXPECT_EQ(fs::exists(*units[index].url), index >= 2) << *units[index].url;
  }
}

}  // namespace
}  // namespace tw
