// The sound played when a clean has finished: the freedesktop sound theme's "complete" event,
// played through libcanberra (the desktop's own event-sound service).
#pragma once

#include <string>

struct ca_context;

namespace tw {

class CompletionSound {
 public:
  virtual ~CompletionSound() = default;
  // Plays the sound; when it cannot be played, logs the error line and goes on.
  virtual void play() = 0;
};

class CanberraCompletionSound : public CompletionSound {
 public:
  CanberraCompletionSound();
  ~CanberraCompletionSound() override;
  CanberraCompletionSound(const CanberraCompletionSound&) = delete;
  CanberraCompletionSound& operator=(const CanberraCompletionSound&) = delete;
  void play() override;

  static constexpr const char* kEventId = "complete";

 private:
  ca_context* context_ = nullptr;
};

}  // namespace tw
