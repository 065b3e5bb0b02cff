#include "ui/BackgroundWork.h"

#include <vector>

namespace tw {

BackgroundWork& BackgroundWork::shared() {
  static BackgroundWork work;
  return work;
}

std::stop_source BackgroundWork::start(std::function<void(std::stop_token)> job) {
  std::lock_guard lock(mutex_);
  pruneFinished();
  Job& slot = jobs_.emplace_back();
  slot.thread = std::jthread([this, &slot, job = std::move(job)](std::stop_token stop) {
    job(stop);
    std::lock_guard finishedLock(mutex_);
    slot.finished = true;
  });
  return slot.thread.get_stop_source();
}

void BackgroundWork::pruneFinished() {
  // Finished threads are joined here, where joining cannot block for long.
  jobs_.remove_if([](Job& job) { return job.finished; });
}

void BackgroundWork::stopAndJoinAll() {
  std::list<Job> jobs;
  {
    std::lock_guard lock(mutex_);
    for (Job& job : jobs_) job.thread.request_stop();
    jobs.splice(jobs.end(), jobs_);
  }
  // Joined outside the lock: a finishing job takes it to mark itself.
  for (Job& job : jobs) {
    if (job.thread.joinable()) job.thread.join();
  }
}

}  // namespace tw
