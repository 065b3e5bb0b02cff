// The stop token of the job a thread is working for. A scan or a deletion runs under a
// CancellationScope on its own thread; the thread pool hands the token on to every task
// that job queues, so the deep loops (folder measurement, the project walk, the catalogue
// expansion) can give up early without a token parameter threaded through every layer.
#pragma once

#include <stop_token>

namespace tw {

// Makes `token` the current thread's stop token until the scope ends (scopes nest).
class CancellationScope {
 public:
  explicit CancellationScope(std::stop_token token);
  ~CancellationScope();
  CancellationScope(const CancellationScope&) = delete;
  CancellationScope& operator=(const CancellationScope&) = delete;

 private:
  std::stop_token previous_;
};

// The token of the innermost scope on this thread; a token that never stops outside any scope.
std::stop_token currentStopToken();

// Whether the job this thread works for has been asked to stop. Cheap enough for a loop
// that runs once per folder.
bool cancellationRequested();

}  // namespace tw
