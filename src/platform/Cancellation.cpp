#include "platform/Cancellation.h"

#include <utility>

namespace tw {
namespace {

thread_local std::stop_token currentToken;

}  // namespace

CancellationScope::CancellationScope(std::stop_token token)
    : previous_(std::exchange(currentToken, std::move(token))) {}

CancellationScope::~CancellationScope() { currentToken = std::move(previous_); }

std::stop_token currentStopToken() { return currentToken; }

bool cancellationRequested() { return currentToken.stop_requested(); }

}  // namespace tw
