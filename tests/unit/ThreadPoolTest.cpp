#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

#include "platform/ThreadPool.h"

namespace tw {
namespace {

TEST(ThreadPoolTest, ConcurrentPerformRunsEveryIterationExactlyOnce) {
  ThreadPool pool(3);
  for (size_t count : {0u, 1u, 2u, 7u, 10000u}) {
    std::vector<std::atomic<int>> runs(count);
    pool.concurrentPerform(count, [&](size_t index) { runs[index].fetch_add(1); });
    for (size_t i = 0; i < count; ++i) EXPECT_EQ(runs[i].load(), 1) << "iteration " << i << " of " << count;
  }
}

TEST(ThreadPoolTest, ConcurrentPerformUsesWorkersAndTheCallingThread) {
  ThreadPool pool(2);
  std::mutex mutex;
  std::set<std::thread::id> threads;
  std::atomic<int> arrived{0};
  // Every iteration waits until three have started at once, which needs the caller and both
  // workers to take part.
  pool.concurrentPerform(3, [&](size_t) {
    {
      std::lock_guard lock(mutex);
      threads.insert(std::this_thread::get_id());
    }
    arrived.fetch_add(1);
    while (arrived.load() < 3) std::this_thread::yield();
  });
  EXPECT_EQ(threads.size(), 3u);
  EXPECT_TRUE(threads.count(std::this_thread::get_id()));
}

TEST(ThreadPoolTest, NestedConcurrentPerformOnASingleWorkerCompletes) {
  // One worker and three levels of nesting: only help-while-waiting lets this finish.
  ThreadPool pool(1);
  std::atomic<int> leaves{0};
  pool.concurrentPerform(4, [&](size_t) {
    pool.concurrentPerform(5, [&](size_t) { pool.concurrentPerform(6, [&](size_t) { leaves.fetch_add(1); }); });
  });
  EXPECT_EQ(leaves.load(), 4 * 5 * 6);
}

TEST(ThreadPoolTest, SharedPoolHasOneWorkerPerProcessor) {
  EXPECT_EQ(ThreadPool::shared().workerCount(), std::max(1u, std::thread::hardware_concurrency()));
  EXPECT_EQ(&ThreadPool::shared(), &ThreadPool::shared());
}

TEST(ThreadPoolTest, ExceptionFromAnIterationIsRethrownAndThePoolKeepsWorking) {
  ThreadPool pool(2);
  for (int round = 0; round < 20; ++round) {
    EXPECT_THROW(pool.concurrentPerform(50,
                                        [&](size_t index) {
                                          if (index % 7 == 3) throw std::runtime_error("iteration failed");
                                        }),
                 std::runtime_error);
  }
  // The workers survived every failure.
  std::atomic<size_t> sum{0};
  pool.concurrentPerform(100, [&](size_t index) { sum.fetch_add(index); });
  EXPECT_EQ(sum.load(), 4950u);
}

TEST(ThreadPoolTest, ExceptionFromANestedIterationReachesTheOuterCaller) {
  ThreadPool pool(2);
  EXPECT_THROW(pool.concurrentPerform(4,
                                      [&](size_t outer) {
                                        pool.concurrentPerform(4, [&](size_t inner) {
                                          if (outer == 2 && inner == 1) throw std::logic_error("deep failure");
                                        });
                                      }),
               std::logic_error);
}

// A parallel tree walk: every task adds its children as further tasks of the same group.
TEST(ThreadPoolTest, TaskGroupRunsTasksThatAddTasks) {
  ThreadPool pool(3);
  std::atomic<int> visited{0};
  ThreadPool::TaskGroup group(pool);
  std::function<void(int)> visit = [&](int depth) {
    visited.fetch_add(1);
    if (depth == 0) return;
    for (int child = 0; child < 4; ++child) group.run([&visit, depth] { visit(depth - 1); });
  };
  group.run([&] { visit(6); });
  group.wait();
  EXPECT_EQ(visited.load(), 5461);  // 1 + 4 + 16 + ... + 4^6
}

TEST(ThreadPoolTest, ManySmallTasksAllRunBeforeWaitReturns) {
  ThreadPool pool(2);
  std::atomic<int64_t> sum{0};
  {
    ThreadPool::TaskGroup group(pool);
    for (int i = 1; i <= 100000; ++i) group.run([&sum, i] { sum.fetch_add(i, std::memory_order_relaxed); });
    group.wait();
    EXPECT_EQ(sum.load(), int64_t{100000} * 100001 / 2);
    // A group can be used again after wait().
    for (int i = 0; i < 10; ++i) group.run([&sum] { sum.fetch_sub(1); });
  }  // the destructor waits too
  EXPECT_EQ(sum.load(), int64_t{100000} * 100001 / 2 - 10);
}

TEST(ThreadPoolTest, TaskGroupRethrowsTheFirstErrorAfterEveryTaskRan) {
  ThreadPool pool(2);
  ThreadPool::TaskGroup group(pool);
  std::atomic<int> ran{0};
  for (int i = 0; i < 200; ++i) {
    group.run([&ran, i] {
      ran.fetch_add(1);
      if (i % 50 == 0) throw std::runtime_error("task failed");
    });
  }
  EXPECT_THROW(group.wait(), std::runtime_error);
  EXPECT_EQ(ran.load(), 200);
  // The error was reported once; the group is clean again.
  group.run([&ran] { ran.fetch_add(1); });
  EXPECT_NO_THROW(group.wait());
  EXPECT_EQ(ran.load(), 201);
}

TEST(ThreadPoolTest, TaskGroupsAndConcurrentPerformNestInsideEachOther) {
  ThreadPool pool(2);
  std::atomic<int> leaves{0};
  pool.concurrentPerform(8, [&](size_t) {
    ThreadPool::TaskGroup group(pool);
    for (int task = 0; task < 8; ++task) {
      group.run([&] { pool.concurrentPerform(8, [&](size_t) { leaves.fetch_add(1); }); });
    }
    group.wait();
  });
  EXPECT_EQ(leaves.load(), 8 * 8 * 8);
}

TEST(ThreadPoolTest, SeveralOutsideThreadsShareOnePool) {
  ThreadPool pool(2);
  std::atomic<int> total{0};
  std::vector<std::thread> callers;
  for (int caller = 0; caller < 4; ++caller) {
    callers.emplace_back([&] {
      for (int round = 0; round < 50; ++round) pool.concurrentPerform(20, [&](size_t) { total.fetch_add(1); });
    });
  }
  for (auto& caller : callers) caller.join();
  EXPECT_EQ(total.load(), 4 * 50 * 20);
}

}  // namespace
}  // namespace tw
