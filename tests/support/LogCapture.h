// Collects the main logger's lines (level mark included) while the object lives.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "app/Logger.h"

namespace tw::test {

class LogCapture {
 public:
  LogCapture() {
    Logger::main().setLineObserver([this](Logger::Level, const std::string& line) {
      std::lock_guard lock(mutex_);
      lines_.push_back(line);
    });
  }
  ~LogCapture() { Logger::main().setLineObserver(nullptr); }

  std::vector<std::string> lines() const {
    std::lock_guard lock(mutex_);
    return lines_;
  }
  void clear() {
    std::lock_guard lock(mutex_);
    lines_.clear();
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
};

}  // namespace tw::test
