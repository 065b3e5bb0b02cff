// The core's own small thread pool, built only from std::thread, mutexes, condition
// variables and atomics so that ThreadSanitizer sees every synchronisation. Parallel
// measurement, the catalogue and the project walk all run on the shared pool.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>

namespace tw {

class ThreadPool {
 public:
  // A pool with `workers` threads (at least one).
  explicit ThreadPool(unsigned workers);
  ~ThreadPool();
  ThreadPool(const ThreadPool&) = delete;
  ThreadPool& operator=(const ThreadPool&) = delete;

  // The process-wide pool, one worker per processor.
  static ThreadPool& shared();

  unsigned workerCount() const;

  // Threads (workers and waiting callers) asleep for want of work right now; a producer of
  // fine-grained work hands some of it over only while this is above zero.
  unsigned idleThreadCount() const;

  // Runs body(0) ... body(count - 1) spread over the workers and the calling thread and
  // returns when every iteration has finished. May be called from inside a body: a caller
  // that waits runs pending work itself, so nested use never deadlocks.
  void concurrentPerform(size_t count, const std::function<void(size_t)>& body);

  // A set of tasks that may add further tasks while they run (a parallel tree walk: idle
  // workers take pending subfolders). wait() runs tasks on the calling thread until the
  // group is empty.
  class TaskGroup {
   public:
    explicit TaskGroup(ThreadPool& pool);
    ~TaskGroup();  // waits
    TaskGroup(const TaskGroup&) = delete;
    TaskGroup& operator=(const TaskGroup&) = delete;
    void run(std::function<void()> task);
    void wait();

   private:
    struct State;
    ThreadPool& pool_;
    std::shared_ptr<State> state_;
  };

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace tw
