// A notification centre in memory that records what the reminders did to it.
#pragma once

#include <algorithm>
#include <chrono>
#include <mutex>
#include <thread>

#include "platform/NotificationCenter.h"

namespace tw::test {

struct MemoryNotificationCenter : NotificationCenter {
  AuthorizationStatus status = AuthorizationStatus::authorized;
  bool grantOnRequest = true;
  int authorizationRequests = 0;
  std::chrono::milliseconds answerDelay{0};
  std::mutex mutex;
  std::vector<NotificationRequest> pending;
  std::vector<NotificationCategory> categories;

  AuthorizationStatus authorizationStatus() override { return status; }
  bool requestAuthorization() override {
    ++authorizationRequests;
    return grantOnRequest;
  }
  std::vector<NotificationRequest> pendingRequests() override {
    std::this_thread::sleep_for(answerDelay);
    std::lock_guard lock(mutex);
    return pending;
  }
  void removePendingRequests(const std::vector<std::string>& identifiers) override {
    std::lock_guard lock(mutex);
    std::erase_if(pending, [&](const auto& request) {
      return std::find(identifiers.begin(), identifiers.end(), request.identifier) != identifiers.end();
    });
  }
  void setNotificationCategories(const std::vector<NotificationCategory>& newCategories) override {
    categories = newCategories;
  }
  void addRequests(const std::vector<NotificationRequest>& requests) override {
    std::lock_guard lock(mutex);
    pending.insert(pending.end(), requests.begin(), requests.end());
  }
};

}  // namespace tw::test
