#include "platform/ThreadPool.h"

// Sequential stand-in until the pool lands.
namespace tw {
struct ThreadPool::Impl {};
struct ThreadPool::TaskGroup::State {};
ThreadPool::ThreadPool(unsigned) : impl_(std::make_unique<Impl>()) {}
ThreadPool::~ThreadPool() = default;
ThreadPool& ThreadPool::shared() {
  static ThreadPool pool(1);
  return pool;
}
unsigned ThreadPool::workerCount() const { return 1; }
void ThreadPool::concurrentPerform(size_t count, const std::function<void(size_t)>& body) {
  for (size_t i = 0; i < count; ++i) body(i);
}
ThreadPool::TaskGroup::TaskGroup(ThreadPool& pool) : pool_(pool) {}
ThreadPool::TaskGroup::~TaskGroup() = default;
void ThreadPool::TaskGroup::run(std::function<void()> task) { task(); }
void ThreadPool::TaskGroup::wait() {}
}  // namespace tw
