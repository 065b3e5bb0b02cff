#include "support/LogCapture.h"

#include "app/Logger.h"

namespace tw::test {

LogCapture::LogCapture() {
  Logger::main().setLineObserver([this](Logger::Level, const std::string& line) {
    std::lock_guard lock(mutex_);
    lines_.push_back(line);
  });
}

LogCapture::~LogCapture() { Logger::main().setLineObserver(nullptr); }

std::vector<std::string> LogCapture::lines() const {
  std::lock_guard lock(mutex_);
  return lines_;
}

void LogCapture::clear() {
  std::lock_guard lock(mutex_);
  lines_.clear();
}

}  // namespace tw::test
