#include "ui/CompletionSound.h"

#include <canberra.h>

#include "app/Logger.h"

namespace tw {

CanberraCompletionSound::CanberraCompletionSound() {
  if (ca_context_create(&context_) != CA_SUCCESS) context_ = nullptr;
}

CanberraCompletionSound::~CanberraCompletionSound() {
  if (context_) ca_context_destroy(context_);
}

void CanberraCompletionSound::play() {
  const int result = context_ ? ca_context_play(context_, 0, CA_PROP_EVENT_ID, kEventId, CA_PROP_EVENT_DESCRIPTION,
                                                "Cleaning finished", CA_PROP_APPLICATION_NAME, "Tidewell", nullptr)
                              : CA_ERROR_NOTAVAILABLE;
  if (result != CA_SUCCESS) log::error("MainViewController: Completion sound 'complete' not found!");
}

}  // namespace tw
