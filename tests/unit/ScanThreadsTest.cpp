// A worker scan leaves the shown tree to its owner, a stop ends cleanly, the pool runs nested and failing work.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <mutex>
#include <set>
#include <thread>

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
