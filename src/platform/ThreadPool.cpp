#include "platform/ThreadPool.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "platform/Cancellation.h"

// One shared stack of tasks guarded by one mutex. Tasks are taken newest first: a tree walk
// that pushes subfolders then stays close to depth-first, which keeps the number of pending
// folders (and the descriptors they hold) small.
//
// Nobody ever blocks while work is pending: a thread that waits for a concurrentPerform or a
// TaskGroup runs queued tasks itself and sleeps only when the queue is empty. A task only
// ever waits for work it created after it started, so the waits can't form a cycle and
// nested use can't deadlock.

namespace tw {

namespace {

// The first exception thrown by any iteration or task; later ones are dropped.
class FirstError {
 public:
  void capture(std::exception_ptr error) {
    failedFlag_.store(true, std::memory_order_relaxed);
    std::lock_guard lock(mutex_);
    if (!error_) error_ = std::move(error);
  }
  bool failed() const { return failedFlag_.load(std::memory_order_relaxed); }
  void rethrowIfAny() {
    std::exception_ptr error;
    {
      std::lock_guard lock(mutex_);
      error = std::exchange(error_, nullptr);
    }
    if (error) std::rethrow_exception(error);
  }

 private:
  std::mutex mutex_;
  std::exception_ptr error_;
  std::atomic<bool> failedFlag_{false};
};

}  // namespace

struct ThreadPool::Impl {
  std::mutex mutex;
  std::condition_variable wake;  // a task arrived, a job finished, or the pool stops
  std::vector<std::function<void()>> tasks;
  std::vector<std::thread> threads;
  bool stopping = false;
  std::atomic<unsigned> sleeping{0};

  void push(std::function<void()> task) {
    {
      std::lock_guard lock(mutex);
      tasks.push_back(std::move(task));
    }
    wake.notify_one();
  }

  void pushMany(std::vector<std::function<void()>>& batch) {
    {
      std::lock_guard lock(mutex);
      for (auto& task : batch) tasks.push_back(std::move(task));
    }
    if (batch.size() == 1) {
      wake.notify_one();
    } else {
      wake.notify_all();
    }
  }

  // Called after the condition a waiter checks has become true. Taking the mutex orders the
  // change before the waiter's check, so the wake-up can't be lost.
  void signalFinished() {
    { std::lock_guard lock(mutex); }
    wake.notify_all();
  }

  // Runs queued tasks on this thread until `done()` holds. Tasks never throw (their wrappers
  // catch), so the lock is always re-taken.
  template <typename Done>
  void helpUntil(Done done) {
    std::unique_lock lock(mutex);
    while (!done()) {
      if (!tasks.empty()) {
        auto task = std::move(tasks.back());
        tasks.pop_back();
        lock.unlock();
        task();
        task = nullptr;  // release what it captured before re-taking the lock
        lock.lock();
        continue;
      }
      sleeping.fetch_add(1, std::memory_order_relaxed);
      wake.wait(lock);
      sleeping.fetch_sub(1, std::memory_order_relaxed);
    }
  }

