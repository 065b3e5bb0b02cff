// The worker threads of the window: scans and deletions run here, never on the GUI thread.
// Each job gets its own thread and a stop token; the GUI thread never waits for a job, except
// once, when the application ends and every outstanding job is asked to stop and joined.
#pragma once

#include <functional>
#include <list>
#include <mutex>
#include <stop_token>
#include <thread>

namespace tw {

class BackgroundWork {
 public:
  BackgroundWork() = default;
  ~BackgroundWork() { stopAndJoinAll(); }
  BackgroundWork(const BackgroundWork&) = delete;
  BackgroundWork& operator=(const BackgroundWork&) = delete;

  // Starts `job` on a new thread; the returned source stops it.
  std::stop_source start(std::function<void(std::stop_token)> job);
  // Requests stop on every job and waits for all of them (application exit only).
  void stopAndJoinAll();

  // The process's instance, joined at application exit.
  static BackgroundWork& shared();

 private:
  struct Job {
    std::jthread thread;
    bool finished = false;
  };
  void pruneFinished();

  std::mutex mutex_;
  std::list<Job> jobs_;
};

}  // namespace tw
