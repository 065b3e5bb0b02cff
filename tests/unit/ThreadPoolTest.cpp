#include <gtest/gtest.h>

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

TEST(ThreadPoolTest, ConcurrentPerformRunsEveryIterationOnceOnWorkersAndTheCaller) {
  ThreadPool pool(2);
  for (size_t count : {0u, 1u, 7u, 10000u}) {
    std::vector<std::atomic<int>> runs(count);
    pool.concurrentPerform(count, [&](size_t index) { runs[index].fetch_add(1); });
    for (size_t i = 0; i < count; ++i) ASSERT_EQ(runs[i].load(), 1) << "iteration " << i << " of " << count;
  }
  // Every iteration waits until three have started at once: the caller and both workers take part.
  std::mutex mutex;
  std::set<std::thread::id> threads;
  std::atomic<int> arrived{0};
  pool.concurrentPerform(3, [&](size_t) {
    {
      std::lock_guard lock(mutex);
      threads.insert(std::this_thread::get_id());
    }
    arrived.fetch_add(1);
    while (arrived.load() < 3) std::this_thread::yield();
  });
  EXPECT_EQ(threads.size(), 3u);
}

TEST(ThreadPoolTest, NestedUseOnASingleWorkerCompletes) {
  // One worker and three levels of nesting, groups inside loops: only help-while-waiting lets this finish.
  ThreadPool pool(1);
  std::atomic<int> leaves{0};
  pool.concurrentPerform(4, [&](size_t) {
    ThreadPool::TaskGroup group(pool);
    for (int task = 0; task < 5; ++task) {
      group.run([&] { pool.concurrentPerform(6, [&](size_t) { leaves.fetch_add(1); }); });
    }
    group.wait();
  });
  EXPECT_EQ(leaves.load(), 4 * 5 * 6);
}

TEST(ThreadPoolTest, ErrorsReachTheCallerAfterEveryTaskRanAndThePoolKeepsWorking) {
  ThreadPool pool(2);
  EXPECT_THROW(pool.concurrentPerform(4,
                                      [&](size_t outer) {
                                        pool.concurrentPerform(4, [&](size_t inner) {
                                          if (outer == 2 && inner == 1) throw std::logic_error("deep failure");
                                        });
                                      }),
               std::logic_error);
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
  group.run([&ran] { ran.fetch_add(1); });  // the error was reported once; the group is clean again
  EXPECT_NO_THROW(group.wait());
  EXPECT_EQ(ran.load(), 201);
}

// A parallel tree walk whose tasks add tasks, while outside threads share the pool.
TEST(ThreadPoolTest, TasksThatAddTasksAndOutsideCallersShareOnePool) {
  ThreadPool pool(3);
  std::atomic<int> visited{0}, total{0};
  std::vector<std::thread> callers;
  for (int caller = 0; caller < 4; ++caller) {
    callers.emplace_back([&] {
      for (int round = 0; round < 50; ++round) pool.concurrentPerform(20, [&](size_t) { total.fetch_add(1); });
    });
  }
  ThreadPool::TaskGroup group(pool);
  std::function<void(int)> visit = [&](int depth) {
    visited.fetch_add(1);
    for (int child = 0; depth > 0 && child < 4; ++child) group.run([&visit, depth] { visit(depth - 1); });
  };
  group.run([&] { visit(6); });
  group.wait();
  for (auto& caller : callers) caller.join();
  EXPECT_EQ(visited.load(), 5461);  // 1 + 4 + 16 + ... + 4^6
  EXPECT_EQ(total.load(), 4 * 50 * 20);
}

}  // namespace
}  // namespace tw