  void workerLoop() {
    std::unique_lock lock(mutex);
    for (;;) {
      if (!tasks.empty()) {
        auto task = std::move(tasks.back());
        tasks.pop_back();
        lock.unlock();
        task();
        task = nullptr;
        lock.lock();
        continue;
      }
      if (stopping) return;
      sleeping.fetch_add(1, std::memory_order_relaxed);
      wake.wait(lock);
      sleeping.fetch_sub(1, std::memory_order_relaxed);
    }
  }
};

ThreadPool::ThreadPool(unsigned workers) : impl_(std::make_unique<Impl>()) {
  const unsigned count = std::max(1u, workers);
  impl_->threads.reserve(count);
  for (unsigned i = 0; i < count; ++i) impl_->threads.emplace_back([impl = impl_.get()] { impl->workerLoop(); });
}

ThreadPool::~ThreadPool() {
  {
    std::lock_guard lock(impl_->mutex);
    impl_->stopping = true;
  }
  impl_->wake.notify_all();
  for (auto& thread : impl_->threads) thread.join();
}

ThreadPool& ThreadPool::shared() {
  static ThreadPool pool(std::max(1u, std::thread::hardware_concurrency()));
  return pool;
}

unsigned ThreadPool::workerCount() const { return static_cast<unsigned>(impl_->threads.size()); }

unsigned ThreadPool::idleThreadCount() const { return impl_->sleeping.load(std::memory_order_relaxed); }

namespace {

// The shared state of one concurrentPerform. Helper tasks that start after every iteration
// was claimed return at once without touching the body, which may be gone by then.
struct PerformJob {
  PerformJob(size_t iterations, const std::function<void(size_t)>* function) : count(iterations), body(function) {}
  const size_t count;
  const std::function<void(size_t)>* body;
  std::atomic<size_t> next{0};
  std::atomic<size_t> finished{0};
  FirstError error;

  // Runs iterations until none is left; true when this call finished the last one.
  bool drain() {
    bool finishedLast = false;
    for (;;) {
      const size_t index = next.fetch_add(1, std::memory_order_relaxed);
      if (index >= count) break;
      if (!error.failed()) {
        try {
          (*body)(index);
        } catch (...) {
          error.capture(std::current_exception());
        }
      }
      if (finished.fetch_add(1, std::memory_order_acq_rel) + 1 == count) finishedLast = true;
    }
    return finishedLast;
  }
  bool done() const { return finished.load(std::memory_order_acquire) == count; }
};

}  // namespace

void ThreadPool::concurrentPerform(size_t count, const std::function<void(size_t)>& body) {
  if (count == 0) return;
  if (count == 1) {
    body(0);
    return;
  }
  auto job = std::make_shared<PerformJob>(count, &body);
  Impl* impl = impl_.get();
  const size_t helpers = std::min<size_t>(count - 1, impl->threads.size());
  std::vector<std::function<void()>> batch;
  batch.reserve(helpers);
  // Helpers work for the caller's job, so they see its stop token.
  const std::stop_token stop = currentStopToken();
  for (size_t i = 0; i < helpers; ++i) {
    batch.emplace_back([job, impl, stop] {
      CancellationScope scope(stop);
      if (job->drain()) impl->signalFinished();
    });
  }
  impl->pushMany(batch);
  if (job->drain()) impl->signalFinished();
  impl->helpUntil([&] { return job->done(); });
  job->error.rethrowIfAny();
}

struct ThreadPool::TaskGroup::State {
  std::atomic<size_t> pending{0};
  FirstError error;
};

ThreadPool::TaskGroup::TaskGroup(ThreadPool& pool) : pool_(pool), state_(std::make_shared<State>()) {}

ThreadPool::TaskGroup::~TaskGroup() {
  // A destructor can't throw: an error nobody asked for with wait() is dropped.
  pool_.impl_->helpUntil([&] { return state_->pending.load(std::memory_order_acquire) == 0; });
}

void ThreadPool::TaskGroup::run(std::function<void()> task) {
  state_->pending.fetch_add(1, std::memory_order_relaxed);
  Impl* impl = pool_.impl_.get();
  impl->push([state = state_, impl, task = std::move(task), stop = currentStopToken()]() mutable {
    CancellationScope scope(stop);
    try {
      task();
    } catch (...) {
      state->error.capture(std::current_exception());
    }
    // Whatever the task captured goes before the group counts it done: the waiter may
    // return and free what those captures refer to.
    task = nullptr;
    if (state->pending.fetch_sub(1, std::memory_order_acq_rel) == 1) impl->signalFinished();
  });
}

void ThreadPool::TaskGroup::wait() {
  pool_.impl_->helpUntil([&] { return state_->pending.load(std::memory_order_acquire) == 0; });
  state_->error.rethrowIfAny();
}

}  // namespace tw
